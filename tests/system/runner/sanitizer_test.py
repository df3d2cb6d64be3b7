# SPDX-License-Identifier: MIT
"""A sanitizer report in a process fails the test, with each helper that starts processes and also if the test expects a failure.

A program with deliberate errors replaces each program of this project. Its path is in the environment variable
SANITIZER_FAULT_PROGRAM, the sanitizers of this build are in SANITIZE.
"""

import os
import subprocess
import sys
import unittest

import run_test
import sitecustomize
from run_test import SANITIZER_STATUS

# The runners that this test starts end with 99 as they should; only what they start is watched.
subprocess.Popen = sitecustomize.UnwatchedPopen

PROGRAM = os.environ["SANITIZER_FAULT_PROGRAM"]
SANITIZE = os.environ["SANITIZE"].split(",")
FAULTS = {
    "address": ("leak", "heap_overflow"),
    "undefined": ("integer_overflow",),
    "float-cast-overflow": ("float_cast_overflow",),
    "float-divide-by-zero": ("float_divide_by_zero",),
    "thread": ("race",),
}

# Test scripts that pass regardless of the exit status, unless run_test.py fails them.
HELPERS = {
    "RecordingProcess": """
from recording_process import RecordingProcess
with RecordingProcess("plugin.so", "", ()) as process:
    process.finish()
""",
    "Recording with the plug-in": """
from recorder import Recording
with Recording("") as recording:
    recording.finish()
""",
    "Recording with the scripted plug-in": """
from host_process import Recording
with Recording("grab") as recording:
    recording.finish()
""",
    "host_process.command": """
from host_process import command
assert command("check").returncode != 0
""",
    "verify_directory": """
from recorder import verify_directory
assert verify_directory("frames", "truth")[0] != 0
""",
    "Camera": """
from camera_process import Camera
try:
    with Camera() as camera:
        camera.process.wait()
        camera.truth_path.write_text("{}")
except AssertionError:
    pass
""",
    "camera_process.run": """
from camera_process import PROBE, run
try:
    run(PROBE)
except AssertionError:
    pass
""",
    "host troubles": """
from host_troubles import HostTroubles
from recorder import Recording
troubles = HostTroubles()
with Recording("", environment=troubles.environment) as recording:
    recording.finish()
""",
    "subprocess": """
import os, subprocess
assert subprocess.run([os.environ["MEDIAGRABBER"]]).returncode != 0
""",
}

# The program is killed before it exits, so only the report is left.
KILLED = """
import os
from camera_process import Camera
os.environ["SANITIZER_FAULT_PAUSE"] = "1"
with Camera() as camera:
    assert "done" in camera.process.stdout.readline()
    camera.lose()
    camera.truth_path.write_text("{}")
"""


def run_script(script, fault):
    """Runs a test script in which each program of this project makes `fault`. \\return the finished process"""
    programs = ("CAMSIM", "CAMSIM_STREAM_PROBE", "MEDIAGRABBER", "VERIFY_RECORDING")
    environment = {**os.environ, **dict.fromkeys(programs, PROGRAM), "SANITIZER_FAULT": fault}
    return subprocess.run([sys.executable, run_test.__file__, sys.executable, "-c", script], env=environment,
                          capture_output=True, text=True, timeout=60)


class SanitizerReports(unittest.TestCase):
    def test_are_noticed_by_each_helper(self):
        faults = [fault for sanitizer in SANITIZE for fault in FAULTS[sanitizer]]
        for helper, script in HELPERS.items():
            for fault in faults:
                with self.subTest(helper, fault=fault):
                    done = run_script(script, fault)
                    self.assertEqual(done.returncode, SANITIZER_STATUS, done.stdout + done.stderr)

    def test_scripts_pass_without_an_error(self):
        for helper, script in HELPERS.items():
            with self.subTest(helper):
                done = run_script(script, "none")
                self.assertEqual(done.returncode, 0, done.stdout + done.stderr)


if "thread" in SANITIZE:  # errors that other sanitizers report end the program
    class ReportBeforeKill(unittest.TestCase):
        def test_is_noticed(self):
            self.assertEqual(run_script(KILLED, "none").returncode, 0)
            done = run_script(KILLED, "race")
            self.assertEqual(done.returncode, SANITIZER_STATUS, done.stdout + done.stderr)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
