# SPDX-License-Identifier: MIT
"""A stop ends within its grace time whatever other programs do, and writes the frames that wait first."""

import fcntl
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

from host_process import FAKE_PLUGIN, LARGE_QUEUE, Recording
from host_troubles import HostTroubles
from recording_process import MEDIAGRABBER
from waiting import wait_for

SUCCESS, CUT_SHORT = 0, 5
GRACE_SECONDS = 4  # half of what slow clients used to take


class UnreadOutput:
    """A recording whose standard output and standard error are a full pipe."""

    def __init__(self, configuration, script="grab"):
        self.directory = tempfile.TemporaryDirectory()
        root = pathlib.Path(self.directory.name)
        (root / "run.toml").write_text(LARGE_QUEUE + configuration.replace("DIRECTORY", str(root)))
        self.output = root / "frames"
        self.unread, pipe = os.pipe()
        flags = fcntl.fcntl(pipe, fcntl.F_GETFL)
        fcntl.fcntl(pipe, fcntl.F_SETFL, flags | os.O_NONBLOCK)
        try:
            while True:
                os.write(pipe, b"x" * 4096)
        except BlockingIOError:
            fcntl.fcntl(pipe, fcntl.F_SETFL, flags)
        self.process = subprocess.Popen(
            [MEDIAGRABBER, "run", "--plugin", FAKE_PLUGIN, "--config", str(root / "run.toml"), "--output", str(self.output)],
            stdout=pipe, stderr=pipe, env={**os.environ, "FAKE_PLUGIN_SCRIPT": script})
        os.close(pipe)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        os.close(self.unread)
        self.directory.cleanup()

    def frames(self):
        path = self.output / "frames.jsonl"
        return [json.loads(line) for line in path.read_text().splitlines()] if path.exists() else []

    def stop(self):
        """\\return the exit status"""
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(timeout=GRACE_SECONDS + 4)


class StopInTime(unittest.TestCase):
    def test_although_nobody_reads_the_captured_output(self):
        configuration = f'run.grace_time_s = {GRACE_SECONDS}\nring.socket = "DIRECTORY/ring"\n'
        with UnreadOutput(configuration) as recording:
            wait_for(lambda: len(recording.frames()) > 10, "frames")
            self.assertEqual(recording.stop(), SUCCESS)
            frames = recording.frames()
            self.assertEqual([frame["frame"] for frame in frames], list(range(1, len(frames) + 1)))
            self.assertTrue(all((recording.output / frame["file"]).exists() for frame in frames))


class StopOfBlockedPlugin(unittest.TestCase):
    def test_that_waits_for_a_reader_of_its_output(self):
        # Without viewers and control socket, nothing stands between the plug-in and its output.
        with UnreadOutput("run.grace_time_s = 0.5\ncontrol.socket = \"none\"\n") as recording:
            wait_for(lambda: recording.output.exists(), "the output directory")
            self.assertEqual(recording.stop(), CUT_SHORT)


class StopWithVisitors(unittest.TestCase):
    """The page's threads run, and end, only when the processor is idle otherwise."""

    def test_although_visitors_of_the_page_do_not_read(self):
        pathlib.Path("/proc/sys/net/ipv4/tcp_wmem").write_text("4096 16384 16384")  # an image does not fit into the socket
        configuration = f"run.grace_time_s = {GRACE_SECONDS}\n"
        script = "image 2000 1500 MONO8T; grab 50"
        with Recording(script, "--web", "127.0.0.1:0", configuration=configuration) as recording:
            recording.wait_for_log("live page: ")
            port = int(re.search(r"live page: http://127.0.0.1:(\d+)/", recording.log).group(1))
            recording.wait_for_frames(2)
            visitors = [self.visitor(port) for _ in range(30)]
            for visitor in visitors:
                self.assertNotEqual(visitor.recv(1), b"")
            begun = time.monotonic()
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertLess(time.monotonic() - begun, GRACE_SECONDS)
            for visitor in visitors:
                visitor.close()

    def visitor(self, port):
        """Requests an image and does not read it."""
        one = socket.socket()
        one.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
        one.settimeout(30)
        one.connect(("127.0.0.1", port))
        one.sendall(b"GET /frame.jpg HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
        return one


class FurtherSignals(unittest.TestCase):
    """Each write takes long, so that many frames, and no more than the export queue holds, wait when the stop comes."""

    def expect_all_frames(self, script, *statuses, configuration=""):
        troubles = HostTroubles()
        troubles.write_delay_us = 3_000
        patient = "run.grace_time_s = 86400\n"
        with Recording(script, configuration=patient + configuration, environment=troubles.environment) as recording:
            recording.wait_for_frames(5)
            wait_for(lambda: "hang\n" in recording.log or "(exit code -10)" in recording.log, "the plug-in's last frame")
            while recording.process.poll() is None:
                recording.signal(signal.SIGTERM)
                time.sleep(0.005)
            status = recording.finish()
            frames = recording.frame_index()
            self.assertEqual([frame["frame"] for frame in frames], list(range(1, len(frames) + 1)))
            if status != -signal.SIGTERM:  # once all frames are written, a further signal ends the process at once
                self.assertIn(status, statuses, recording.log)
                self.assertIn(f"{len(frames)} frames saved", recording.log)
                self.assertIn("dropped: 0 (queue full), 0 (write errors)", recording.log)
            return len(frames)

    def test_lose_no_waiting_frame_of_a_plugin_that_hangs(self):
        self.assertEqual(self.expect_all_frames("frames 80 0; hang", CUT_SHORT), 79)

    def test_lose_no_waiting_frame_of_a_plugin_that_has_ended(self):
        waiting = 'run.give_up_after = "never"\nrun.retry_interval_s = 86400\n'
        self.assertEqual(self.expect_all_frames("frames 80 0; exit -10", SUCCESS, CUT_SHORT, configuration=waiting), 79)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
