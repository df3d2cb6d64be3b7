"""The operator changes his mind while frames flow."""

import random
import re
import signal
import sys
import time
import unittest

from camera_process import Camera, arv_control, feature, wait_for
from recorder import Recording

CONFIGURATION = """
[image]
width = {width}
height = 96
format = "{format}"
convert_to = "{convert_to}"
rotate = {rotate}
[timing]
frame_rate = {rate}
[tone]
enable = true
[exposure]
mode = "manual"
time_us = {exposure}
[log]
level = "info"
[run]
grace_time_s = 20
"""


def configuration(format="mono8", convert_to="none", rotate=0, rate=30.0, exposure=1000, width=128):
    return CONFIGURATION.format(format=format, convert_to=convert_to, rotate=rotate, rate=rate, exposure=exposure,
                                width=width)


def used_range(pixels):
    """From the darkest to the brightest grey value, one pixel in 100 at either end left out."""
    ordered = sorted(pixels)
    return ordered[-len(ordered) // 100] - ordered[len(ordered) // 100]


def longest_gap_seconds(journal):
    return max(b["timestamp_us"] - a["timestamp_us"] for a, b in zip(journal, journal[1:])) / 1e6


class DynamicLut(unittest.TestCase):
    def in_order(self, log, *texts):
        place = 0
        for text in texts:
            place = log.find(text, place)
            self.assertGreaterEqual(place, 0, f"\"{text}\" is not there, or too early, in\n{log}")

    def brightened(self, user_signal):
        """Records a dark, flat scene; the signal comes after 10 frames, and 60 more are waited for."""
        with Camera("--scene", "dim") as camera, Recording(configuration()) as recording:
            recording.wait_for_frames(10)
            before = used_range(recording.pixels(recording.journal()[5]))
            recording.signal(user_signal)
            recording.wait_for_log("LUT handler exit")
            recording.wait_for_frames(len(recording.journal()) + 10)
            self.assertEqual(recording.stop(), 0, recording.log)
            journal = recording.journal()
            after = used_range(recording.pixels(journal[-1]))
            status, words = recording.compare(camera.truth_path)
            self.assertIn(" 0 different", words)
            self.assertGreaterEqual(after, 3 * before)
            return journal, recording.log

    def test_by_way_of_12_bits(self):
        journal, log = self.brightened(signal.SIGUSR2)
        self.in_order(log, "processing SIGUSR2...",
                      "...Switching to 12-bit mode for dynamic LUT calculation/applying...",
                      "Use pixel format: 'MONO12PT'",
                      "a new LUT was dynamically calculated...",
                      "...Switching back to 8-bit mode...",
                      "Use pixel format: 'MONO8T'",
                      "LUT handler exit (nValuesDev = 256, nCfgVals = 256",
                      "continue operation with new LUT (dynamically calculated)...")
        formats = [line["format"] for line in journal]
        self.assertEqual((formats[0], formats[-1]), ("MONO8T", "MONO8T"))
        self.assertLessEqual(longest_gap_seconds(journal), 2)

    def test_in_place(self):
        journal, log = self.brightened(signal.SIGUSR1)
        self.in_order(log, "processing SIGUSR1...", "a new LUT was dynamically calculated...", "LUT handler exit",
                      "continue operation with new LUT (dynamically calculated)...")
        self.assertNotIn("Switching", log)
        self.assertEqual({line["format"] for line in journal}, {"MONO8T"})
        self.assertLessEqual(longest_gap_seconds(journal), 2)


class Reload(unittest.TestCase):
    def test_of_the_exposure_loses_no_frame(self):
        with Camera() as camera, Recording(configuration(rate=100.0)) as recording:
            recording.wait_for_frames(20)
            recording.configuration_path.write_text(configuration(rate=100.0, exposure=2000))
            recording.signal(signal.SIGHUP)
            wait_for(lambda: recording.journal()[-1]["exposure_us"] == 2000, "a frame with the new exposure")
            self.assertEqual(recording.stop(), 0, recording.log)
            counters = [line["counter"] for line in recording.journal()]
            self.assertEqual(counters, list(range(counters[0], counters[0] + len(counters))))
            status, words = recording.compare(camera.truth_path)
            self.assertEqual(status, 0, words)


class Frames(unittest.TestCase):
    def check(self, text, *options):
        with Recording(text, "--frames", "5") as recording:
            with Camera() as camera:
                self.assertEqual(recording.finish(), 0, recording.log)
                wait_for(lambda: len(camera.frames_so_far()) >= 6, "the truth of all frames")
                status, words = recording.compare(camera.truth_path, *options)
            self.assertEqual(status, 0, words)
            self.assertIn("5 frames identical", words)
            return recording.journal()

    def test_are_turned(self):
        for pixel_format in ("mono8", "mono12p", "mono12", "bayer_rg8"):
            with self.subTest(format=pixel_format):
                self.check(configuration(pixel_format, rotate=180), "--turned")

    def test_are_converted(self):
        codecs = {"mono8": "MONO8T", "mono12p": "MONO12PT", "mono12": "MONO12T"}
        for source in (*codecs, "bayer_rg8"):
            for target, codec in codecs.items():
                with self.subTest(source=source, target=target):
                    journal = self.check(configuration(source, convert_to=target))
                    self.assertEqual({line["format"] for line in journal}, {codec})

    def test_are_turned_and_converted(self):
        self.check(configuration("bayer_rg8", convert_to="mono12p", rotate=180), "--turned")


class Storm(unittest.TestCase):
    SIGNALS = 10_000
    KINDS = {signal.SIGHUP: 30, signal.SIGUSR1: 30, signal.SIGUSR2: 30, signal.SIGTERM: 0.1, signal.SIGINT: 0.1}

    def test_of_signals_is_weathered(self):
        """Every stop ends a run in good order, whatever was asked for before it, and leaves a camera that is free."""
        chance = random.Random(4711)
        sent = runs = 0
        with Camera():
            while sent < self.SIGNALS:
                with Recording(configuration(rate=200.0)) as recording:
                    recording.wait_for_frames(1)
                    stopped = False
                    while not stopped:
                        kind, = chance.choices(list(self.KINDS), list(self.KINDS.values()))
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
