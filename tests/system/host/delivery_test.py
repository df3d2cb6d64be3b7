# SPDX-License-Identifier: MIT
"""Regions and frame rates that the camera does not deliver as configured: in the log, on the page, as metrics and in the summary."""

import json
import os
import re
import signal
import sys
import unittest

from camera_process import Camera
from host_process import Recording
from waiting import wait_for
from web_client import get

MGJAI = os.environ["MGJAI"]
PAGE = "[web]\naddress = \"127.0.0.1:0\"\n"
SUCCESS = 0


def page_port(recording):
    recording.wait_for_log("live page: ")
    return int(re.search(r"live page: http://[^/]*:(\d+)", recording.log).group(1))


def delivered(port):
    """The values of status.json by key, each as requested value, actual value and whether they differ."""
    values = json.loads(get(port, "/status.json")[1])["delivery"]
    return {one["key"]: (one["requested"], one["actual"], one["differs"]) for one in values}


def metric(port, name, **labels):
    """The value of a metric with these labels, besides those of the recording."""
    found = {}
    for line in get(port, "/metrics")[1].decode().split("\n"):
        match = re.fullmatch(r"(\w+)\{(.*)\} (\S+)", line)
        if match and match[1] == name:
            found = dict(re.findall(r'(\w+)="([^"]*)"', match[2]))
            del found["instance_number"], found["name"]
            if found == labels:
                return float(match[3])
    return None


class RecordingTest(unittest.TestCase):
    def stop(self, recording):
        recording.signal(signal.SIGTERM)
        self.assertEqual(recording.finish(), SUCCESS, recording.log)

    def assert_in_summary(self, log, text):
        self.assertIn(text, log[log.index("fetches without a frame"):])


class Delivery(RecordingTest):
    """With the scripted plug-in, whose frames come at an interval of the test."""

    def test_of_the_configured_values_is_not_reported(self):
        configuration = "timing.frame_rate_hz = 100\nimage.width = 64\nimage.height = 48\n" + PAGE
        with Recording("real_time; grab", configuration=configuration) as recording:
            port = page_port(recording)
            recording.wait_for_frames(1)
            wait_for(lambda: delivered(port)["timing.frame_rate_hz"][1] is not None, "a frame rate")
            self.assertEqual(delivered(port)["image.width"], (64, 64, False))
            self.assertEqual(delivered(port)["image.offset_x"], (None, None, False))
            self.assertEqual(metric(port, "mediagrabber_requested_value_differs", value="width"), 0)
            self.stop(recording)
            self.assertNotIn("but the camera deliver", recording.log)

    def test_of_fewer_frames_than_the_plugin_reports_is_reported(self):
        with Recording("real_time; grab 25", configuration="timing.frame_rate_hz = 100\n" + PAGE) as recording:
            port = page_port(recording)
            recording.wait_for_log("timing.frame_rate_hz: requested 100, but the camera delivers ")
            self.assertRegex(recording.log, r"warning.*timing\.frame_rate_hz: requested 100, but the camera delivers [1-9][\d.]*: reduce ")
            requested, actual, differs = delivered(port)["timing.frame_rate_hz"]
            self.assertTrue(differs)
            self.assertEqual(requested, 100)
            self.assertLess(actual, 41)
            self.assertEqual(metric(port, "mediagrabber_frame_rate_requested_hertz"), 100)
            self.assertLess(metric(port, "mediagrabber_frame_rate_actual_hertz"), 41)
            self.assertEqual(metric(port, "mediagrabber_requested_value_differs", value="frame_rate"), 1)
            self.stop(recording)
            self.assert_in_summary(recording.log, "timing.frame_rate_hz: requested 100, but the camera delivered ")

    def test_of_another_region_is_reported_once_per_run_and_change(self):
        requested = "image.width: requested {}, but the camera delivers 64: configure image.width = 64, or a region"
        with Recording("grab\ngrab", configuration="image.width = 65\n" + PAGE) as recording:
            port = page_port(recording)
            recording.wait_for_log(requested.format(65))
            recording.configure("image.width = 66\n" + PAGE)
            recording.signal(signal.SIGHUP)
            recording.wait_for_log(requested.format(66))
            frames = len(recording.frame_index())
            recording.wait_for_frames(frames + 5)
            self.assertEqual(delivered(port)["image.width"], (66, 64, True))
            self.assertEqual(metric(port, "mediagrabber_region_requested_pixels", value="width"), 66)
            self.assertEqual(metric(port, "mediagrabber_region_actual_pixels", value="width"), 64)
            self.stop(recording)
            self.assertEqual(recording.log.count("but the camera delivers"), 2, recording.log)
            self.assert_in_summary(recording.log, "image.width: requested 66, but the camera delivered 64\n")


