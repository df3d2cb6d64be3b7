# SPDX-License-Identifier: MIT
"""gevctl and Aravis's fake camera."""

import pathlib
import subprocess
import tempfile
import unittest

from camera_process import arv_control, wait_for
from gevctl import DIFFERS, get, gevctl, gevctl_json


class AravisCamera(unittest.TestCase):
    def setUp(self):
        self.camera = subprocess.Popen(["arv-fake-gv-camera-0.8", "-i", "127.0.0.1", "-s", "AB123"],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(self.camera.wait)
        self.addCleanup(self.camera.terminate)
        wait_for(lambda: gevctl_json("list"), "the camera")

    def test_is_listed(self):
        one, = gevctl_json("list")
        self.assertEqual((one["vendor"], one["model"], one["serial"], one["reachable"]), ("Aravis", "Fake", "AB123", True))

    def test_is_read_and_written(self):
        arv_control("Width=256")
        self.assertEqual(get("Width"), ["256"])
        gevctl("set", "AB123", "Width=128", "ExposureTimeAbs=2000")
        lines = arv_control("Width", "ExposureTimeAbs")
        self.assertRegex(lines[0], "Width = 128 ")
        self.assertRegex(lines[1], "ExposureTimeAbs = 2000 ")

    def test_has_its_features_listed(self):
        names = gevctl("features", "127.0.0.1", "--visibility", "guru", "--names").split()
        self.assertIn("PixelFormat", names)
        self.assertIn("Mono8\n", gevctl("features", "127.0.0.1", "PixelFormat", "--entries"))

    def test_gets_back_what_was_dumped(self):
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory) / "fake.toml"
            gevctl("set", "127.0.0.1", "Width=128", "Height=64")
            path.write_text(gevctl("dump", "127.0.0.1"))
            gevctl("set", "127.0.0.1", "Width=256", "Height=32")
            self.assertIn("Width", gevctl("diff", "127.0.0.1", path, status=DIFFERS))
            self.assertIn("0 differ\n", gevctl("apply", "127.0.0.1", path))
            self.assertEqual(get("Width", "Height"), ["128", "64"])


if __name__ == "__main__":
    unittest.main()
