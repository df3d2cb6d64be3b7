# SPDX-License-Identifier: MIT
"""A stream that a camera sends to a multicast group: a recording controls the camera, and other programs watch the stream.

Paths are in the environment variables GEVCTL and GRABBER, the example in examples/grabber.
"""

import json
import os
import subprocess
import sys
import tempfile
import unittest

from camera_process import Camera, run
from packet_capture import Capture
from recorder import Recording
from waiting import DEADLINE_SECONDS

GEVCTL, GRABBER = os.environ["GEVCTL"], os.environ["GRABBER"]
CAMERA = "127.0.0.1"
GROUP = "239.192.7.1"
FRAMES = 20
CONFIGURATION = """
[image]
width = 160
height = 120
format = "Mono8"
[timing]
frame_rate_hz = 20.0
clock_correction_ppb = 1  # timestamps of the camera's clock
[run]
give_up_after = "never"
retry_interval_s = 0.2
"""


def watch(frames=FRAMES):
    """Starts a program that watches the stream. \\return its process"""
    return subprocess.Popen([GRABBER, "watch", CAMERA, str(frames)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def checksum(pixels):
    """FNV-1a, as the example calculates it."""
    value = 2166136261
    for byte in pixels:
        value = (value ^ byte) * 16777619 & 0xFFFFFFFF
    return f"{value:08x}"


class Multicast(unittest.TestCase):
    def watched(self, watcher):
        """\\return what a watcher received: pairs of ticks and checksum"""
        output, errors = watcher.communicate(timeout=DEADLINE_SECONDS)
        self.assertEqual(watcher.returncode, 0, errors)
        return [(int(ticks), found) for ticks, _, _, found in (line.split() for line in output.splitlines())]

    def test_is_received_by_programs_that_write_no_register(self):
        directory = self.enterContext(tempfile.TemporaryDirectory())
        with Camera() as camera:
            run(GEVCTL, "set", CAMERA, f"GevSCDA={GROUP}")
            with Recording(CONFIGURATION) as recording:
                recording.wait_for_frames(3)
                with Capture(directory) as capture:
                    received = [self.watched(watcher) for watcher in [watch(), watch()]]
                    last = max(ticks for frames in received for ticks, _ in frames)
                    recording.wait_while_running(lambda: recording.frame_index()[-1]["ticks"] >= last, "the frames that were watched")
                    port = int(run(GEVCTL, "get", CAMERA, "GevSCPHostPort").split("=")[1])
                    controlling, = (str(camera["control"]["port"]) for camera in json.loads(run(GEVCTL, "list", "--json")))
                self.assertEqual(recording.stop(), 0, recording.log)
                saved = {line["ticks"]: line for line in recording.frame_index()}
                for frames in received:
                    self.assertEqual(len(frames), FRAMES)
                    self.assertEqual([found for _, found in frames], [checksum(recording.pixels(saved[ticks])) for ticks, _ in frames])
                status, report = recording.verify(camera.truth_path)
                self.assertEqual(status, 0, report)
        requests = capture.fields(port, "udp.dstport == 3956", "udp.srcport", "gvcp.cmd.command")
        writers = {source for source, command in requests if int(command, 0) in (0x0082, 0x0086)}  # WRITEREG, WRITEMEM
        readers = {source for source, command in requests if int(command, 0) in (0x0080, 0x0084)}  # READREG, READMEM
        self.assertLessEqual(writers, {controlling})
        self.assertGreaterEqual(len(readers - {controlling}), 2)  # the watchers
        destinations = {address for address, in capture.fields(port, f"udp.dstport == {port}", "ip.dst")}
        self.assertEqual(destinations, {GROUP})

    def refusal(self):
        """The error of a watcher that is refused."""
        watcher = watch()
        _, errors = watcher.communicate(timeout=DEADLINE_SECONDS)
        self.assertEqual(watcher.returncode, 1)
        return errors

    def test_is_needed_to_watch(self):
        with Camera(), Recording(CONFIGURATION) as recording:
            recording.wait_for_frames(3)
            self.assertIn("the camera does not send to a multicast group", self.refusal())
            frames = len(recording.frame_index())
            recording.wait_for_frames(frames + 3)
            self.assertEqual(recording.stop(), 0, recording.log)

    def test_is_closed_without_a_program_in_control(self):
        with Camera():
            run(GEVCTL, "set", CAMERA, f"GevSCDA={GROUP}")
            self.assertIn("the camera does not send to a multicast group", self.refusal())


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