class DeliveryWithCamera(RecordingTest):
    def record(self, configuration, *arguments):
        return self.enterContext(Recording("", *arguments, configuration=configuration, plugin=MGJAI))

    def test_of_the_configured_values_is_not_reported(self):
        with Camera():
            recording = self.record("[image]\nwidth = 640\nheight = 480\noffset_x = 200\noffset_y = 102\n"
                                    "[timing]\nframe_rate_hz = 50\n" + PAGE)
            port = page_port(recording)
            recording.wait_for_frames(1)
            wait_for(lambda: delivered(port)["image.offset_x"][1] is not None, "the offsets")
            values = delivered(port)
            self.assertEqual(values["image.width"], (640, 640, False))
            self.assertEqual(values["image.height"], (480, 480, False))
            self.assertEqual(values["image.offset_x"], (200, 200, False))
            self.assertEqual(values["image.offset_y"], (102, 102, False))
            self.assertEqual(values["timing.frame_rate_hz"], (50, 50, False))
            self.stop(recording)
            self.assertNotIn("but the camera deliver", recording.log)

    def test_of_a_refused_region_is_reported(self):
        # The width is not a multiple of 8. The plug-in refuses the region as a whole.
        with Camera():
            recording = self.record("[image]\nwidth = 645\nheight = 480\noffset_x = 200\noffset_y = 102\n"
                                    "[output]\nformat = \"none\"\n")
            for key in ("image.width: requested 645", "image.offset_x: requested 200", "image.offset_y: requested 102"):
                recording.wait_for_log(f"{key}, but the camera delivers ")
            self.stop(recording)
            self.assert_in_summary(recording.log, "image.width: requested 645, but the camera delivered ")
            self.assert_in_summary(recording.log, "image.offset_x: requested 200, but the camera delivered 0\n")

    def test_of_a_rate_that_the_region_does_not_allow_is_reported(self):
        with Camera():
            recording = self.record("[image]\nwidth = 64\nheight = 1024\n[timing]\nframe_rate_hz = 1000\n"
                                    "[exposure]\nauto = \"Off\"\ntime_us = 500\n[output]\nformat = \"none\"\n")
            recording.wait_for_log("timing.frame_rate_hz: requested 1000, but the camera delivers ")
            self.assertRegex(recording.log, r"delivers [1-9]\d+(\.\d+)?: reduce image\.height, exposure\.time_us or ")
            self.stop(recording)
            self.assert_in_summary(recording.log, "timing.frame_rate_hz: requested 1000, but the camera delivered ")

    def test_of_a_rate_that_the_exposure_time_does_not_allow_is_reported(self):
        with Camera():
            recording = self.record("[image]\nwidth = 64\nheight = 64\n[timing]\nframe_rate_hz = 100\n"
                                    "[exposure]\nauto = \"Off\"\ntime_us = 20000\n")
            recording.wait_for_log("timing.frame_rate_hz: requested 100, but the camera delivers ")
            self.assertIn("the exposure time of 20000 us is longer than the frame period of 10000 us", recording.log)
            self.stop(recording)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
