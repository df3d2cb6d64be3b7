"""`mediagrabber calibrate`: what it prints, and what it ends with when there is nothing to print."""

import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import unittest

from host_process import FAKE_PLUGIN, MEDIAGRABBER, command

USAGE, NO_CAMERA, RUN_FAILED, CUT_SHORT = 2, 3, 4, 5
FRAMES = "real_time; grab 5"


class Calibrate(unittest.TestCase):
    def calibrate(self, script, *arguments, interrupt=None):
        process = subprocess.Popen([MEDIAGRABBER, "--plugin", FAKE_PLUGIN, "calibrate", *map(str, arguments)],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                   env={**os.environ, "FAKE_PLUGIN_SCRIPT": script})
        output = ""
        if interrupt:
            for output in process.stdout:
                if output.startswith(interrupt):
                    break
            process.send_signal(signal.SIGTERM)
        rest, complaints = process.communicate(timeout=60)
        return subprocess.CompletedProcess(process.args, process.returncode, rest, complaints)

    def test_prints_a_line_that_a_configuration_takes(self):
        done = self.calibrate(FRAMES, "--seconds", 2)
        self.assertEqual(done.returncode, 0, done.stderr)
        result = "".join(re.findall(r"(?m)^(?:#|timing).*\n", done.stdout))
        self.assertRegex(result, r"\A# \d+ frames in 2\.\d s; .*; 100000 ticks a second\n"
                                 r"# uncertainty \d+ ns/s \(95 %\)\ntiming\.clock_correction = -?\d+\n\Z")
        correction, uncertainty = (int(re.search(pattern, result)[1]) for pattern in (r"= (-?\d+)", r"uncertainty (\d+)"))
        self.assertAlmostEqual(correction, 0, delta=3 * uncertainty)
        with tempfile.TemporaryDirectory() as directory:
            file = pathlib.Path(directory) / "run.toml"
            file.write_text(result)
            checked = command("check", file)
            self.assertEqual(checked.returncode, 0, checked.stderr)
            self.assertIn(f"{file}:3:", checked.stdout)

    def test_without_a_camera_or_with_a_plugin_that_fails_says_so(self):
        for code, status in ((2, NO_CAMERA), (3, NO_CAMERA), (-5, RUN_FAILED), (-10, RUN_FAILED)):
            done = self.calibrate(f"exit {code}")
            self.assertEqual(done.returncode, status)
            self.assertIn(f"(exit code {code})", done.stderr)
            self.assertNotIn("timing", done.stdout)

    def test_of_too_few_frames_is_refused(self):
        done = self.calibrate("frames 20 1")
        self.assertEqual(done.returncode, RUN_FAILED)
        self.assertIn("too few", done.stderr)
        done = self.calibrate("exit 0")
        self.assertEqual(done.returncode, RUN_FAILED)
        self.assertIn("no frame came with a timestamp of the camera", done.stderr)

    def test_of_a_clock_that_no_camera_has_is_refused(self):
        done = self.calibrate("grab 1", "--seconds", 1)
        self.assertEqual(done.returncode, RUN_FAILED)
        self.assertIn("is the camera's tick frequency 100000?", done.stderr)

    def test_can_be_ended(self):
        done = self.calibrate("hang", "--config", self.configuration("run.grace_time_s = 0.2"), interrupt="hang")
        self.assertEqual(done.returncode, CUT_SHORT, done.stderr)
        done = self.calibrate("frames 30 1; idle", "--config", self.configuration("run.grace_time_s = 0.2"), interrupt="idle")
        self.assertEqual(done.returncode, CUT_SHORT, done.stderr)

    def test_refuses_what_it_cant_use(self):
        self.assertEqual(self.calibrate(FRAMES, "--seconds", 0).returncode, USAGE)
        self.assertEqual(self.calibrate(FRAMES, "--tick-frequency", "x").returncode, USAGE)
        done = self.calibrate(FRAMES, "--config", self.configuration("image.width = 0"))
        self.assertEqual(done.returncode, USAGE)
        self.assertIn("image.width: 0 is refused", done.stderr)

    def configuration(self, text):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        file = pathlib.Path(directory.name) / "run.toml"
        file.write_text(text)
        return file


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
