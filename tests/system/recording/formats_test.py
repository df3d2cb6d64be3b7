"""The formats of a recording: every bit is there, other programs read it, and the end without a warning costs one frame."""

import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import unittest

import bigtiff
from camera_process import Camera, wait_for
from file_system import file_system
from recorder import Recording
from recording_process import MEDIAGRABBER

GUIDE = pathlib.Path(os.environ["GUIDE"])
FORMATS = ("mono8", "mono12p", "mono12", "bayer_rg8")
FRAMES = 20


def configuration(kind, pixel_format="mono8", more=""):
    return f"""
[image]
width = 320
height = 240
format = "{pixel_format}"
[timing]
frame_rate = 100.0
[memory]
export_buffers = 100  # however slow the disk
[output]
format = "{kind}"
{more}"""


class Formats:
    """What is true of every format; KIND and FILE are the format's."""

    def record_and_compare(self, text):
        with Recording(text, "--frames", str(FRAMES)) as recording:
            with Camera() as camera:
                self.assertEqual(recording.finish(), 0, recording.log)
                wait_for(lambda: len(camera.frames_so_far()) >= FRAMES, "the truth of all frames")
                status, words = recording.compare(camera.truth_path)
                self.assertEqual(status, 0, words)
                self.assertIn(f"{FRAMES} frames identical, 0 different, 0 missing, 0 stray", words)
            self.assertEqual({path.name for path in recording.output.iterdir()}, {"frames.jsonl", self.FILE})
            self.read(recording.journal(), recording.output / self.FILE)
            report = subprocess.run([MEDIAGRABBER, "report", str(recording.output)], capture_output=True, text=True)
            self.assertEqual((report.returncode, report.stderr), (0, ""))
            self.assertEqual((recording.output / "report.html").read_text().count("<img "), 12)

    def test_every_bit_is_there_in_every_pixel_format(self):
        for pixel_format in FORMATS:
            with self.subTest(pixel_format):
                self.record_and_compare(configuration(self.KIND, pixel_format))

    def test_what_was_recorded_is_readable_when_the_process_is_killed(self):
        with Camera() as camera, Recording(configuration(self.KIND)) as recording:
            recording.wait_for_frames(30)
            recording.signal(signal.SIGKILL)
            recording.process.wait()
            self.assertGreaterEqual(self.count(recording), len(recording.journal()))
            status, words = recording.compare(camera.truth_path)
            self.assertEqual(status, 0, words)

    def test_a_full_disk_costs_frames_and_goes_on_when_there_is_room(self):
        with file_system("size=4m") as place, Camera() as camera:
            # Something else takes the room, and leaves it again.
            heap = place / "heap"
            heap.write_bytes(bytes(2 << 20))
            with Recording(configuration(self.KIND), output=place / "frames") as recording:
                recording.wait_for_log("No space left on device")
                before = len(recording.journal())
                self.assertGreater(before, 0, recording.log)
                heap.unlink()
                recording.wait_for_frames(before + 5)
                self.assertEqual(recording.stop(), 1, recording.log)
                _, words = recording.compare(camera.truth_path)
                self.assertRegex(words, r"\d+ frames identical, 0 different, [1-9]\d* missing, 0 stray")
                self.assertEqual(self.count(recording), len(recording.journal()))


class BigTiff(Formats, unittest.TestCase):
    KIND = "bigtiff"
    FILE = "frames.tif"

    def count(self, recording):
        return len(list(bigtiff.pages((recording.output / self.FILE).read_bytes())))

    def read(self, journal, path):
        """A reader of nobody's but the format's description finds what the journal says."""
        found = list(bigtiff.pages(path.read_bytes()))
        self.assertEqual(len(found), len(journal))
        for number, (line, (tags, strip)) in enumerate(zip(journal, found)):
            self.assertEqual((line["file"], line["page"]), (self.FILE, number))
            self.assertEqual((tags[bigtiff.WIDTH][0], tags[bigtiff.HEIGHT][0]), (line["width"], line["height"]))
            self.assertEqual(tags[bigtiff.DESCRIPTION].split(",")[0], f"frame {line['frame']}")
            self.assertEqual(len(strip), line["width"] * line["height"] * tags[bigtiff.BITS][0] // 8)

    def test_every_bit_is_there_when_pages_are_compressed(self):
        for compression in ("lzw", "deflate"):
            with self.subTest(compression), Camera() as camera:
                text = configuration("bigtiff", "mono12", f'compression = "{compression}"\n')
                with Recording(text, "--frames", str(FRAMES)) as recording:
                    self.assertEqual(recording.finish(), 0, recording.log)
                    wait_for(lambda: len(camera.frames_so_far()) >= FRAMES, "the truth of all frames")
                    status, words = recording.compare(camera.truth_path)
                    self.assertEqual(status, 0, words)


class Raw(Formats, unittest.TestCase):
    KIND = "raw"
    FILE = "frames.raw"

    def count(self, recording):
        line = json.loads((recording.output / "frames.jsonl").read_text().splitlines()[0])
        return (recording.output / self.FILE).stat().st_size // line["bytes"]

    def read(self, journal, path):
        self.assertEqual([line["offset"] for line in journal], [i * journal[0]["bytes"] for i in range(len(journal))])
        self.assertEqual(path.stat().st_size, sum(line["bytes"] for line in journal))

    def test_is_read_by_numpy_as_the_guide_says(self):
        example, = re.findall(r"```python\n(.*?)```", GUIDE.read_text(), re.DOTALL)
        for pixel_format in ("mono8", "mono12", "bayer_rg8"):
            with self.subTest(pixel_format), Camera():
                with Recording(configuration("raw", pixel_format), "--frames", "5") as recording:
                    self.assertEqual(recording.finish(), 0, recording.log)
                    shown = "print(frames.shape, frames.dtype, frames[3].tobytes().hex())"
                    read = subprocess.run([os.environ["SYSTEM_PYTHON"], "-c", example + shown], cwd=recording.output,
                                          capture_output=True, text=True)
                    self.assertEqual(read.returncode, 0, read.stderr)
                    line = recording.journal()[3]
                    pixels = (recording.output / "frames.raw").read_bytes()[line["offset"]:][:line["bytes"]]
                    kind = "uint16" if pixel_format == "mono12" else "uint8"
                    self.assertEqual(read.stdout, f"(5, 240, 320) {kind} {pixels.hex()}\n")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
