# SPDX-License-Identifier: MIT
"""A signal ends a command after it has restored selectors and released control."""

import pathlib
import signal
import subprocess
import tempfile
import unittest

from camera_process import Camera, feature, wait_for
from gevctl import GEVCTL, gevctl, gevctl_json
from gvcp import Application, feature_addresses

SLOW = ("--write-time", "100")  # ms: a signal finds the command at work
SETTINGS = """
Width = 640
[GainSelector.DigitalAll]
Gain = 2.0
[TriggerSelector.FrameStart]
TriggerMode = "On"
TriggerSource = "Line1"
TriggerActivation = "FallingEdge"
"""


def start(*arguments):
    return subprocess.Popen([GEVCTL, *map(str, arguments)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


class Signal(unittest.TestCase):
    def assert_released(self):
        self.assertIsNone(gevctl_json("list")[0]["control"])
        self.assertEqual(feature("GainSelector"), "AnalogAll")

    def wait_for_other_gain(self, camera, process):
        """Waits until the command has changed the selector of the gain."""
        address = feature_addresses(camera.description())["GainSelector"]
        with Application() as reader:
            initial = reader.read(address)
            wait_for(lambda: reader.read(address) != initial, "the selector")
        self.assertIsNone(process.poll())

    def test_leaves_an_account_of_apply(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number), tempfile.TemporaryDirectory() as directory, Camera(*SLOW) as camera:
                path = pathlib.Path(directory) / "camera.toml"
                path.write_text(SETTINGS)
                with start("apply", "127.0.0.1", path) as apply:
                    self.wait_for_other_gain(camera, apply)
                    apply.send_signal(number)
                    out, errors = apply.communicate(timeout=20)
                self.assertEqual(apply.returncode, -number)
                self.assertIn("Width: written, not read back\n", out)
                self.assertIn("TriggerActivation[TriggerSelector=FrameStart]: not applied\n", out)
                self.assertIn("ended by a signal", errors)
                self.assert_released()
                self.assertIn("0 differ\n", gevctl("apply", "127.0.0.1", path))

    def test_restores_selectors_of_dump(self):
        with Camera(*SLOW) as camera, start("dump", "127.0.0.1") as dump:
            self.wait_for_other_gain(camera, dump)
            dump.terminate()
            out, errors = dump.communicate(timeout=20)
            self.assertEqual((dump.returncode, out), (-signal.SIGTERM, ""))
            self.assert_released()

    def test_releases_control_of_clock(self):
        command = ("clock", "127.0.0.1", "--watch", "--seconds", "0.1")
        with Camera("--timestamp", "latched"):
            with start(*command) as clock:
                clock.stdout.readline()
                clock.send_signal(signal.SIGINT)
                self.assertEqual(clock.wait(timeout=20), -signal.SIGINT)
            self.assert_released()
            with start(*command) as clock:
                clock.stdout.readline()
                clock.stdout.close()
                self.assertEqual(clock.wait(timeout=20), -signal.SIGPIPE)
                self.assertEqual(clock.stderr.read(), "")
            self.assert_released()

    def test_ends_a_loop_with_a_closed_output_if_the_signal_is_ignored(self):
        command = f"trap '' PIPE; {GEVCTL} clock 127.0.0.1 --watch --seconds 0.1 | head -n 1; echo ${{PIPESTATUS[0]}}"
        with Camera("--timestamp", "latched"):
            done = subprocess.run(["bash", "-c", command], capture_output=True, text=True, timeout=20)
            self.assertEqual(done.stdout.splitlines()[1:], ["8"])
            self.assertIn("the output cannot be written", done.stderr)
            self.assert_released()


if __name__ == "__main__":
    unittest.main()
