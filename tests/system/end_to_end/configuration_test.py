"""From the configuration file to the camera's registers, and back when the run ends."""

import re
import statistics
import sys
import tempfile
import unittest

from camera_process import Camera, arv_control, feature, features
from packet_capture import Capture
from recorder import Recording

MANUAL = """
[image]
width = 640
height = 480
offset_x = 200
offset_y = 102
format = "mono8"
[transport]
packet_size = 1400
[timing]
frame_rate = 50.0
[exposure]
mode = "manual"
time_us = 2000
[gain]
mode = "manual"
db = 6
[[line]]
pin = "Out1"
source = "exposure_active"
inverted = true
[[line]]
pin = "Out2"
source = "low"
"""

AUTOMATIC = """
[image]
width = 640
height = 480
format = "mono12"
[timing]
frame_rate = 50.0
[exposure]
mode = "auto"
limits_us = [100, 5000]
[gain]
mode = "auto"
limits_db = [0, 12]
[auto]
brightness = 0.4
area = true
"""

ACCESSES = {0x80: "READREG", 0x82: "WRITEREG", 0x84: "READMEM", 0x86: "WRITEMEM"}
CONTROL_PRIVILEGE = 0x0A00
MOST_ROUND_TRIPS = 150


def register_accesses(capture):
    """The commands that read and write registers and memory, in their order: name, first address, further bytes."""
    accesses = []
    for (payload,) in capture.fields(9, "gvcp.cmd.command", "udp.payload"):
        packet = bytes.fromhex(payload.replace(":", ""))
        command = int.from_bytes(packet[2:4], "big")
        if command in ACCESSES:
            accesses.append((ACCESSES[command], int.from_bytes(packet[8:12], "big"), packet[12:]))
    return accesses


def register_of(description, name):
    """The address of a feature's register in the camera's GenICam description."""
    return int(re.search(rf'<IntReg Name="{name}Reg".*?<Address>(0x[0-9A-Fa-f]+)</Address>', description, re.S)[1], 16)


def chunks_enabled():
    """Whether each of the chunks is, in the order of the camera's entries."""
    entries = ("GainAll", "ExposureTime", "Timestamp", "ExposureStartCounter")
    asked = [word for entry in entries for word in (f"ChunkSelector={entry}", "ChunkEnable")]
    return [line.removeprefix("ChunkEnable = ") for line in arv_control(*asked) if line.startswith("ChunkEnable")]


class TheCameraHasIt(unittest.TestCase):
    def expect(self, values):
        self.assertEqual(features(*values), values)

    def test_while_grabbing_with_manual_gain_and_exposure(self):
        with Camera(), Recording(MANUAL) as recording:
            recording.wait_for_frames(5)
            self.expect({"Width": "640", "Height": "480", "OffsetX": "200", "OffsetY": "102", "PixelFormat": "Mono8",
                         "GevSCPSPacketSize": "1400", "AcquisitionFrameRate": "50", "ExposureTime": "2000",
                         "GainAuto": "Off", "ExposureAuto": "Off", "GainSelector": "AnalogAll",
                         "ChunkModeActive": "true", "TLParamsLocked": "1"})
            self.assertAlmostEqual(float(feature("Gain")), 10 ** (6 / 20), places=5)
            self.assertEqual(recording.stop(), 0, recording.log)
            line = recording.journal()[-1]
            self.assertAlmostEqual(line["gain_db"], 6, places=4)
            self.assertEqual(line["exposure_us"], 2000)

    def test_while_grabbing_with_automatic_gain_and_exposure(self):
        with Camera(), Recording(AUTOMATIC) as recording:
            recording.wait_for_frames(5)
            self.expect({"PixelFormat": "Mono12", "GainAuto": "Continuous", "ExposureAuto": "Continuous",
                         "ALCReference": "40", "ALCAreaEnable": "On", "AutoGainControlGainRawMin": "100",
                         "AutoGainControlGainRawMax": "398", "AutoShutterControlExposureMin": "100",
                         "AutoShutterControlExposureMax": "5000"})
            self.assertEqual(recording.stop(), 0, recording.log)

    def test_on_its_lines(self):
        with Camera(), Recording(MANUAL) as recording:
            recording.wait_for_frames(5)
            # A stranger can't select a line while the camera is controlled.
            self.expect({"LineSelector": "Line3", "LineSource": "Low", "LineInverter": "false"})
            self.assertEqual(recording.stop(), 0, recording.log)
            lines = arv_control("LineSelector=Line2", "LineSource", "LineInverter")
            self.assertEqual(lines, ["LineSelector = Line2", "LineSource = ExposureActive", "LineInverter = true"])

    def test_for_chunks_as_long_as_the_run(self):
        with Camera(), Recording(MANUAL) as recording:
            recording.wait_for_frames(5)
            self.expect({"ChunkModeActive": "true"})
            self.assertEqual(recording.stop(), 0, recording.log)
            counters = [line["counter"] for line in recording.journal()]
            self.assertEqual(counters, list(range(counters[0], counters[0] + len(counters))))
            self.assertEqual(chunks_enabled(), ["false"] * 4)


class Brightness(unittest.TestCase):
    def test_of_the_picture_comes_to_the_target_within_60_frames(self):
        for target, light in ((0.4, 1.0), (0.2, 4.0), (0.6, 0.5)):
            with self.subTest(target=target, illumination=light):
                text = AUTOMATIC.replace("mono12", "mono8").replace("brightness = 0.4", f"brightness = {target}")
                text = text.replace("area = true", "area = false")
                with Camera("--illumination", str(light)), Recording(text, "--frames", "80") as recording:
                    self.assertEqual(recording.finish(), 0, recording.log)
                    means = [statistics.fmean(recording.pixels(line)) / 255 for line in recording.journal()]
                for mean in means[60:]:
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
            description = camera.description()
        addresses = [address for _, address, _ in cls.accesses]
        # The description has been read when control is taken for the last time.
        cls.control_taken = max(i for i, access in enumerate(cls.accesses)
                                if access == ("WRITEREG", CONTROL_PRIVILEGE, bytes([0, 0, 0, 2])))
        cls.start = addresses.index(register_of(description, "AcquisitionStart"))
        cls.stop = addresses.index(register_of(description, "AcquisitionStop"), cls.start)

    def test_of_a_configuration_are_at_most_150(self):
        trips = self.start - self.control_taken
        print(f"{trips} round trips from taking control to the start of the acquisition")
        self.assertGreater(trips, 0)
        self.assertLessEqual(trips, MOST_ROUND_TRIPS)

    def test_of_an_iteration_of_the_loop_are_at_most_5(self):
        asked = sum(1 for _, address, _ in self.accesses[self.start + 1:self.stop] if address != CONTROL_PRIVILEGE)
        each = asked / (self.FRAMES + 1)  # the first good frame calibrates and is not recorded
        print(f"{each:.2f} round trips an iteration")
        self.assertGreaterEqual(each, 2, "timestamp and temperature are asked for each time")
        self.assertLessEqual(each, 5)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
