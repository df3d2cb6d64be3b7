# SPDX-License-Identifier: MIT
"""mediagrabber.open_recording() with recordings of the simulated camera, beside independent readers of the same files."""

import itertools
import pathlib
import signal
import sys
import tempfile
import unittest
import zlib

import h5py
import numpy
from mediagrabber import open_recording
from PIL import Image

import bigtiff
from camera_process import Camera
from recorder import Recording, verified_recording

FRAMES = 6
WIDTH, HEIGHT = 328, 246


def configuration(kind, pixel_format="Mono8", compression="none", more=""):
    return f"""
[image]
width = {WIDTH}
height = {HEIGHT}
format = "{pixel_format}"
[timing]
frame_rate_hz = 20.0  # of which a busy machine receives all
[memory]
export_buffers = 100
[output]
format = "{kind}"
compression = "{compression}"
{more}"""


def unpacked_by_hand(data):
    """The pixels of Mono12Packed lines that end at a byte boundary, in pairs."""
    for first, lower, second in zip(data[0::3], data[1::3], data[2::3]):
        yield from (first << 4 | lower & 0xF, second << 4 | lower >> 4)


def raw_images(recording):
    data = (recording.output / "frames.raw").read_bytes()
    for line in recording.frame_index():
        frame = data[line["offset"]:][:line["bytes"]]
        if line["pixel_format"] == "Mono12Packed":
            yield list(unpacked_by_hand(frame))
        else:
            yield list(memoryview(frame).cast("H")) if line["pixel_format"] == "Mono12" else list(frame)


def pillow_images(recording):
    for line in recording.frame_index():
        with Image.open(recording.output / line["file"]) as image:
            yield list(image.getdata())


def bigtiff_images(recording):
    for tags, strip in bigtiff.pages((recording.output / "frames.tif").read_bytes()):
        if tags[259][0] == 8:  # deflate, of differences of neighbours in a line
            lines = zip(*[iter(zlib.decompress(strip))] * WIDTH)
            yield [value % 256 for line in lines for value in itertools.accumulate(line)]
        else:
            yield list(memoryview(strip).cast("H") if tags[bigtiff.BITS][0] == 16 else strip)


def h5py_images(recording):
    with h5py.File(recording.output / "frames.h5") as file:
        for frame in file["entry/data/frames"]:
            yield list(unpacked_by_hand(frame.tolist())) if frame.ndim == 1 else frame.ravel()


class Recorded(unittest.TestCase):
    def check(self, reader, *values):
        with self.subTest(values), verified_recording(self, configuration(*values), FRAMES) as (recording, _):
            frames = open_recording(recording.output)
            lines = recording.frame_index()
            self.assertEqual((len(frames), frames.is_growing), (FRAMES, False))
            for field in ("frame", "timestamp_us", "handed_over_us", "ticks", "gain_db", "exposure_us", "counter", "pixel_format", "width"):
                self.assertEqual(frames.index[field].tolist(), [line[field] for line in lines], field)
            dtype = numpy.uint8 if values[1].endswith("8") else numpy.uint16
            for image, expected in zip(frames, reader(recording), strict=True):
                self.assertEqual((image.shape, image.dtype), ((HEIGHT, WIDTH), dtype))
                self.assertGreater(image.std(), 1)
                self.assertTrue((image.ravel() == expected).all())

    def test_raw_files_are_read_as_by_hand(self):
        for pixel_format in ("Mono8", "Mono12Packed", "Mono12", "BayerRG8"):
            self.check(raw_images, "raw", pixel_format)

    def test_tiff_files_are_read_as_by_pillow(self):
        self.check(pillow_images, "tiff", "Mono8")
        self.check(pillow_images, "tiff", "Mono12Packed", "lzw")
        self.check(pillow_images, "tiff", "Mono8", "lzw")
        self.check(pillow_images, "tiff", "Mono12", "deflate")

    def test_bigtiff_files_are_read_as_by_another_reader(self):
        self.check(bigtiff_images, "bigtiff", "Mono12Packed")
        self.check(bigtiff_images, "bigtiff", "BayerRG8")
        self.check(bigtiff_images, "bigtiff", "BayerRG8", "deflate")

    def test_hdf5_files_are_read_as_by_h5py(self):
        for pixel_format in ("Mono8", "Mono12Packed", "Mono12", "BayerRG8"):
            self.check(h5py_images, "hdf5", pixel_format)

    def test_growing_recordings_are_followed_to_their_end(self):
        for kind in ("raw", "bigtiff", "tiff", "hdf5"):
            with self.subTest(kind), Camera(), Recording(configuration(kind), "--frames", 30) as recording:
                recording.wait_for_frames(1)
                frames = open_recording(recording.output)
                self.assertTrue(frames.is_growing)
                numbers = []
                for new in frames.follow(timeout=60):
                    self.assertEqual(new.load().shape, (len(new), HEIGHT, WIDTH))
                    numbers += new.index["frame"].tolist()
                self.assertEqual(recording.finish(), 0, recording.log)
                self.assertEqual(numbers, [line["frame"] for line in recording.frame_index()])
                self.assertFalse(frames.is_growing)

    def test_recordings_of_a_killed_process_are_read(self):
        for kind in ("raw", "bigtiff", "tiff", "hdf5"):
            with self.subTest(kind), Camera(), Recording(configuration(kind)) as recording:
                recording.wait_for_frames(10)
                recording.signal(signal.SIGKILL)
                recording.process.wait()
                frames = open_recording(recording.output)
                self.assertGreaterEqual(len(frames), 10)
                self.assertEqual((frames.load().shape[1:], frames.is_growing), ((HEIGHT, WIDTH), False))

    def test_segments_are_read_while_they_are_written(self):
        with tempfile.TemporaryDirectory() as temporary, Camera(), \
                Recording(configuration("raw", more="segment_frames = 5\n"), "--frames", 23,
                          output=pathlib.Path(temporary) / "{time}") as recording:
            root = pathlib.Path(temporary)
            recording.wait_while_running(lambda: any(root.glob("*/frames.jsonl")), "a segment")
            frames = open_recording(root)
            numbers = [number for new in frames.follow(timeout=60) for number in new.index["frame"].tolist()]
            self.assertEqual(recording.finish(), 0, recording.log)
            self.assertEqual((len(numbers), len(frames.segments)), (23, 5))
            self.assertEqual(numbers, sorted(numbers))
            self.assertEqual(frames.load().shape, (23, HEIGHT, WIDTH))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
