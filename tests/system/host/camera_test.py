# SPDX-License-Identifier: MIT
"""mediagrabber with libmgjai.so and camsim, for tests that check values in the camera."""

import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import unittest

from camera_process import Camera, feature
from host_process import MEDIAGRABBER, Recording
from waiting import wait_for
from web_client import get

MGJAI = os.environ["MGJAI"]
REGION = "[image]\nwidth = 320\nheight = 240\n[timing]\nframe_rate_hz = 100\n"
SUCCESS, NOT_TAKEN = 0, 9


class CameraRecording:
    """A camera and a recording from it, with a control socket."""

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
        self.camera.lost = True  # the application that controlled it has been killed
        self.camera.__exit__(*exception)
        self.directory.cleanup()

    def set(self, *settings):
        return subprocess.run([MEDIAGRABBER, "set", "--socket", self.socket, *settings], capture_output=True, text=True,
                              timeout=60)


class SetWithCamera(unittest.TestCase):
    def test_answers_after_the_camera_has_the_values(self):
        with CameraRecording(REGION + "[gain]\nauto = \"Off\"\n[exposure]\nauto = \"Off\"\n") as host:
            done = host.set("gain.db=6", "exposure.time_us=2000")
            self.assertEqual(done.returncode, SUCCESS, done.stdout + done.stderr)
            self.assertRegex(done.stdout, r"\Again\.db = (6|5\.9\d*|6\.0\d*)\nexposure\.time_us = 2000\n\Z")
            self.assertAlmostEqual(float(feature("Gain")), 1.995, delta=0.01)
            self.assertEqual(float(feature("ExposureTime")), 2000)
            done = host.set("timing.frame_rate_hz=50")
            self.assertEqual((done.returncode, done.stdout), (SUCCESS, "timing.frame_rate_hz = 50\n"), done.stderr)
            self.assertEqual(float(feature("AcquisitionFrameRate")), 50)
            wait_for(lambda: host.recording.frame_index()[-1]["exposure_us"] == 2000, "a frame with it")

    def test_reports_the_camera_value_if_the_camera_refuses(self):
        with CameraRecording(REGION + "[gain]\nauto = \"Off\"\ndb = 3\n") as host:
            before = feature("Gain")
            done = host.set("gain.db=50")
            self.assertEqual(done.returncode, NOT_TAKEN, done.stdout + done.stderr)
            self.assertRegex(done.stderr, r"gain\.db: requested 50, but the camera has (3|2\.99\d*|3\.00\d*)\n")
            self.assertEqual(feature("Gain"), before)


class LutWithCamera(unittest.TestCase):
    def test_from_a_file_is_active_and_is_updated_by_a_reload(self):
        with tempfile.TemporaryDirectory() as directory:
            table = pathlib.Path(directory) / "table.csv"
            table.write_text("".join(f"{i / 255}\n" for i in range(256)))
            tone = f"[tone]\nenable = true\nlut = \"{table}\"\n"
            with CameraRecording(REGION + tone) as host:
                self.assertEqual(feature("JAILUTMode"), "LUT")
                self.assertEqual(int(feature("LUTValue")), 4095)  # at the last index written
                table.write_text("".join(f"{1 - i / 255}\n" for i in range(256)))
                host.recording.signal(1)
                host.recording.wait_for_log("reload: changed tone.lut\n")
                wait_for(lambda: int(feature("LUTValue")) == 0 and int(feature("LUTIndex")) == 255, "the new LUT")
                done = host.set("tone.enable=false")
                self.assertEqual(done.returncode, SUCCESS, done.stderr)


