# SPDX-License-Identifier: MIT
"""The configuration file's values in the camera during a run, and the number of round trips that configuring takes."""

import re
import statistics
import sys
import tempfile
import unittest

from camera_process import Camera, arv_control, feature, features, undisturbed_frames
from packet_capture import Capture
from recorder import Recording

MANUAL = """
[image]
width = 640
height = 480
offset_x = 200
offset_y = 102
format = "Mono8"
[transport]
packet_size_bytes = 1400
[timing]
frame_rate_hz = 50.0
[memory]
export_buffers = 200
[exposure]
auto = "Off"
time_us = 2000
[gain]
auto = "Off"
db = 6
[[line]]
pin = "Out1"
source = "ExposureActive"
inverted = true
[[line]]
pin = "Out2"
source = "Low"
"""

AUTOMATIC = """
[image]
width = 640
height = 480
format = "Mono12"
[timing]
frame_rate_hz = 50.0
[memory]
export_buffers = 200
[exposure]
auto = "Continuous"
limits_us = [100, 5000]
[gain]
auto = "Continuous"
limits_db = [0, 12]
[auto]
brightness = 0.4
area = true
"""

ACCESSES = {0x80: "READREG", 0x82: "WRITEREG", 0x84: "READMEM", 0x86: "WRITEMEM"}
CONTROL_PRIVILEGE = 0x0A00
MAX_ROUND_TRIPS = 150


def register_accesses(capture):
    """The captured register and memory commands in order, each as name, first address and remaining bytes."""
    accesses = []
    for (payload,) in capture.fields(9, "gvcp.cmd.command", "udp.payload"):
        packet = bytes.fromhex(payload.replace(":", ""))
        command = int.from_bytes(packet[2:4], "big")
        if command in ACCESSES:
            accesses.append((ACCESSES[command], int.from_bytes(packet[8:12], "big"), packet[12:]))
    return accesses


def register_of(xml, name):
    """The address of a feature's register in the GenICam XML."""
    return int(re.search(rf'<IntReg Name="{name}Reg".*?<Address>(0x[0-9A-Fa-f]+)</Address>', xml, re.S)[1], 16)


def chunks_enabled():
    """ChunkEnable of each chunk, 'true' or 'false'."""
    entries = ("GainAll", "ExposureTime", "Timestamp", "ExposureStartCounter")
    commands = [word for entry in entries for word in (f"ChunkSelector={entry}", "ChunkEnable")]
    return [line.removeprefix("ChunkEnable = ") for line in arv_control(*commands) if line.startswith("ChunkEnable")]


class AppliedConfiguration(unittest.TestCase):
    def expect(self, values):
        self.assertEqual(features(*values), values)

    def test_manual_gain_and_exposure(self):
        with Camera(), Recording(MANUAL) as recording:
            recording.wait_for_frames(5)
            self.expect({"Width": "640", "Height": "480", "OffsetX": "200", "OffsetY": "102", "PixelFormat": "Mono8",
                         "GevSCPSPacketSize": "1400", "AcquisitionFrameRate": "50", "ExposureTime": "2000",
                         "GainAuto": "Off", "ExposureAuto": "Off", "GainSelector": "AnalogAll",
                         "ChunkModeActive": "true", "TLParamsLocked": "1"})
            self.assertAlmostEqual(float(feature("Gain")), 10 ** (6 / 20), places=5)
            self.assertEqual(recording.stop(), 0, recording.log)
            line = recording.frame_index()[-1]
            self.assertAlmostEqual(line["gain_db"], 6, places=4)
            self.assertEqual(line["exposure_us"], 2000)

    def test_automatic_gain_and_exposure(self):
        with Camera(), Recording(AUTOMATIC) as recording:
            recording.wait_for_frames(5)
            self.expect({"PixelFormat": "Mono12", "GainAuto": "Continuous", "ExposureAuto": "Continuous",
                         "ALCReference": "40", "ALCAreaEnable": "On", "AutoGainControlGainRawMin": "100",
                         "AutoGainControlGainRawMax": "398", "AutoShutterControlExposureMin": "100",
                         "AutoShutterControlExposureMax": "5000"})
            self.assertEqual(recording.stop(), 0, recording.log)

    def test_output_lines(self):
        with Camera(), Recording(MANUAL) as recording:
            recording.wait_for_frames(5)
            # Another application cannot change LineSelector while mediagrabber has control.
            self.expect({"LineSelector": "Line3", "LineSource": "Low", "LineInverter": "false"})
            self.assertEqual(recording.stop(), 0, recording.log)
            lines = arv_control("LineSelector=Line2", "LineSource", "LineInverter")
            self.assertEqual(lines, ["LineSelector = Line2", "LineSource = ExposureActive", "LineInverter = true"])

    def test_chunks_are_enabled_during_the_run_only(self):
        with Camera() as camera, Recording(MANUAL) as recording:
            recording.wait_for_frames(5)
            self.expect({"ChunkModeActive": "true"})
            self.assertEqual(recording.stop(), 0, recording.log)
            self.assertEqual(recording.wrong_counters(camera), [])
            self.assertEqual(chunks_enabled(), ["false"] * 4)


