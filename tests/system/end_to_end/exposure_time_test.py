# SPDX-License-Identifier: MIT
"""The exposure times of frames, compared with those in the truth file of a camera whose clock is 40 ppm fast."""

import os
import pathlib
import re
import statistics
import subprocess
import tempfile
import unittest
import unittest.mock

from camera_process import Camera
from gevctl import gevctl
from recorder import Recording, wait_for_truth

RATE = 30.0
FRAMES = 600
CONFIGURATION = f"""
[image]
width = 640
height = 480
[transport]
packet_size_bytes = 1400
[timing]
frame_rate_hz = {RATE}
{{more}}
[memory]
export_buffers = 100
[output]
format = "none"
"""
LOSES_FRAMES = """
[[fault]]
kind = "block_drop"
probability = 0.02
"""
CAMERA = ("--clock-drift-ppm", "40", "--timestamp", "running")
SETTLED = 10 * RATE  # frames
MANUAL = pathlib.Path(__file__).parents[3] / "docs/manual/gevctl.md"


class Frame:
    def __init__(self, line, truth):
        self.number, self.source, self.uncertainty = line["frame"], line["time_source"], line["time_uncertainty_us"]
        self.drift = line["clock_drift_ppm"]
        self.error = line["time_us"] - truth["exposure_start_us"]
        self.time = truth["exposure_start_us"]


def recorded(test, camera_options=CAMERA, more=lambda: "", frames=FRAMES, meanwhile=lambda recording: None):
    """Records with 2 % of the frames lost. \\return the frames in the truth file that were saved"""
    with tempfile.TemporaryDirectory() as directory:
        faults = pathlib.Path(directory) / "faults.toml"
        faults.write_text(LOSES_FRAMES)
        with Camera(*camera_options, "--faults", faults) as camera:
            with Recording(CONFIGURATION.format(more=more()), "--frames", frames) as recording:
                meanwhile(recording)
                test.assertEqual(recording.finish(), 0, recording.log)
                wait_for_truth(recording.output, camera.truth_path)
                truth = {one["ticks"]: one for one in camera.frames_so_far()}
                return [Frame(line, truth[line["ticks"]]) for line in recording.frame_index()]


def coverage(frames, constant):
    return sum(abs(one.error - constant) <= one.uncertainty for one in frames) / len(frames)


class ExposureTimes(unittest.TestCase):
    def test_are_known_about_the_constant_delay(self):
        frames = recorded(self)
        settled = [one for one in frames if one.number > SETTLED]
        constant = statistics.median(one.error for one in settled)
        spread = max(abs(one.error - constant) for one in settled)
        print(f"delay {constant} us, greatest error about it {spread:.0f} us, stated {settled[-1].uncertainty} us, {settled[-1].drift} ppm")
        self.assertEqual({one.source for one in frames}, {"arrivals"})
        self.assertGreaterEqual(coverage(settled, constant), 0.95)
        self.assertGreater(constant, 0)
        self.assertLess(settled[-1].uncertainty, 5000)
        self.assertLess(abs(settled[-1].drift - 40), 20)

    def test_have_true_intervals_across_lost_frames(self):
        frames = recorded(self)
        gaps = [abs(after.error - before.error) for before, after in zip(frames, frames[1:])
                if before.number > SETTLED and after.time - before.time > 1.5e6 / RATE]
        print(f"{len(gaps)} gaps, errors {gaps}")
        self.assertTrue(gaps)
        self.assertLess(statistics.median(gaps), 50)

    def test_are_absolute_with_a_reference(self):
        frames = recorded(self, more=lambda: gevctl("clock", "127.0.0.1", "--seconds", "1", "--reference").replace("timing.", ""))
        settled = [one for one in frames if one.number > SETTLED]
        print(f"errors {settled[0].error} to {settled[-1].error} us, stated {settled[-1].uncertainty} us")
        self.assertEqual({one.source for one in settled}, {"reference"})
        self.assertGreaterEqual(coverage(settled, 0), 0.95)

    def test_become_absolute_with_the_loop_of_the_manual(self):
        def measure(recording):
            recording.wait_for_frames(SETTLED)
            socket = re.search(r"control socket for `mediagrabber set`: (\S+)", recording.log)[1]
            loop = re.search(r"^    gevctl clock .*?^    done$", MANUAL.read_text(), re.MULTILINE | re.DOTALL)[0]
            programs = f"""gevctl() {{ "$GEVCTL" "$@"; }}\nmediagrabber() {{ "$MEDIAGRABBER" "$1" --socket "{socket}" "${{@:2}}"; }}\n"""
            done = subprocess.run(["bash", "-e", "-o", "pipefail", "-c", programs + loop.replace("--watch --seconds 60", "--seconds 1")],
                                  capture_output=True, text=True, timeout=60)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

        with tempfile.TemporaryDirectory() as runtime, unittest.mock.patch.dict(os.environ, XDG_RUNTIME_DIR=runtime):
            frames = recorded(self, meanwhile=measure)
        referenced = [one for one in frames if one.source == "reference"]
        self.assertEqual(frames[0].source, "arrivals")
        self.assertGreater(len(referenced), RATE)
        self.assertGreaterEqual(coverage(referenced, 0), 0.95)


class ExposureTimesOfPtp(unittest.TestCase):
    def test_are_the_cameras(self):
        frames = recorded(self, camera_options=("--ptp", "--timestamp", "running"), frames=60,
                          more=lambda: gevctl("set", "127.0.0.1", "PtpEnable=true") and "")
        self.assertEqual({one.source for one in frames}, {"ptp"})
        # The truth file converts between the two clocks of this machine.
        self.assertLess(max(abs(one.error) for one in frames), 1000)
        self.assertGreaterEqual(coverage(frames, 0), 0.95)


if __name__ == "__main__":
    unittest.main(verbosity=2)
