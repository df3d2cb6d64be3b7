# SPDX-License-Identifier: MIT
"""Programs that read frames from the frame ring during a recording."""

import os
import pathlib
import stat
import subprocess
import sys
import tempfile
import unittest

import numpy
from mediagrabber import FrameRing, RingError

from camera_process import Camera
from recorder import Recording
from recording_process import MEDIAGRABBER
from tiff_strip import read_strip
from waiting import wait_for

FRAME_BRIGHTNESS = os.environ["FRAME_BRIGHTNESS"]
EXAMPLES = pathlib.Path(os.environ["EXAMPLES"])
TIMEOUT_SECONDS = 60

CONFIGURATION = """
[image]
width = 320
height = 240
format = "{format}"
[timing]
frame_rate_hz = 50.0
[memory]
export_buffers = 200
[ring]
socket = "{socket}"
[control]
socket = "{control}"
"""


class Sockets:
    """The paths of the ring socket and the control socket of a recording."""

    def __enter__(self):
        self.directory = tempfile.TemporaryDirectory()
        root = pathlib.Path(self.directory.name)
        self.ring, self.control = root / "ring", root / "control"
        return self

    def __exit__(self, *_):
        self.directory.cleanup()

    def configuration(self, pixel_format="Mono8"):
        return CONFIGURATION.format(format=pixel_format, socket=self.ring, control=self.control)

    def connect(self):
        """\\return the ring, once a recording listens"""
        return FrameRing(self.ring, connect_timeout=TIMEOUT_SECONDS)


def line_of(recording, frame):
    """Waits for a frame's line of the frame index and returns it."""
    return wait_for(lambda: next((line for line in recording.frame_index() if line["frame"] == frame.number), None),
                    f"frame {frame.number} in the frame index")


class Readers(unittest.TestCase):
    def test_get_the_frames_that_are_saved(self):
        with Sockets() as sockets, Camera(), Recording(sockets.configuration()) as recording, sockets.connect() as ring:
            for _ in range(20):
                frame = ring.next(TIMEOUT_SECONDS)
                pixels = frame.pixels.copy()
                self.assertTrue(ring.is_there(frame))
                line = line_of(recording, frame)
                self.assertEqual(pixels.tobytes(), recording.pixels(line))
                self.assertEqual((frame.timestamp_us, frame.ticks, frame.gain_db, frame.pixel_format),
                                 (line["timestamp_us"], line["ticks"], line["gain_db"], line["pixel_format"]))
            self.assertEqual(recording.stop(), 0)

    def test_and_recording_both_get_every_frame(self):
        with Sockets() as sockets, Camera(), Recording(sockets.configuration(), "--frames", 200) as recording:
            with sockets.connect() as ring:
                numbers = [frame.number for frame in ring if frame.pixels.mean() > 0 and ring.is_there(frame)]
                self.assertEqual(ring.overtaken, 0)
            self.assertEqual(recording.finish(), 0)
            self.assertEqual(numbers, list(range(numbers[0], 201)))
            self.assertEqual(len(recording.frame_index()), 200)

    def test_get_12_bit_pixels_as_16_bit_values(self):
        with Sockets() as sockets, Camera(), Recording(sockets.configuration("Mono12")) as recording, sockets.connect() as ring:
            frame = ring.next(TIMEOUT_SECONDS)
            self.assertEqual((frame.pixels.dtype, frame.pixels.shape), (numpy.dtype("<u2"), (240, 320)))
            self.assertGreater(frame.pixels.max(), 255)
            self.assertLess(frame.pixels.max(), 4096)
            self.assertEqual(recording.stop(), 0)

    def test_unpack_packed_pixels(self):
        with Sockets() as sockets, Camera(), Recording(sockets.configuration("Mono12Packed")) as recording, sockets.connect() as ring:
            frame = ring.next(TIMEOUT_SECONDS)
            pixels = frame.unpacked()
            self.assertTrue(ring.is_there(frame))
            self.assertEqual((frame.pixels.shape, pixels.shape, pixels.dtype), ((240, 480), (240, 320), numpy.dtype("<u2")))
            saved = read_strip(recording.output / line_of(recording, frame)["file"])  # unpacked by mediagrabber
            self.assertEqual(pixels.tobytes(), saved)
            self.assertEqual(recording.stop(), 0)

    def test_in_c_get_the_same_frames(self):
        self.check_example([FRAME_BRIGHTNESS])

    def test_in_python_get_the_same_frames(self):
        self.check_example([sys.executable, EXAMPLES / "frame_brightness.py"])

    def check_example(self, command):
        with Sockets() as sockets, Camera(), Recording(sockets.configuration()) as recording:
            with sockets.connect():
                pass
            done = subprocess.run([*command, sockets.ring, "20"], capture_output=True, text=True, timeout=TIMEOUT_SECONDS)
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertEqual(done.stderr, "20 frames, 0 overtaken\n")
            self.assertEqual(recording.stop(), 0)  # the ring has a frame before it is saved
            for number, timestamp, mean in map(str.split, done.stdout.splitlines()):
                line = next(line for line in recording.frame_index() if line["frame"] == int(number))
                self.assertEqual(int(timestamp), line["timestamp_us"])
                pixels = numpy.frombuffer(recording.pixels(line), numpy.uint8)
                self.assertAlmostEqual(float(mean), pixels.mean(), places=2)

    def test_that_stop_reading_do_not_disturb_others(self):
        with Sockets() as sockets, Camera(), Recording(sockets.configuration(), "--frames", 150) as recording:
            with sockets.connect() as idle, sockets.connect() as ring:
                idle.next(TIMEOUT_SECONDS)
                read = sum(1 for _ in ring)
                self.assertEqual(ring.overtaken, 0)
                self.assertGreater(read, 100)
            self.assertEqual(recording.finish(), 0)

    def test_may_be_those_of_a_group(self):
        for group, mode in (("", 0o600), ("group = \"root\"", 0o660)):  # the only group of the namespace that this test has
            with self.subTest(group), Sockets() as sockets, Camera():
                configuration = sockets.configuration().replace("[control]", f"{group}\n[control]")
                with Recording(configuration), sockets.connect() as ring:
                    self.assertEqual(stat.S_IMODE(sockets.ring.stat().st_mode), mode)
                    self.assertTrue(ring.next(TIMEOUT_SECONDS))

    def test_get_an_error_without_a_recording(self):
        done = subprocess.run([FRAME_BRIGHTNESS, "/nowhere/ring"], capture_output=True, text=True, timeout=TIMEOUT_SECONDS)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr, "/nowhere/ring: No such file or directory\n")
        with self.assertRaisesRegex(RingError, "^/nowhere/ring: no frames .* start a recording"):
            FrameRing("/nowhere/ring")


