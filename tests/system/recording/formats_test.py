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
        example, = re.findall(r"```python\n(import json.*?)```", GUIDE.read_text(), re.DOTALL)
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


class Hdf5(Formats, unittest.TestCase):
    maxDiff = None
    KIND = "hdf5"
    FILE = "frames.h5"

    def read(self, *arguments):
        """\\return what hdf5_reader.py prints"""
        reader = pathlib.Path(__file__).with_name("hdf5_reader.py")
        done = subprocess.run([os.environ["SYSTEM_PYTHON"], reader, *map(str, arguments)], capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def dump(self, path):
        """The structure, as HDF5's own tool prints it."""
        done = subprocess.run(["h5dump", "-H", path], capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def count(self, recording):
        self.assertIn('DATASET "frames"', self.dump(recording.output / self.FILE))
        return int(self.read("count", recording.output / self.FILE))

    def check_content(self, index, path):
        """h5py finds the pixels that verify_recording has compared with the camera's, and the values of the frame index."""
        self.assertEqual([line["page"] for line in index], list(range(len(index))))
        self.assertEqual(self.read("compare", path.parent), f"{len(index)}\n")
        size = re.search(r'DATASET "frames" \{\s*DATATYPE\s+(\S+)\s*DATASPACE\s+SIMPLE \{ \( ([0-9, ]+) \)', self.dump(path))
        expected = {"Mono12": ("H5T_STD_U16LE", "20, 240, 320"), "Mono12Packed": ("H5T_STD_U8LE", "20, 115200")}
        self.assertEqual(size.groups(), expected.get(index[0]["pixel_format"], ("H5T_STD_U8LE", "20, 240, 320")))

    def test_is_read_by_h5py_while_it_grows(self):
        with Camera() as camera, Recording(configuration(self.KIND)) as recording:
            recording.wait_for_frames(1)
            seen = [int(number) for number in self.read("follow", recording.output / self.FILE, 60).split()]
            self.assertGreater(len(seen), 5)
            for _ in range(10):  # a program that does not expect a growing file
                frames = len(recording.frame_index())
                self.assertGreaterEqual(self.count(recording), frames)
            self.assertEqual(recording.stop(), 0, recording.log)
            self.assertEqual(self.read("compare", recording.output), f"{len(recording.frame_index())}\n")
            status, report = recording.verify(camera.truth_path)
            self.assertEqual(status, 0, report)

    def test_holds_the_configuration(self):
        with Camera(), Recording(configuration(self.KIND), "--frames", "2") as recording:
            self.assertEqual(recording.finish(), 0, recording.log)
            done = subprocess.run(["h5dump", "-d", "/entry/configuration/data", recording.output / self.FILE],
                                  capture_output=True, text=True)
            self.assertIn("so that a slow disk drops no frame", done.stdout)

    def test_is_read_by_the_examples_of_the_guide(self):
        plain, packed = re.findall(r"```python\n(import h5py.*?)```", GUIDE.read_text(), re.DOTALL)
        for pixel_format, example in (("Mono8", plain), ("Mono12", plain), ("Mono12Packed", packed)):
            with self.subTest(pixel_format), Camera() as camera:
                with Recording(configuration(self.KIND, pixel_format), "--frames", "5") as recording:
                    self.assertEqual(recording.finish(), 0, recording.log)
                    shown = "print(frames.shape, frames.dtype, int(frames[3].astype('u8').sum()))"
                    read = subprocess.run([os.environ["SYSTEM_PYTHON"], "-c", example + shown], cwd=recording.output,
                                          capture_output=True, text=True)
                    self.assertEqual(read.returncode, 0, read.stderr)
                    line = recording.frame_index()[3]
                    stored = (recording.output / self.FILE).read_bytes()[line["offset"]:][:line["bytes"]]
                    kind = "uint8" if pixel_format == "Mono8" else "uint16"
                    self.assertEqual(read.stdout, f"(5, 240, 320) {kind} {sum(values_of(stored, pixel_format))}\n")
                    self.assertEqual(recording.verify(camera.truth_path)[0], 0)


def values_of(stored, pixel_format):
    """The pixel values of a frame, one by one."""
    if pixel_format == "Mono8":
        return list(stored)
    if pixel_format == "Mono12":
        return [stored[i] | stored[i + 1] << 8 for i in range(0, len(stored), 2)]
    return [value for i in range(0, len(stored), 3)
            for value in (stored[i] << 4 | stored[i + 1] & 15, stored[i + 2] << 4 | stored[i + 1] >> 4)]


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
