# SPDX-License-Identifier: MIT
"""The example host: the frames that it writes are identical to those that the camera sent."""

import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

from camera_process import Camera
from recorder import MGJAI, verify_directory
from tiff_strip import write_strip

EXAMPLE_HOST = os.environ["EXAMPLE_HOST"]
FRAMES = 10
LINE = re.compile(r"^(frame-\d+\.pgm) taken at (\d+) us, ticks (\d+)$", re.MULTILINE)


class ExampleHost(unittest.TestCase):
    def test_writes_the_frames_that_the_camera_sent(self):
        with tempfile.TemporaryDirectory() as temporary, Camera() as camera:
            directory = pathlib.Path(temporary)
            done = subprocess.run([EXAMPLE_HOST, MGJAI, str(FRAMES), temporary], capture_output=True, text=True, timeout=120)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            lines = LINE.findall(done.stdout)
            self.assertEqual(len(lines), FRAMES)
            with (directory / "frames.jsonl").open("w") as index:
                for number, (name, _, ticks) in enumerate(lines):
                    width, height = self.rewrite(directory / name, directory / f"{number}.tif")
                    index.write(json.dumps({"file": f"{number}.tif", "frame": number, "width": width, "height": height,
                                            "pixel_format": "Mono8", "significant_bits": 8, "ticks": int(ticks)}) + "\n")
            times = [int(time) for _, time, _ in lines]
            self.assertEqual(times, sorted(times))
            self.expect_identical(directory, camera.truth_path)

    def rewrite(self, pgm, tiff):
        """Converts a frame to TIFF, which verify_recording reads. \\return width, height"""
        kind, size, maximum, pixels = pgm.read_bytes().split(b"\n", 3)
        width, height = map(int, size.split())
        self.assertEqual((kind, maximum, len(pixels)), (b"P5", b"255", width * height))
        write_strip(tiff, width, height, pixels)
        pgm.unlink()
        return width, height

    def expect_identical(self, directory, truth_path):
        _, report = verify_directory(directory, truth_path)
        self.assertIn(f"{FRAMES} frames identical, 0 different", report)

    def test_reports_wrong_arguments(self):
        for arguments in ([], [MGJAI, "none", "."], ["/nowhere/libmgjai.so", "1", "."]):
            done = subprocess.run([EXAMPLE_HOST, *arguments], capture_output=True, text=True, timeout=120)
            self.assertEqual(done.returncode, 2)
            self.assertNotEqual(done.stderr, "")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
