# SPDX-License-Identifier: MIT
"""The web server of a recording: viewers cost no frames, and an unusable address or token is an error at startup."""

import http.client
import json
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

from camera_process import Camera
from frame_account import FrameAccount
from recorder import MGJAI, Recording
from recording_process import MEDIAGRABBER
from web_client import get

# Frames of 1 MB.
CONFIGURATION = """
[image]
width = 1024
height = 1024
[timing]
frame_rate_hz = {rate}.0
[web]
address = "127.0.0.1:0"
[output]
format = "none"
"""

FRAMES = 800
RATE = 100  # frames/s
VIEWERS = 3
CALIBRATION_FRAMES = 1  # at the start of a recording, which the plug-in does not deliver


class Viewer(threading.Thread):
    """Requests images, tiles and figures as the page does, until the recording ends.

    Uses only processor time that no other program needs, because viewers have a machine of their own.
    """

    def __init__(self, port):
        super().__init__()
        self.port = port
        self.images = 0
        self.tiles = 0
        self.start()

    def run(self):
        os.sched_setscheduler(threading.get_native_id(), os.SCHED_IDLE, os.sched_param(0))
        frame = 0
        try:
            while True:
                response, image = get(self.port, f"/frame.jpg?after={frame}")
                if response.status == 200:
                    assert image.startswith(b"\xff\xd8")
                    frame = int(response.getheader("X-Frame"))
                    self.images += 1
                response, tile = get(self.port, "/tile.raw?x=64&y=32&width=512&height=256")
                if response.status == 200:
                    assert len(tile) == 512 * 256
                    self.tiles += 1
                for path in ("/status.json", "/history.json"):
                    response, text = get(self.port, path)
                    json.loads(text)
        except (OSError, http.client.HTTPException):
            pass  # the recording has ended


class ViewedRecording:
    """A finished recording that several viewers watched. `account` compares its frames with the camera's."""

    def __init__(self, test, frames, rate, *camera_options):
        with Recording(CONFIGURATION.format(rate=rate), "--frames", frames) as recording:
            with Camera("--frame-buffers", "1000", *camera_options) as camera:  # it shares the machine, so it may be late
                recording.wait_for_log("live page: ")
                port = int(re.search(r"live page: http://127.0.0.1:(\d+)/", recording.log).group(1))
                viewers = [Viewer(port) for _ in range(VIEWERS)]
                stream = test.enterContext(socket.create_connection(("127.0.0.1", port)))
                stream.sendall(b"GET /stream.mjpg HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")  # and never reads
                test.assertEqual(recording.finish(), 0, recording.log)
                for viewer in viewers:
                    viewer.join()
            self.images = [viewer.images for viewer in viewers]
            self.tiles = [viewer.tiles for viewer in viewers]
            self.log = recording.log
            ticks = [line["ticks"] for line in recording.frame_index()]
            self.account = FrameAccount(camera.truth_frames, ticks, skipped=CALIBRATION_FRAMES)


class ConcurrentViewers(unittest.TestCase):
    def test_cost_no_frame(self):
        recording = ViewedRecording(self, FRAMES, RATE)
        print("images received by each viewer:", recording.images)
        self.assertEqual(recording.account.problems(FRAMES), [], recording.log)
        self.assertGreater(min(recording.images), 5)
        self.assertGreater(min(recording.tiles), 5)
        self.assertIn("dropped: 0 (queue full), 0 (write errors)", recording.log)


class LossCheck(unittest.TestCase):
    """The check of ConcurrentViewers itself."""

    def test_notices_a_loss_that_later_frames_make_up_for(self):
        with tempfile.NamedTemporaryFile("w", suffix=".toml") as faults:
            faults.write('[[fault]]\nkind = "leader_loss"\nprobability = 0.2\nincluding_resends = true\n')
            faults.flush()
            recording = ViewedRecording(self, 20, 20, "--faults", faults.name)
        self.assertIn("frames lost", " ".join(recording.account.problems(20)), recording.log)


class StartupErrors(unittest.TestCase):
    """No camera is needed: mediagrabber exits before it searches for one."""

    def error_of(self, *arguments):
        """The error message of a recording that does not start."""
        with tempfile.TemporaryDirectory() as directory:
            configuration = pathlib.Path(directory) / "run.toml"
            configuration.write_text("")
            output = pathlib.Path(directory) / "frames"
            done = subprocess.run([MEDIAGRABBER, "run", "--plugin", MGJAI, "--config", str(configuration), "--output",
                                   str(output), *arguments], capture_output=True, text=True, timeout=60)
            self.assertEqual(done.returncode, 2, done.stderr)
            self.assertFalse(output.exists(), "the output directory exists")
            return done.stderr

    def test_an_address_that_other_machines_reach_needs_a_token(self):
        error = self.error_of("--web", "0.0.0.0:8080")
        self.assertIn("0.0.0.0:8080 is reachable from other machines and needs web.token_file", error)
        self.assertIn("create one with: (umask 077; head -c 24 /dev/urandom", error)

    def test_an_invalid_address_is_refused(self):
        self.assertIn("expected ADDRESS:PORT", self.error_of("--web", "8080"))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
