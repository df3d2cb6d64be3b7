# SPDX-License-Identifier: MIT
"""File formats of recordings: they are lossless, readable by other programs, and readable after the process was killed."""

import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import unittest

import bigtiff
from camera_process import Camera
from file_system import file_system
from recorder import Recording, verified_recording
from recording_process import MEDIAGRABBER

GUIDE = pathlib.Path(os.environ["GUIDE"])
FORMATS = ("Mono8", "Mono12Packed", "Mono12", "BayerRG8")
FRAMES = 20


def configuration(kind, pixel_format="Mono8", more=""):
    return f"""
[image]
width = 320
height = 240
format = "{pixel_format}"
[timing]
frame_rate_hz = 20.0  # of which a busy machine receives all
[memory]
export_buffers = 100  # so that a slow disk drops no frame
[output]
format = "{kind}"
{more}"""


class Formats:
    """Tests for each format. KIND is the value of output.format, FILE the name of the file."""

    def record_and_read(self, text):
        with verified_recording(self, text, FRAMES) as (recording, verification):
            self.assertIn(f"{FRAMES} frames identical, 0 different, 0 missing, 0 stray", verification)
            self.assertEqual({path.name for path in recording.output.iterdir()}, {"frames.jsonl", self.FILE})
            self.check_content(recording.frame_index(), recording.output / self.FILE)
            report = subprocess.run([MEDIAGRABBER, "report", str(recording.output)], capture_output=True, text=True)
            self.assertEqual((report.returncode, report.stderr), (0, ""))
            self.assertEqual((recording.output / "report.html").read_text().count("<img "), 12)

    def test_is_lossless_in_every_pixel_format(self):
        for pixel_format in FORMATS:
            with self.subTest(pixel_format):
                self.record_and_read(configuration(self.KIND, pixel_format))

    def test_is_readable_after_the_process_was_killed(self):
        with Camera() as camera, Recording(configuration(self.KIND)) as recording:
            recording.wait_for_frames(30)
            recording.signal(signal.SIGKILL)
            recording.process.wait()
            self.assertGreaterEqual(self.count(recording), len(recording.frame_index()))
            status, report = recording.verify(camera.truth_path)
            self.assertEqual(status, 0, report)

    def test_a_full_disk_costs_frames_until_space_is_available(self):
        with file_system("size=4m") as disk, Camera() as camera:
            # Another file takes space until it is deleted.
            other = disk / "other"
            other.write_bytes(bytes(2 << 20))
            with Recording(configuration(self.KIND), output=disk / "frames") as recording:
                recording.wait_for_log("No space left on device")
                before = len(recording.frame_index())
                self.assertGreater(before, 0, recording.log)
                other.unlink()
                recording.wait_for_frames(before + 5)
                self.assertEqual(recording.stop(), 1, recording.log)
                _, report = recording.verify(camera.truth_path)
                self.assertRegex(report, r"\d+ frames identical, 0 different, [1-9]\d* missing, 0 stray")
                self.assertEqual(self.count(recording), len(recording.frame_index()))


class BigTiff(Formats, unittest.TestCase):
    KIND = "bigtiff"
    FILE = "frames.tif"

    def count(self, recording):
        return len(list(bigtiff.pages((recording.output / self.FILE).read_bytes())))

    def check_content(self, index, path):
        """An independent reader finds the values of the frame index."""
        found = list(bigtiff.pages(path.read_bytes()))
        self.assertEqual(len(found), len(index))
        for number, (line, (tags, strip)) in enumerate(zip(index, found)):
            self.assertEqual((line["file"], line["page"]), (self.FILE, number))
            self.assertEqual((tags[bigtiff.WIDTH][0], tags[bigtiff.HEIGHT][0]), (line["width"], line["height"]))
            self.assertEqual(tags[bigtiff.DESCRIPTION].split(",")[0], f"frame {line['frame']}")
            self.assertEqual(len(strip), line["width"] * line["height"] * tags[bigtiff.BITS][0] // 8)

    def test_is_lossless_with_compression(self):
        for compression in ("lzw", "deflate"):
            with self.subTest(compression):
                text = configuration("bigtiff", "Mono12", f'compression = "{compression}"\n')
                with verified_recording(self, text, FRAMES):
                    pass


class Raw(Formats, unittest.TestCase):
    KIND = "raw"
    FILE = "frames.raw"

    def count(self, recording):
        line = json.loads((recording.output / "frames.jsonl").read_text().splitlines()[0])
        return (recording.output / self.FILE).stat().st_size // line["bytes"]

    def check_content(self, index, path):
        self.assertEqual([line["offset"] for line in index], [i * index[0]["bytes"] for i in range(len(index))])
        self.assertEqual(path.stat().st_size, sum(line["bytes"] for line in index))

    def test_is_read_by_the_numpy_example_of_the_guide(self):
        example, = re.findall(r"```python\n(.*?)```", GUIDE.read_text(), re.DOTALL)
        for pixel_format in ("Mono8", "Mono12", "BayerRG8"):
            with self.subTest(pixel_format), Camera():
                with Recording(configuration("raw", pixel_format), "--frames", "5") as recording:
                    self.assertEqual(recording.finish(), 0, recording.log)
                    shown = "print(frames.shape, frames.dtype, frames[3].tobytes().hex())"
                    read = subprocess.run([os.environ["SYSTEM_PYTHON"], "-c", example + shown], cwd=recording.output,
                                          capture_output=True, text=True)
                    self.assertEqual(read.returncode, 0, read.stderr)
                    line = recording.frame_index()[3]
                    pixels = (recording.output / "frames.raw").read_bytes()[line["offset"]:][:line["bytes"]]
                    kind = "uint16" if pixel_format == "Mono12" else "uint8"
                    self.assertEqual(read.stdout, f"(5, 240, 320) {kind} {pixels.hex()}\n")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
