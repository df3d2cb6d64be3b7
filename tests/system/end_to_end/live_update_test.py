# SPDX-License-Identifier: MIT
"""Changes during a recording: signals and reloads."""

import http.client
import json
import random
import re
import signal
import sys
import time
import unittest

from camera_process import Camera, feature
from recorder import Recording
from waiting import wait_for

CONFIGURATION = """
[image]
width = {width}
height = 96
format = "{format}"
[timing]
frame_rate_hz = {rate}
[tone]
enable = true
[exposure]
auto = "Off"
time_us = {exposure}
[log]
level = "info"
[memory]
export_buffers = 512
[run]
grace_time_s = 20
"""


def configuration(format="Mono8", rate=30.0, exposure=1000, width=128):
    return CONFIGURATION.format(format=format, rate=rate, exposure=exposure, width=width)


def used_range(pixels):
    """The distance between the 1st and the 99th percentile of the grey values."""
    ordered = sorted(pixels)
    return ordered[-len(ordered) // 100] - ordered[len(ordered) // 100]


def max_gap_seconds(frames):
    return max(b["timestamp_us"] - a["timestamp_us"] for a, b in zip(frames, frames[1:])) / 1e6


class DynamicLut(unittest.TestCase):
    def assert_in_order(self, log, *texts):
        position = 0
        for text in texts:
            position = log.find(text, position)
            self.assertGreaterEqual(position, 0, f"\"{text}\" is missing or too early in\n{log}")

    def record_with_signal(self, user_signal):
        """Records a dark scene of low contrast and sends the signal after 10 frames. The contrast must grow by a factor of 3.

        \\return the frame index and the log
        """
        with Camera("--scene", "dim") as camera, Recording(configuration()) as recording:
            recording.wait_for_frames(10)
            before = used_range(recording.pixels(recording.frame_index()[5]))
            recording.signal(user_signal)
            recording.wait_for_log("LUT handler exit")
            recording.wait_for_frames(len(recording.frame_index()) + 10)
            self.assertEqual(recording.stop(), 0, recording.log)
            frames = recording.frame_index()
            after = used_range(recording.pixels(frames[-1]))
            _, report = recording.verify(camera.truth_path)
            self.assertIn(" 0 different", report)
            self.assertGreaterEqual(after, 3 * before)
            return frames, recording.log

    def test_is_calculated_from_a_12_bit_image(self):
        frames, log = self.record_with_signal(signal.SIGUSR2)
        self.assert_in_order(log, "processing SIGUSR2...",
                      "...Switching to 12-bit mode for dynamic LUT calculation/applying...",
                      "Use pixel format: 'MONO12PT'",
                      "a new LUT was dynamically calculated...",
                      "...Switching back to 8-bit mode...",
                      "Use pixel format: 'MONO8T'",
                      "LUT handler exit (nValuesDev = 256, nCfgVals = 256",
                      "continue operation with new LUT (dynamically calculated)...")
        formats = [line["pixel_format"] for line in frames]
        self.assertEqual((formats[0], formats[-1]), ("Mono8", "Mono8"))
        self.assertLessEqual(max_gap_seconds(frames), 2)

    def test_is_calculated_from_an_8_bit_image(self):
        frames, log = self.record_with_signal(signal.SIGUSR1)
        self.assert_in_order(log, "processing SIGUSR1...", "a new LUT was dynamically calculated...", "LUT handler exit",
                      "continue operation with new LUT (dynamically calculated)...")
        self.assertNotIn("Switching", log)
        self.assertEqual({line["pixel_format"] for line in frames}, {"Mono8"})
        self.assertLessEqual(max_gap_seconds(frames), 2)


class TwelveBitRequest(unittest.TestCase):
    """SIGUSR2 on cameras that measure no image in 12 bits, and on a colour camera: the recording continues in the configured
    format."""

    REFUSED = "SIGUSR2 refused: the camera has no 12-bit format"

    def request(self, recording):
        recording.signal(signal.SIGUSR2)

    def expect_more_frames(self, recording, pixel_format):
        frames = len(recording.frame_index())
        wait_for(lambda: len([line for line in recording.frame_index()[frames:] if line["pixel_format"] == pixel_format]) >= 10,
                 f"ten frames in {pixel_format}")

    def record(self, pixel_format, *missing, page=False):
        options = [word for entry in missing for word in ("--missing-entry", f"PixelFormat={entry}")]
        camera = self.enterContext(Camera("--scene", "dim", *options))
        web = "[web]\naddress = \"127.0.0.1:0\"\n" if page else ""
        recording = self.enterContext(Recording(configuration(format=pixel_format) + web))
        recording.wait_for_frames(10)
        return camera, recording

    def finish(self, camera, recording, *formats):
        self.assertEqual(recording.stop(), 0, recording.log)
        seen = [line["pixel_format"] for line in recording.frame_index()]
        self.assertEqual([name for name, before in zip(seen, [None, *seen]) if name != before], list(formats))
        _, report = recording.verify(camera.truth_path)
        self.assertIn(" 0 different", report)

    def test_returns_to_a_colour_format(self):
        camera, recording = self.record("BayerRG8")
        self.request(recording)
        recording.wait_for_log("continue operation with new LUT (dynamically calculated)...")
        self.expect_more_frames(recording, "BayerRG8")
        self.finish(camera, recording, "BayerRG8", "Mono12Packed", "BayerRG8")

    def test_is_answered_in_8_bits_and_then_refused_by_a_monochrome_camera_without_12_bits(self):
        camera, recording = self.record("Mono8", "Mono12", "Mono12Packed")
        self.request(recording)
        recording.wait_for_log("SIGUSR2: the camera has refused the 12-bit format; this LUT is calculated from 8 bits")
        recording.wait_for_log("continue operation with new LUT (dynamically calculated)...")
        self.expect_more_frames(recording, "Mono8")
        self.request(recording)
        recording.wait_for_log(self.REFUSED)
        self.expect_more_frames(recording, "Mono8")
        self.finish(camera, recording, "Mono8")
        self.assertEqual(recording.log.count("processing SIGUSR2..."), 2)  # the second is the switch back

    def test_on_the_page_is_answered_with_the_reason(self):
        camera, recording = self.record("Mono8", "Mono12", "Mono12Packed", page=True)
        recording.wait_for_log("live page: ")
        port = int(re.search(r"live page: http://[^/]*:(\d+)", recording.log).group(1))
        self.assertEqual(self.post_lut(port),
                         (200, "a histogram-equalised LUT was calculated, from 8 bits: the camera has no 12-bit format"))
        self.expect_more_frames(recording, "Mono8")
        status, answer = self.post_lut(port)
        self.assertNotEqual(status, 200)
        self.assertEqual(answer, "no LUT is calculated: the camera has no 12-bit format; calculate it from 8 bits")
        self.finish(camera, recording, "Mono8")

    @staticmethod
    def post_lut(port):
        """Requests a LUT from 12 bits. \\return HTTP status and text of the response"""
        connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)
        connection.request("POST", "/control/lut", '{"12_bits": true}', {"Content-Type": "application/json"})
        response = connection.getresponse()
        answer = json.loads(response.read())["lines"][0]
        connection.close()
        return response.status, answer

    def test_is_refused_by_a_colour_camera_without_monochrome_formats(self):
        camera, recording = self.record("BayerRG8", "Mono8", "Mono12", "Mono12Packed")
        self.request(recording)
        recording.wait_for_log(self.REFUSED + "; recording continues in the configured format")
        self.expect_more_frames(recording, "BayerRG8")
        self.request(recording)
        recording.wait_for_log(self.REFUSED, times=2)
        self.expect_more_frames(recording, "BayerRG8")
        self.finish(camera, recording, "BayerRG8")