class ToneWithCamera(unittest.TestCase):
    """What the page and the log report of the tone is what the camera does."""

    PAGE = "[web]\naddress = \"127.0.0.1:0\"\n[gain]\nauto = \"Off\"\n[log]\nlevel = \"info\"\n"

    def setUp(self):
        directory = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.table = directory / "table.csv"
        self.table.write_text("".join(f"{1 - i / 255}\n" for i in range(256)))

    def tone(self, **values):
        keys = "".join(f"{key} = {value if key == 'gamma' else repr(value)}\n" for key, value in values.items())
        return REGION + self.PAGE + "[tone]\nenable = true\n" + keys

    def record(self, **values):
        return self.enterContext(CameraRecording(self.tone(**values)))

    def shown(self, host):
        host.recording.wait_for_log("live page: ")
        port = int(re.search(r"live page: http://[^/]*:(\d+)", host.recording.log).group(1))
        return json.loads(get(port, "/status.json")[1])["tone"]["kind"]

    def expect(self, host, mode, kind):
        wait_for(lambda: feature("JAILUTMode") == mode, f"JAILUTMode {mode}")
        wait_for(lambda: self.shown(host) == kind, f"the page to show {kind}")

    def set(self, host, *settings):
        done = host.set(*settings)
        self.assertEqual(done.returncode, SUCCESS, done.stdout + done.stderr)

    def calculate(self, host, request=signal.SIGUSR1):
        message = "continue operation with new LUT (dynamically calculated)..."
        before = host.recording.log.count(message)
        host.recording.signal(request)
        host.recording.wait_for_log(message, before + 1)
        self.expect(host, "LUT", "calculated")

    def test_a_change_does_not_replace_a_table_by_the_configured_gamma(self):
        host = self.record(lut=str(self.table), gamma=0.6)
        self.assertIn("tone.gamma has no effect: it requires a configuration without tone.lut", host.recording.log)
        self.expect(host, "LUT", "table")
        self.set(host, "gain.db=3")
        self.assertEqual((feature("JAILUTMode"), self.shown(host)), ("LUT", "table"))
        self.assertEqual((int(feature("LUTIndex")), int(feature("LUTValue"))), (255, 0))
        self.assertIn("tone.gamma has no effect", host.set("tone.gamma=0.7").stderr)

    def test_a_calculated_table_that_a_change_drops_is_reported(self):
        host = self.record(gamma=0.6)
        self.expect(host, "Gamma", "gamma")
        for times, request in enumerate((signal.SIGUSR1, signal.SIGUSR2), 1):
            self.calculate(host, request)
            self.set(host, f"gain.db={times}")
            self.expect(host, "Gamma", "gamma")
            host.recording.wait_for_log("the calculated LUT was dropped: the configured gamma replaces it\n", times)

    def test_a_calculated_table_stays_if_no_tone_is_configured(self):
        host = self.record()
        self.calculate(host)
        self.set(host, "gain.db=3")
        self.assertEqual((feature("JAILUTMode"), self.shown(host)), ("LUT", "calculated"))
        self.assertNotIn("was dropped", host.recording.log)

    def test_a_table_can_be_left_while_recording(self):
        host = self.record(lut=str(self.table))
        self.expect(host, "LUT", "table")
        self.set(host, "tone.lut=none")
        self.assertEqual((feature("JAILUTMode"), self.shown(host)), ("Off", "none"))
        self.calculate(host)
        self.set(host, "tone.lut=none")
        self.assertEqual((feature("JAILUTMode"), self.shown(host)), ("Off", "none"))
        host.recording.wait_for_log("the calculated LUT was dropped: the camera has no tone curve now\n")

    def test_a_table_can_be_left_by_a_reload_for_a_gamma(self):
        host = self.record(lut=str(self.table))
        self.expect(host, "LUT", "table")
        control = f"control.socket = \"{host.socket}\"\n"
        host.recording.configure(control + self.tone(gamma=0.45))
        host.recording.signal(signal.SIGHUP)
        self.expect(host, "Gamma", "gamma")
        self.assertEqual(feature("JAIGamma"), "Gamma045")

    def test_a_table_of_an_earlier_recording_can_be_left(self):
        with Camera() as camera:
            for tone, mode in (({"lut": str(self.table)}, "LUT"), ({}, "LUT"), ({"lut": "none"}, "Off")):
                with Recording("", configuration=self.tone(**tone), plugin=MGJAI) as recording:
                    recording.wait_for_frames(5)
                    wait_for(lambda: feature("JAILUTMode") == mode, f"JAILUTMode {mode}")
                    recording.signal(signal.SIGTERM)
                    self.assertEqual(recording.finish(), SUCCESS, recording.log)


class CalibrateWithCamera(unittest.TestCase):
    """The reported uncertainty is the 95 % interval and is bounded. The result may differ by three times as much, so that the
    tests do not fail at random."""

    SECONDS = 30
    MAX_UNCERTAINTY_PPB = 5_000

    def calibrate(self, *camera):
        with tempfile.TemporaryDirectory() as directory, Camera(*camera):
            file = pathlib.Path(directory) / "run.toml"
            file.write_text(REGION)
            done = subprocess.run([MEDIAGRABBER, "--plugin", MGJAI, "calibrate", "--config", file, "--seconds", str(self.SECONDS)],
                                  capture_output=True, text=True, timeout=180)
        self.assertEqual(done.returncode, SUCCESS, done.stderr)
        print(done.stdout, flush=True)
        frequency = float(re.search(r"; ([0-9.]+) ticks per second", done.stdout)[1])
        uncertainty = int(re.search(r"uncertainty (\d+) ns/s", done.stdout)[1])
        correction = int(re.search(r"(?m)^timing\.clock_correction_ppb = (-?\d+)$", done.stdout)[1])
        return frequency, correction, uncertainty

    def test_measures_the_clock_drift(self):
        frequency, correction, uncertainty = self.calibrate("--clock-drift-ppm", "300", "--tick-frequency", "125000000")
        self.assertEqual(frequency, 125_000_000)
        self.assertLess(uncertainty, self.MAX_UNCERTAINTY_PPB)
        self.assertAlmostEqual(correction, -300_000, delta=3 * uncertainty)


class CalibrateWithNetworkJitter(CalibrateWithCamera):
    MAX_UNCERTAINTY_PPB = 30_000

    def test_measures_the_clock_drift(self):
        # Delays of 5 ms plus exponential jitter with a mean of 5 ms. Outliers disturb a mean, but not a minimum.
        frequency, correction, uncertainty = self.calibrate("--clock-drift-ppm", "-300", "--network-delay", "5:5")
        self.assertEqual(frequency, 1_000_000_000)
        self.assertLess(uncertainty, self.MAX_UNCERTAINTY_PPB)
        self.assertAlmostEqual(correction, 300_000, delta=3 * uncertainty)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
