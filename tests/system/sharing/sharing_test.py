"""Frames in memory, as other programs read them beside the recording."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import numpy

from camera_process import Camera
from recorder import Recording
from recording_process import MEDIAGRABBER, wait_for

sys.path.insert(0, os.environ["EXAMPLES"])
from frame_ring import FrameRing  # noqa: E402

FRAME_BRIGHTNESS = os.environ["FRAME_BRIGHTNESS"]
PATIENCE_SECONDS = 60

CONFIGURATION = """
[image]
width = 320
height = 240
format = "{format}"
[timing]
frame_rate = 50.0
[ring]
socket = "{socket}"
[control]
socket = "{control}"
"""


class Place:
    def __enter__(self):
        self.directory = tempfile.TemporaryDirectory()
        root = pathlib.Path(self.directory.name)
        self.ring, self.control = root / "ring", root / "control"
        return self

    def __exit__(self, *_):
        self.directory.cleanup()

    def configuration(self, pixel_format="mono8"):
        return CONFIGURATION.format(format=pixel_format, socket=self.ring, control=self.control)

    def connect(self):
        wait_for(self.ring.exists, "the ring's socket")
        return FrameRing(str(self.ring))


def line_of(recording, frame):
    """What the journal says of a frame, when it has got there."""
    return wait_for(lambda: next((line for line in recording.journal() if line["frame"] == frame.number), None),
                    f"frame {frame.number} in the journal")


class Readers(unittest.TestCase):
    def test_see_what_the_recording_keeps(self):
        with Place() as place, Camera(), Recording(place.configuration()) as recording, place.connect() as ring:
            for _ in range(20):
                frame = ring.next(PATIENCE_SECONDS)
                pixels = frame.pixels.copy()
                self.assertTrue(ring.is_there(frame))
                line = line_of(recording, frame)
                self.assertEqual(pixels.tobytes(), recording.pixels(line))
                self.assertEqual((frame.timestamp_us, frame.ticks, frame.gain_db, frame.format),
                                 (line["timestamp_us"], line["ticks"], line["gain_db"], line["format"]))
            self.assertEqual(recording.stop(), 0)

    def test_get_every_frame_beside_a_recording_that_keeps_every_frame(self):
        with Place() as place, Camera(), Recording(place.configuration(), "--frames", 200) as recording:
            with place.connect() as ring:
                numbers = [frame.number for frame in ring if frame.pixels.mean() > 0 and ring.is_there(frame)]
                self.assertEqual(ring.overtaken, 0)
            self.assertEqual(recording.finish(), 0)
            self.assertEqual(numbers, list(range(numbers[0], 201)))
            self.assertEqual(len(recording.journal()), 200)

    def test_see_16_bits_as_16_bits(self):
        with Place() as place, Camera(), Recording(place.configuration("mono12")) as recording, place.connect() as ring:
            frame = ring.next(PATIENCE_SECONDS)
            self.assertEqual((frame.pixels.dtype, frame.pixels.shape), (numpy.dtype("<u2"), (240, 320)))
            self.assertGreater(frame.pixels.max(), 255)
            self.assertLess(frame.pixels.max(), 4096)
            self.assertEqual(recording.stop(), 0)

    def test_in_c_read_the_same(self):
        with Place() as place, Camera(), Recording(place.configuration()) as recording:
            wait_for(place.ring.exists, "the ring's socket")
            done = subprocess.run([FRAME_BRIGHTNESS, str(place.ring), "20"], capture_output=True, text=True,
                                  timeout=PATIENCE_SECONDS)
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertEqual(done.stderr, "20 frames, 0 overtaken\n")
            for number, timestamp, mean in map(str.split, done.stdout.splitlines()):
                line = next(line for line in recording.journal() if line["frame"] == int(number))
                self.assertEqual(int(timestamp), line["timestamp_us"])
                pixels = numpy.frombuffer(recording.pixels(line), numpy.uint8)
                self.assertAlmostEqual(float(mean), pixels.mean(), places=2)
            self.assertEqual(recording.stop(), 0)

    def test_that_stop_reading_disturb_nobody(self):
        with Place() as place, Camera(), Recording(place.configuration(), "--frames", 150) as recording:
            with place.connect() as deaf, place.connect() as ring:
                deaf.next(PATIENCE_SECONDS)
                read = sum(1 for _ in ring)
                self.assertEqual(ring.overtaken, 0)
                self.assertGreater(read, 100)
            self.assertEqual(recording.finish(), 0)

    def test_are_told_when_nobody_is_there(self):
        done = subprocess.run([FRAME_BRIGHTNESS, "/nowhere/ring"], capture_output=True, text=True, timeout=PATIENCE_SECONDS)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr, "/nowhere/ring: No such file or directory\n")


class Log(unittest.TestCase):
    """Whoever looks at a recording makes mediagrabber read the plug-in's log along; what is written of it stays as configured."""

    def log_of(self, level):
        with Place() as place, Camera():
            with Recording(place.configuration() + f"[log]\nlevel = \"{level}\"\n", "--frames", 5) as recording:
                self.assertEqual(recording.finish(), 0)
                return recording.log

    def test_is_written_as_configured(self):
        self.assertIn("START GRABBING", self.log_of("info"))
        self.assertNotIn("[MG_JAI_", self.log_of("warning"))


class Region(unittest.TestCase):
    """A region that is changed while frames arrive: another run of the plug-in, other memory, the same readers."""

    def set(self, place, *settings):
        return subprocess.run([MEDIAGRABBER, "set", "--socket", str(place.control), "--timeout", "30", *settings],
                              capture_output=True, text=True, timeout=PATIENCE_SECONDS)

    def test_is_followed_by_a_reader(self):
        with Place() as place, Camera(), Recording(place.configuration()) as recording, place.connect() as ring:
            self.assertEqual(ring.next(PATIENCE_SECONDS).pixels.shape, (240, 320))
            done = self.set(place, "--another-run", "image.width=640", "image.height=480")
            self.assertEqual((done.returncode, done.stdout), (0, "image.width = 640\nimage.height = 480\n"), done.stderr)
            while (frame := ring.next(PATIENCE_SECONDS)).pixels.shape != (480, 640):
                pass
            pixels = frame.pixels.copy()
            self.assertTrue(ring.is_there(frame))
            self.assertEqual(pixels.tobytes(), recording.pixels(line_of(recording, frame)))
            self.assertEqual(recording.stop(), 0)

    def test_that_the_camera_refuses_is_answered_with_the_one_it_has(self):
        with Place() as place, Camera(), Recording(place.configuration()) as recording, place.connect() as ring:
            ring.next(PATIENCE_SECONDS)
            done = self.set(place, "--another-run", "image.width=60000")
            self.assertEqual(done.returncode, 9, done.stdout + done.stderr)
            self.assertIn("image.width: asked for 60000, the camera has", done.stderr)
            self.assertIsNotNone(ring.next(PATIENCE_SECONDS))
            self.assertEqual(recording.stop(), 0)

    def test_needs_to_be_granted_another_run(self):
        with Place() as place, Camera(), Recording(place.configuration()) as recording:
            recording.wait_for_frames(1)
            done = self.set(place, "image.width=640")
            self.assertEqual(done.returncode, 7)
            self.assertIn("--another-run", done.stderr)
            self.assertEqual(recording.stop(), 0)


if __name__ == "__main__":
    unittest.main()
