"""What Aravis makes of a camera that lacks features or refuses them, and what camsim says to names that it does not know."""

import subprocess
import unittest

from camera_process import CAMSIM, Camera, arv_control, arv_tool


def complaint(*arguments):
    """What camsim prints on standard error when it does not start."""
    done = subprocess.run([CAMSIM, *arguments], capture_output=True, text=True, timeout=20)
    assert done.returncode != 0
    return done.stderr


class Refusals(unittest.TestCase):
    def test_leave_a_description_that_aravis_reads(self):
        with Camera("--without", "Gain", "--without", "TLParamsLocked", "--without", "GevStreamChannelSelector"):
            listing = arv_tool("values")
            lines = arv_control("Gain", "Width=640", "GevSCPSPacketSize=1400", "GevSCPSPacketSize")
        self.assertNotIn("'Gain'", listing)
        self.assertNotIn("rror", listing)
        self.assertIn("not found", lines[0])
        self.assertTrue(lines[1].startswith("Width = 640 "))
        self.assertTrue(lines[3].startswith("GevSCPSPacketSize = 1400 "))

    def test_keep_a_format_from_being_chosen(self):
        with Camera("--refuse", "PixelFormat=Mono12", "--refuse", "PixelFormat=Mono8"):
            lines = arv_control("PixelFormat", "PixelFormat=Mono12", "PixelFormat=BayerRG8", "PixelFormat")
        self.assertEqual(lines[0], "PixelFormat = Mono12Packed")
        self.assertIn("rror", lines[1])
        self.assertEqual(lines[3], "PixelFormat = BayerRG8")

    def test_answer_a_write_with_an_error(self):
        with Camera("--refuse-write", "ExposureTime"):
            lines = arv_control("ExposureTime=500", "ExposureTime", "Gain=2")
        self.assertIn("write error", lines[0])
        self.assertTrue(lines[1].startswith("ExposureTime = 1000 "))
        self.assertTrue(lines[2].startswith("Gain = 2 "))

    def test_are_told_apart_from_mistakes(self):
        self.assertIn('"Foo" is no feature of this camera; these are: DeviceVendorName, ', complaint("--without", "Foo"))
        self.assertIn('"RGB8" is no entry of PixelFormat; these are: Mono8, ', complaint("--refuse", "PixelFormat=RGB8"))
        self.assertIn("give FEATURE=ENTRY", complaint("--refuse", "PixelFormat"))
        self.assertIn('"PayloadSize" is no writable feature', complaint("--refuse-write", "PayloadSize"))


if __name__ == "__main__":
    unittest.main()
