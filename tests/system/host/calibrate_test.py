# SPDX-License-Identifier: MIT
"""`mediagrabber calibrate`: its output, and its exit status without a result."""

import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from host_process import FAKE_PLUGIN, MEDIAGRABBER, command

USAGE, NO_CAMERA, RUN_FAILED, CUT_SHORT = 2, 3, 4, 5
FRAMES = "real_time; grab 5"


class Calibrate(unittest.TestCase):
    def calibrate(self, script, *arguments, interrupt=None):
        """Runs `mediagrabber calibrate`. With `interrupt` it gets SIGTERM after an output line that begins with this text."""
        process = subprocess.Popen([MEDIAGRABBER, "--plugin", FAKE_PLUGIN, "calibrate", *map(str, arguments)],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                   env={**os.environ, "FAKE_PLUGIN_SCRIPT": script})
        output = ""
        if interrupt:
            for output in process.stdout:
                if output.startswith(interrupt):
                    break
            process.send_signal(signal.SIGTERM)
        remaining, errors = process.communicate(timeout=60)
        return subprocess.CompletedProcess(process.args, process.returncode, remaining, errors)

    def test_prints_a_valid_configuration_line(self):
        begin = time.monotonic()
        done = self.calibrate(FRAMES, "--seconds", 2)
        elapsed = time.monotonic() - begin
        self.assertEqual(done.returncode, 0, done.stderr)
        result = "".join(re.findall(r"(?m)^(?:#|timing).*\n", done.stdout))
        self.assertRegex(result, r"\A# \d+ frames in \d+\.\d s; .*; 100000 ticks per second\n"
                                 r"# uncertainty \d+ ns/s \(95 %\)\ntiming\.clock_correction_ppb = -?\d+\n\Z")
        measured = float(re.search(r"frames in (\S+) s", result)[1])
        self.assertTrue(2 <= measured <= elapsed + 0.05, f"{measured} s of {elapsed} s")  # printed with one decimal
        correction, uncertainty = (int(re.search(pattern, result)[1]) for pattern in (r"= (-?\d+)", r"uncertainty (\d+)"))
        self.assertAlmostEqual(correction, 0, delta=3 * uncertainty)
        with tempfile.TemporaryDirectory() as directory:
            file = pathlib.Path(directory) / "run.toml"
            file.write_text(result)
            checked = command("check", file)
            self.assertEqual(checked.returncode, 0, checked.stderr)
            self.assertIn(f"{file}:3:", checked.stdout)

    def test_without_a_camera_or_with_a_failing_plugin_reports_the_exit_code(self):
        for code, status in ((2, NO_CAMERA), (3, NO_CAMERA), (-5, RUN_FAILED), (-10, RUN_FAILED)):
            done = self.calibrate(f"exit {code}")
            self.assertEqual(done.returncode, status)
            self.assertIn(f"(exit code {code})", done.stderr)
            self.assertNotIn("timing", done.stdout)

    def test_with_too_few_frames_fails(self):
        done = self.calibrate("frames 20 1")
        self.assertEqual(done.returncode, RUN_FAILED)
        self.assertIn("too few", done.stderr)
        done = self.calibrate("exit 0")
        self.assertEqual(done.returncode, RUN_FAILED)
        self.assertIn("no frame had a camera timestamp", done.stderr)

    def test_with_an_implausible_clock_fails(self):
        done = self.calibrate(FRAMES, "--seconds", 3, "--tick-frequency", 200_000)
        self.assertEqual(done.returncode, RUN_FAILED, done.stdout)
        self.assertIn("is the camera's tick frequency 200000 Hz?", done.stderr)

    def test_can_be_stopped(self):
        done = self.calibrate("hang", "--config", self.configuration("run.grace_time_s = 0.2"), interrupt="hang")
        self.assertEqual(done.returncode, CUT_SHORT, done.stderr)
        done = self.calibrate("frames 30 1; idle", "--config", self.configuration("run.grace_time_s = 0.2"), interrupt="idle")
        self.assertEqual(done.returncode, CUT_SHORT, done.stderr)

    def test_refuses_invalid_arguments(self):
        self.assertEqual(self.calibrate(FRAMES, "--seconds", 0).returncode, USAGE)
        self.assertEqual(self.calibrate(FRAMES, "--tick-frequency", "x").returncode, USAGE)
        done = self.calibrate(FRAMES, "--config", self.configuration("image.width = 0"))
        self.assertEqual(done.returncode, USAGE)
        self.assertIn("image.width: 0 is not valid", done.stderr)

    def configuration(self, text):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        file = pathlib.Path(directory.name) / "run.toml"
        file.write_text(text)
        return file


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
