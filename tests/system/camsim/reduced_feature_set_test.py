# SPDX-License-Identifier: MIT
"""Cameras with reduced feature sets, used by Aravis, and errors in the options that reduce them."""

import subprocess
import unittest

from camera_process import CAMSIM, Camera, arv_control, arv_tool


def error_of(*arguments):
    """\\return the error that camsim prints when it does not start"""
    done = subprocess.run([CAMSIM, *arguments], capture_output=True, text=True, timeout=20)
    assert done.returncode != 0
    return done.stderr


class ReducedFeatureSet(unittest.TestCase):
    def test_without_features_is_read_by_aravis(self):
        with Camera("--missing-feature", "Gain", "--missing-feature", "TLParamsLocked", "--missing-feature", "GevStreamChannelSelector"):
            listing = arv_tool("values")
            lines = arv_control("Gain", "Width=640", "GevSCPSPacketSize=1400", "GevSCPSPacketSize")
        self.assertNotIn("'Gain'", listing)
        self.assertNotIn("rror", listing)
        self.assertIn("not found", lines[0])
        self.assertTrue(lines[1].startswith("Width = 640 "))
        self.assertTrue(lines[3].startswith("GevSCPSPacketSize = 1400 "))

    def test_without_an_entry_rejects_it(self):
        with Camera("--missing-entry", "PixelFormat=Mono12", "--missing-entry", "PixelFormat=Mono8"):
            lines = arv_control("PixelFormat", "PixelFormat=Mono12", "PixelFormat=BayerRG8", "PixelFormat")
        self.assertEqual(lines[0], "PixelFormat = Mono12Packed")
        self.assertIn("rror", lines[1])
        self.assertEqual(lines[3], "PixelFormat = BayerRG8")

    def test_with_a_refused_write_returns_an_error(self):
        with Camera("--refuse-write", "ExposureTime"):
            lines = arv_control("ExposureTime=500", "ExposureTime", "Gain=2")
        self.assertIn("write error", lines[0])
        self.assertTrue(lines[1].startswith("ExposureTime = 1000 "))
        self.assertTrue(lines[2].startswith("Gain = 2 "))

    def test_with_unknown_names_is_rejected(self):
        self.assertIn('"Foo" is not a feature of this camera; valid names: DeviceVendorName, ', error_of("--missing-feature", "Foo"))
        self.assertIn('"RGB8" is not an entry of PixelFormat; valid entries: Mono8, ', error_of("--missing-entry", "PixelFormat=RGB8"))
        self.assertIn("use FEATURE=ENTRY", error_of("--missing-entry", "PixelFormat"))
        self.assertIn('"PayloadSize" is not a writable feature', error_of("--refuse-write", "PayloadSize"))


    def test_rejects_options_of_earlier_versions_with_the_new_name(self):
        for old, new in ((("--without", "Gain"), "--missing-feature"), (("--without=Gain",), "--missing-feature"),
                         (("--refuse", "PixelFormat=Mono8"), "--missing-entry"),
                         (("--network-delay-answers",), "--network-delay-acks"), (("--print-description",), "--print-xml")):
            with self.subTest(option=old):
                self.assertIn(f"{old[0].split('=')[0]}: renamed, use {new}\n", error_of(*old))


if __name__ == "__main__":
    unittest.main()