class PluginLog(unittest.TestCase):
    """With viewers mediagrabber also reads the plug-in's log. The configured log level still decides what is printed."""

    def log_of(self, level):
        with Sockets() as sockets, Camera():
            with Recording(sockets.configuration() + f"[log]\nlevel = \"{level}\"\n", "--frames", 5) as recording:
                self.assertEqual(recording.finish(), 0)
                return recording.log

    def test_is_printed_at_the_configured_level(self):
        self.assertIn("START GRABBING", self.log_of("info"))
        self.assertNotIn("[MG_JAI_", self.log_of("warning"))


class RegionChange(unittest.TestCase):
    """A changed region restarts the acquisition and replaces the shared memory. Readers stay connected."""

    def set(self, sockets, *settings):
        return subprocess.run([MEDIAGRABBER, "set", "--socket", str(sockets.control), "--timeout", "30", *settings],
                              capture_output=True, text=True, timeout=TIMEOUT_SECONDS)

    def test_reaches_a_connected_reader(self):
        with Sockets() as sockets, Camera(), Recording(sockets.configuration()) as recording, sockets.connect() as ring:
            self.assertEqual(ring.next(TIMEOUT_SECONDS).pixels.shape, (240, 320))
            done = self.set(sockets, "--restart", "image.width=640", "image.height=480")
            self.assertEqual((done.returncode, done.stdout), (0, "image.width = 640\nimage.height = 480\n"), done.stderr)
            while (frame := ring.next(TIMEOUT_SECONDS)).pixels.shape != (480, 640):
                pass
            pixels = frame.pixels.copy()
            self.assertTrue(ring.is_there(frame))
            self.assertEqual(pixels.tobytes(), recording.pixels(line_of(recording, frame)))
            self.assertEqual(recording.stop(), 0)

    def test_that_the_camera_refuses_is_rolled_back(self):
        with Sockets() as sockets, Camera(), Recording(sockets.configuration()) as recording, sockets.connect() as ring:
            ring.next(TIMEOUT_SECONDS)
            done = self.set(sockets, "--restart", "image.width=60000")
            self.assertEqual(done.returncode, 9, done.stdout + done.stderr)
            self.assertIn("image.width: requested 60000, but the camera has", done.stderr)
            self.assertIsNotNone(ring.next(TIMEOUT_SECONDS))
            self.assertEqual(recording.stop(), 0)

    def test_needs_permission_to_restart(self):
        with Sockets() as sockets, Camera(), Recording(sockets.configuration()) as recording:
            recording.wait_for_frames(1)
            done = self.set(sockets, "image.width=640")
            self.assertEqual(done.returncode, 7)
            self.assertIn("--restart", done.stderr)
            self.assertEqual(recording.stop(), 0)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
