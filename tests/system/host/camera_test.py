"""mediagrabber with this project's plug-in and the simulated camera, where the camera itself can say what has reached it."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

from camera_process import Camera, arv_control, wait_for
from host_process import MEDIAGRABBER, Recording

MGJAI = os.environ["MGJAI"]
REGION = "[image]\nwidth = 320\nheight = 240\n[timing]\nframe_rate = 100\n"
SUCCESS, NOT_TAKEN = 0, 9


def feature(name):
    """A value that the camera itself has."""
    return arv_control(name)[0].split(" = ")[1].split(" ")[0]  # the limits follow


class GrabbingHost:
    """A camera and a recording that grabs from it."""

    def __init__(self, configuration):
        self.camera = Camera()
        self.directory = tempfile.TemporaryDirectory()
        self.socket = pathlib.Path(self.directory.name) / "control"
        self.recording = Recording("", configuration=f"control.socket = \"{self.socket}\"\n" + configuration, plugin=MGJAI)

    def __enter__(self):
        self.camera.__enter__()
        self.recording.__enter__()
        self.recording.wait_for_frames(5)
        return self

    def __exit__(self, *exception):
        self.recording.__exit__(*exception)
        self.camera.lost = True  # its application has just been killed
        self.camera.__exit__(*exception)
        self.directory.cleanup()

    def set(self, *settings):
        return subprocess.run([MEDIAGRABBER, "set", "--socket", self.socket, *settings], capture_output=True, text=True,
                              timeout=60)


class SetOnACamera(unittest.TestCase):
    def test_reaches_it_before_the_answer_comes(self):
        with GrabbingHost(REGION + "[gain]\nmode = \"manual\"\n[exposure]\nmode = \"manual\"\n") as host:
            done = host.set("gain.db=6", "exposure.time_us=2000")
            self.assertEqual(done.returncode, SUCCESS, done.stdout + done.stderr)
            self.assertRegex(done.stdout, r"\Again\.db = (6|5\.9\d*|6\.0\d*)\nexposure\.time_us = 2000\n\Z")
            self.assertAlmostEqual(float(feature("Gain")), 1.995, delta=0.01)
            self.assertEqual(float(feature("ExposureTime")), 2000)
            done = host.set("timing.frame_rate=50")
            self.assertEqual((done.returncode, done.stdout), (SUCCESS, "timing.frame_rate = 50\n"), done.stderr)
            self.assertEqual(float(feature("AcquisitionFrameRate")), 50)
            wait_for(lambda: host.recording.journal()[-1]["exposure_us"] == 2000, "a frame with it")

    def test_that_it_refuses_is_told_with_what_it_has(self):
        with GrabbingHost(REGION + "[gain]\nmode = \"manual\"\ndb = 3\n") as host:
            before = feature("Gain")
            done = host.set("gain.db=50")
            self.assertEqual(done.returncode, NOT_TAKEN, done.stdout + done.stderr)
            self.assertRegex(done.stderr, r"gain\.db: asked for 50, the camera has (3|2\.99\d*|3\.00\d*)\n")
            self.assertEqual(feature("Gain"), before)


class TableOnACamera(unittest.TestCase):
    def test_from_a_file_is_in_force_and_follows_the_file(self):
        with tempfile.TemporaryDirectory() as directory:
            table = pathlib.Path(directory) / "table.csv"
            table.write_text("".join(f"{i / 255}\n" for i in range(256)))
            tone = f"[tone]\nenable = true\nlut = \"{table}\"\n"
            with GrabbingHost(REGION + tone) as host:
                self.assertEqual(feature("JAILUTMode"), "LUT")
                self.assertEqual(int(feature("LUTValue")), 4095)  # of the last index that was written
                table.write_text("".join(f"{1 - i / 255}\n" for i in range(256)))
                host.recording.signal(1)
                host.recording.wait_for_log("reload: changed tone.lut\n")
                wait_for(lambda: int(feature("LUTValue")) == 0 and int(feature("LUTIndex")) == 255, "the other table")
                done = host.set("tone.enable=false")
                self.assertEqual(done.returncode, SUCCESS, done.stderr)


class CalibrateACamera(unittest.TestCase):
    """A measurement of ten seconds. Its uncertainty holds in 95 cases of 100; three times that holds in all."""

    def calibrate(self, *camera):
        with tempfile.TemporaryDirectory() as directory, Camera(*camera):
            file = pathlib.Path(directory) / "run.toml"
            file.write_text(REGION)
            done = subprocess.run([MEDIAGRABBER, "--plugin", MGJAI, "calibrate", "--config", file, "--seconds", "10"],
                                  capture_output=True, text=True, timeout=120)
        self.assertEqual(done.returncode, SUCCESS, done.stderr)
        frequency = float(re.search(r"; ([0-9.]+) ticks a second", done.stdout)[1])
        uncertainty = int(re.search(r"uncertainty (\d+) ns/s", done.stdout)[1])
        correction = int(re.search(r"(?m)^timing\.clock_correction = (-?\d+)$", done.stdout)[1])
        return frequency, correction, uncertainty

    def test_recovers_the_drift_of_its_clock(self):
        frequency, correction, uncertainty = self.calibrate("--clock-drift-ppm", "300", "--tick-frequency", "125000000")
        self.assertEqual(frequency, 125_000_000)
        self.assertAlmostEqual(correction, -300_000, delta=3 * uncertainty)
        self.assertLess(3 * uncertainty, 300_000)


class CalibrateOverABadNetwork(CalibrateACamera):
    def test_recovers_the_drift_of_its_clock(self):
        # Delays of 5 +- 5 ms are exponential: the worst of them spoil a mean, not a minimum.
        frequency, correction, uncertainty = self.calibrate("--clock-drift-ppm", "-300", "--network-delay", "5:5")
        self.assertEqual(frequency, 1_000_000_000)
        self.assertAlmostEqual(correction, 300_000, delta=3 * uncertainty)
        self.assertLess(3 * uncertainty, 300_000)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
