# SPDX-License-Identifier: MIT
"""A recording from a camera that gevctl has configured, as the service does it."""

import os
import pathlib
import subprocess
import tempfile
import unittest

from camera_process import FaultyCamera, feature, wait_for
from gevctl import CONTROLLED, DIFFERS, GEVCTL, gevctl
from recorder import Recording

CONFIGURATION = """
[image]
width = 640
height = 480
[run]
give_up_after = "never"
"""
TRIGGER = """
[TriggerSelector.FrameStart]
TriggerMode = "On"
TriggerSource = "Line1"
TriggerActivation = "RisingEdge"
"""
FRAMES = 5


class HardwareTrigger(unittest.TestCase):
    def test_is_recorded_frame_by_frame(self):
        with tempfile.TemporaryDirectory() as directory, FaultyCamera() as camera:
            path = pathlib.Path(directory) / "left.features.toml"
            path.write_text(TRIGGER)
            gevctl("apply", path)
            with Recording(CONFIGURATION, "--frames", FRAMES) as recording:
                wait_for(lambda: gevctl("diff", "127.0.0.1", path) == "" and self.is_locked(), "the acquisition")
                self.assertEqual(recording.frame_index() if (recording.output / "frames.jsonl").exists() else [], [])
                self.assertEqual(camera.frames_so_far(), [])
                triggers = 0

                def is_finished():
                    """Triggers. The camera ignores a trigger during an exposure."""
                    nonlocal triggers
                    triggers += 1
                    camera.request("line1 = true")
                    camera.request("line1 = false")
                    return recording.process.poll() is not None

                # More triggers than frames: the plug-in does not export the frames at the start of a run.
                wait_for(is_finished, "the recording")
                self.assertEqual(recording.finish(), 0, recording.log)
                self.assertEqual(len(recording.frame_index()), FRAMES)
                self.assertLessEqual(len(camera.frames_so_far()), triggers)
                print(f"{triggers} triggers, {len(camera.frames_so_far())} exposures, {FRAMES} recorded frames")
            self.assertEqual(feature("TriggerMode"), "On")

    def is_locked(self):
        return "locked" in gevctl("features", "127.0.0.1", "Width")


class WhileRecording(unittest.TestCase):
    def test_features_are_read_and_not_written(self):
        with FaultyCamera(), Recording(CONFIGURATION) as recording:
            wait_for(lambda: (recording.output / "frames.jsonl").exists() and recording.frame_index(), "a frame")
            self.assertEqual(gevctl("get", "127.0.0.1", "Width"), "Width=640\n")
            self.assertIn("is controlled by 127.0.0.1:", gevctl("set", "127.0.0.1", "Gain=2", status=CONTROLLED))
            self.assertEqual(recording.stop(), 0, recording.log)


class ServiceUnit(unittest.TestCase):
    """The command of ExecStartPre, with a directory in place of /etc/mediagrabber."""

    def command(self, directory):
        unit = pathlib.Path(__file__).parents[3] / "packaging" / "mediagrabber@.service"
        line, = (line for line in unit.read_text().splitlines() if line.startswith("ExecStartPre="))
        command = line.removeprefix("ExecStartPre=").replace("/etc/mediagrabber/%i", f"{directory}/left")
        return subprocess.run(command, shell=True, capture_output=True, text=True, timeout=60,
                              env=os.environ | {"PATH": f"{pathlib.Path(GEVCTL).parent}:/usr/bin:/bin"})

    def test_applies_the_file_of_the_instance_if_it_exists(self):
        with tempfile.TemporaryDirectory() as directory:
            self.assertEqual(self.command(directory).returncode, 0)
            path = pathlib.Path(directory) / "left.features.toml"
            with FaultyCamera("--serial", "S1"):
                path.write_text('camera = "S1"\n' + TRIGGER)
                done = self.command(directory)
                self.assertEqual(done.returncode, 0, done.stderr)
                self.assertEqual(feature("TriggerMode"), "On")
                path.write_text("ExposureTime = 1.0\n")
                self.assertEqual(self.command(directory).returncode, DIFFERS)


if __name__ == "__main__":
    unittest.main()
