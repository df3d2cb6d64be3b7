"""The example of a host: the frames that it writes are the camera's."""

import json
import os
import pathlib
import re
import struct
import subprocess
import sys
import tempfile
import unittest

from camera_process import Camera
from recorder import MGJAI, VERIFY_RECORDING

EXAMPLE_HOST = os.environ["EXAMPLE_HOST"]
FRAMES = 10
LINE = re.compile(r"^(frame-\d+\.pgm) taken at (\d+) us, ticks (\d+)$", re.MULTILINE)


def write_tiff(path, width, height, pixels):
    """An uncompressed picture of 8-bit grey values, which is what the judge of recordings reads."""
    tags = ((256, 4, width), (257, 4, height), (258, 3, 8), (259, 3, 1), (262, 3, 1), (273, 4, 8), (277, 3, 1), (278, 4, height),
            (279, 4, len(pixels)))
    directory = struct.pack("<H", len(tags)) + b"".join(struct.pack("<HHII", tag, kind, 1, value) for tag, kind, value in tags)
    path.write_bytes(struct.pack("<2sHI", b"II", 42, 8 + len(pixels)) + pixels + directory + bytes(4))


class ExampleHost(unittest.TestCase):
    def test_writes_the_frames_that_the_camera_sent(self):
        with tempfile.TemporaryDirectory() as place, Camera() as camera:
            directory = pathlib.Path(place)
            ended = subprocess.run([EXAMPLE_HOST, MGJAI, str(FRAMES), place], capture_output=True, text=True, timeout=120)
            self.assertEqual(ended.returncode, 0, ended.stdout + ended.stderr)
            lines = LINE.findall(ended.stdout)
            self.assertEqual(len(lines), FRAMES)
            with (directory / "frames.jsonl").open("w") as journal:
                for number, (name, _, ticks) in enumerate(lines):
                    width, height = self.rewrite(directory / name, directory / f"{number}.tif")
                    journal.write(json.dumps({"file": f"{number}.tif", "frame": number, "width": width, "height": height,
                                              "format": "MONO8T", "significant_bits": 8, "ticks": int(ticks)}) + "\n")
            times = [int(time) for _, time, _ in lines]
            self.assertEqual(times, sorted(times))
            self.expect_identical(directory, camera.truth_path)

    def rewrite(self, pgm, tiff):
        kind, size, most, pixels = pgm.read_bytes().split(b"\n", 3)
        width, height = map(int, size.split())
        self.assertEqual((kind, most, len(pixels)), (b"P5", b"255", width * height))
        write_tiff(tiff, width, height, pixels)
        pgm.unlink()
        return width, height

    def expect_identical(self, directory, truth_path):
        judged = subprocess.run([VERIFY_RECORDING, str(directory), str(truth_path)], capture_output=True, text=True, timeout=120)
        self.assertIn(f"{FRAMES} frames identical, 0 different", judged.stdout, judged.stderr)

    def test_says_what_is_wrong_with_its_arguments(self):
        for arguments in ([], [MGJAI, "none", "."], ["/nowhere/libmgjai.so", "1", "."]):
            ended = subprocess.run([EXAMPLE_HOST, *arguments], capture_output=True, text=True, timeout=120)
            self.assertEqual(ended.returncode, 2)
            self.assertNotEqual(ended.stderr, "")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
