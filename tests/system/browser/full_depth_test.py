# SPDX-License-Identifier: MIT
"""Frames in full depth, tiles and the stream of the web server, read by programs that are not ours."""

import io
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import cv2
import mediagrabber
import numpy
from camera_process import Camera
from PIL import Image
from recorder import Recording
from waiting import wait_for
from web_client import get

WIDTH, HEIGHT = 200, 160
STREAMED = 10  # images

CONFIGURATION = """
[image]
width = {width}
height = {height}
format = "{pixel_format}"
[timing]
frame_rate_hz = 20.0
[web]
address = "127.0.0.1:0"
[output]
format = "raw"
"""


def start(test, pixel_format):
    """\\return a recording and the port of its page"""
    test.enterContext(Camera())
    recording = test.enterContext(Recording(CONFIGURATION.format(width=WIDTH, height=HEIGHT, pixel_format=pixel_format)))
    recording.wait_for_log("live page: ")
    recording.wait_for_frames(1)
    return recording, int(re.search(r"live page: http://127.0.0.1:(\d+)/", recording.log).group(1))


def image_of(body):
    """The pixels of a file, as Pillow reads them."""
    return numpy.asarray(Image.open(io.BytesIO(body)))


class FullDepth(unittest.TestCase):
    """Compares what the web server returns with the recorded frame of the same number."""

    def setUp(self):
        self.answers = {}

    def fetch(self, port, path, kind):
        response, body = get(port, path)
        self.assertEqual(response.status, 200, body)
        self.answers[kind] = (int(response.getheader("X-Frame")), body)
        return response

    def recorded(self, recording, number):
        frames = mediagrabber.open_recording(recording.output)
        wait_for(lambda: frames.refresh() >= 0 and number in frames.index["frame"], f"frame {number} in the recording")
        position, = numpy.flatnonzero(frames.index["frame"] == number)
        return frames[int(position)]

    def check(self, pixel_format, dtype):
        recording, port = start(self, pixel_format)
        self.fetch(port, "/frame.tif?colour=raw", "tif")
        self.fetch(port, "/frame.png?colour=raw", "png")
        tile = self.fetch(port, "/tile.raw?x=30&y=20&width=64&height=50", "tile")
        self.fetch(port, f"/tile.raw?x=0&y=0&width={WIDTH}&height={HEIGHT}&by=8&frame={tile.getheader('X-Frame')}", "blocks")
        self.assertEqual(self.answers["blocks"][0], self.answers["tile"][0])
        self.assertEqual(tile.getheader("X-Pixel-Format"), pixel_format)
        for kind in ("tif", "png"):
            number, body = self.answers[kind]
            pixels = image_of(body)
            numpy.testing.assert_array_equal(pixels, self.recorded(recording, number), kind)
        number, body = self.answers["tile"]
        frame = self.recorded(recording, number)
        numpy.testing.assert_array_equal(numpy.frombuffer(body, dtype).reshape(50, 64), frame[20:70, 30:94])
        blocks = frame.reshape(HEIGHT // 8, 8, WIDTH // 8, 8).max(axis=(1, 3))
        numpy.testing.assert_array_equal(numpy.frombuffer(self.answers["blocks"][1], dtype).reshape(blocks.shape), blocks)
        return recording, port

    def test_of_8_bits(self):
        self.check("Mono8", "<u1")

    def test_of_12_bits(self):
        self.check("Mono12", "<u2")

    def test_of_12_packed_bits(self):
        recording, port = self.check("Mono12Packed", "<u2")
        self.fetch(port, "/frame.png?bits=8", "shown")
        number, body = self.answers["shown"]
        numpy.testing.assert_array_equal(image_of(body), self.recorded(recording, number) >> 4)

    def test_of_a_bayer_pattern(self):
        recording, port = self.check("BayerRG8", "<u1")
        self.fetch(port, "/frame.tif", "colours")
        number, body = self.answers["colours"]
        pixels, frame = image_of(body), self.recorded(recording, number)
        self.assertEqual(pixels.shape, (HEIGHT, WIDTH, 3))
        for y, x, channel in ((0, 0, 0), (0, 1, 1), (1, 0, 1), (1, 1, 2)):  # the measured values are unchanged
            numpy.testing.assert_array_equal(pixels[y::2, x::2, channel], frame[y::2, x::2])


class Stream(unittest.TestCase):
    def setUp(self):
        self.recording, port = start(self, "Mono8")
        self.url = f"http://127.0.0.1:{port}/stream.mjpg"

    def check(self, images):
        """Each of them is another frame of the recording."""
        self.assertGreaterEqual(len(images), STREAMED)
        self.assertEqual(len({image.tobytes() for image in images}), len(images), "an image was sent twice")
        self.assertEqual(self.recording.stop(), 0, self.recording.log)

    def test_is_read_by_gstreamer(self):
        directory = self.enterContext(tempfile.TemporaryDirectory())
        output = pathlib.Path(directory) / "images"
        subprocess.run(["gst-launch-1.0", "-q", "souphttpsrc", f"location={self.url}", "!", "multipartdemux",
                        "!", "jpegdec", "!", "videoconvert", "!", "video/x-raw,format=GRAY8", "!", "identity",
                        f"eos-after={STREAMED + 1}", "!", "filesink", f"location={output}"], check=True, timeout=120)
        self.check(list(numpy.fromfile(output, numpy.uint8).reshape(-1, HEIGHT, WIDTH)))

    def test_is_read_by_opencv(self):
        stream = cv2.VideoCapture(self.url)
        self.addCleanup(stream.release)
        images = []
        while len(images) < STREAMED:
            read, image = stream.read()
            self.assertTrue(read, self.recording.log)
            self.assertEqual(image.shape, (HEIGHT, WIDTH, 3))
            images.append(image)
        self.check(images)

    def test_is_read_by_vlc(self):
        directory = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        directory.chmod(0o777)
        # VLC refuses to run as root.
        command = ["unshare", "--user", "vlc", "--intf", "dummy", "--vout", "dummy", "--no-audio", "--no-video-title-show",
                   "--video-filter", "scene", "--scene-format", "png", "--scene-ratio", "1", "--scene-path", directory, self.url]

        def images():
            """By content: VLC shows the first ones repeatedly until its clock runs. The last file may be incomplete."""
            return {path.read_bytes() for path in sorted(directory.glob("*.png"))[:-1]}
        with subprocess.Popen(command, env={"HOME": str(directory), "PATH": "/usr/bin"}) as player:
            try:
                wait_for(lambda: len(images()) >= STREAMED, "images of VLC")
            finally:
                player.terminate()
        self.check([image_of(content) for content in images()])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