class ExposureReload(unittest.TestCase):
    def test_loses_no_frame(self):
        with Camera() as camera, Recording(configuration(rate=20.0)) as recording:
            recording.wait_for_frames(20)
            recording.configuration_path.write_text(configuration(rate=20.0, exposure=2000))
            recording.signal(signal.SIGHUP)
            wait_for(lambda: recording.frame_index()[-1]["exposure_us"] == 2000, "a frame with the new exposure")
            self.assertEqual(recording.stop(), 0, recording.log)
            self.assertEqual(recording.wrong_counters(camera), [])
            status, report = recording.verify(camera.truth_path)
            self.assertEqual(status, 0, report)


class SignalStress(unittest.TestCase):
    SIGNALS = 10_000
    WEIGHTS = {signal.SIGHUP: 30, signal.SIGUSR1: 30, signal.SIGUSR2: 30, signal.SIGTERM: 0.1, signal.SIGINT: 0.1}

    def test_every_stop_ends_the_recording_and_releases_the_camera(self):
        """Random signals come in quick succession before each stop."""
        chance = random.Random(4711)
        sent = runs = 0
        with Camera():
            while sent < self.SIGNALS:
                with Recording(configuration(rate=200.0)) as recording:
                    recording.wait_for_frames(1)
                    stopped = False
                    while not stopped:
                        kind, = chance.choices(list(self.WEIGHTS), list(self.WEIGHTS.values()))
                        stopped = kind in (signal.SIGTERM, signal.SIGINT) or sent + 1 == self.SIGNALS
                        recording.signal(signal.SIGTERM if stopped and sent + 1 == self.SIGNALS else kind)
                        sent += 1
                        time.sleep(chance.random() * 0.002)
                    self.assertEqual(recording.finish(), 0, recording.log[-5000:])
                    runs += 1
                self.assertEqual(feature("TLParamsLocked"), "0")
        print(f"{sent} signals, {runs} runs")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