class AutoBrightness(unittest.TestCase):
    def test_reaches_the_target_within_60_frames(self):
        for target, light in ((0.4, 1.0), (0.2, 4.0), (0.6, 0.5)):
            with self.subTest(target=target, illumination=light):
                text = AUTOMATIC.replace("Mono12", "Mono8").replace("brightness = 0.4", f"brightness = {target}")
                text = text.replace("area = true", "area = false").replace("frame_rate_hz = 50.0", "frame_rate_hz = 25.0")
                with Camera("--illumination", str(light)) as camera, Recording(text, "--frames", "120") as recording:
                    self.assertEqual(recording.finish(), 0, recording.log)
                    undisturbed = {frame["ticks"] for frame in undisturbed_frames(camera.frames_so_far())}
                    settled = [line for line in recording.frame_index()[60:] if line["ticks"] in undisturbed]
                    means = [statistics.fmean(recording.pixels(line)) / 255 for line in settled]
                self.assertGreaterEqual(len(means), 5)  # a busy machine disturbs most
                for mean in means:
                    self.assertAlmostEqual(mean, target, delta=0.05 * target)


class RoundTrips(unittest.TestCase):
    FRAMES = 50

    @classmethod
    def setUpClass(cls):
        with tempfile.TemporaryDirectory() as directory:
            with Camera() as camera, Capture(directory) as capture:
                with Recording(MANUAL, "--frames", str(cls.FRAMES)) as recording:
                    assert recording.finish() == 0, recording.log
            cls.accesses = register_accesses(capture)
            xml = camera.description()
        addresses = [address for _, address, _ in cls.accesses]
        # The XML has been read when control is taken for the last time.
        cls.control_taken = max(i for i, access in enumerate(cls.accesses)
                                if access == ("WRITEREG", CONTROL_PRIVILEGE, bytes([0, 0, 0, 2])))
        cls.start = addresses.index(register_of(xml, "AcquisitionStart"))
        cls.stop = addresses.index(register_of(xml, "AcquisitionStop"), cls.start)

    def test_configuration_takes_at_most_150(self):
        trips = self.start - self.control_taken
        print(f"{trips} round trips from taking control to the start of the acquisition")
        self.assertGreater(trips, 0)
        self.assertLessEqual(trips, MAX_ROUND_TRIPS)

    def test_each_loop_iteration_takes_at_most_5(self):
        trips = sum(1 for _, address, _ in self.accesses[self.start + 1:self.stop] if address != CONTROL_PRIVILEGE)
        each = trips / (self.FRAMES + 1)  # the first good frame is not recorded
        print(f"{each:.2f} round trips per iteration")
        self.assertGreaterEqual(each, 2, "timestamp and temperature are read each time")
        self.assertLessEqual(each, 5)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
