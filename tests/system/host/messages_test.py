# SPDX-License-Identifier: MIT
"""The plug-in's messages about refused values are those that docs/guide/troubleshooting.md explains."""

import os
import pathlib
import re
import sys
import unittest

from camera_process import Camera, StandardCamera
from host_process import Recording

MGJAI = os.environ["MGJAI"]
GUIDE = pathlib.Path(__file__).parents[3] / "docs" / "guide" / "troubleshooting.md"
REGION = "[image]\nwidth = 320\nheight = 240\n"
EXPOSURE = REGION + "[exposure]\nauto = \"Off\"\ntime_us = {}\n"
GAIN = REGION + "[gain]\nauto = \"Off\"\ndb = {}\n"
SUCCESS = 0


class TroubleshootingGuide(unittest.TestCase):
    def expect(self, configuration, *messages, camera=None):
        """Each message is in the guide, with capital letters for values, and in the log, with values for the letters."""
        guide = GUIDE.read_text()
        with camera or Camera(), Recording("", "--frames", 3, configuration=configuration, plugin=MGJAI) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
        for message in messages:
            self.assertIn(f"`{message}`", guide)
            value = re.sub(r"(?<=:)<?[A-Z]\b>?", "VALUE", message)
            pattern = re.escape(value).replace("VALUE", r"[^ ,)]+")
            self.assertRegex(recording.log, rf"(?m)^\[\w+:\w\]: {pattern}$")

    def test_names_a_refused_exposure_time(self):
        for value in (90e6, 0.5):
            self.expect(EXPOSURE.format(value), "fail: name:ExposureTime, value:V, soft-min:A, soft-max:B", "fail: validate")

    def test_names_a_refused_gain(self):
        for value in (50, -5):
            self.expect(GAIN.format(value), "fail: name:Gain, value:V, soft-min:A, soft-max:B", "fail: validate")

    def test_names_a_refused_frame_rate(self):
        self.expect(REGION + "[timing]\nframe_rate_hz = 90000\n",
                    "fail: name:AcquisitionFrameRate, value:V, soft-min:A, soft-max:B", "fail: validate")

    def test_names_refused_limits(self):
        self.expect(REGION + "[exposure]\nauto = \"Continuous\"\nlimits_us = [1, 1000]\n",
                    "fail: name:AutoShutterControlExposureMin, value:V, soft-min:A, soft-max:B",
                    "fail: auto_exposure_min_param::validate")
        self.expect(REGION + "[gain]\nauto = \"Continuous\"\nlimits_db = [-5, 12]\n",
                    "fail: name:AutoGainControlGainRawMin, value:V, soft-min:A, soft-max:B",
                    "fail: auto_gain_min_param::validate")

    def test_names_a_refused_write(self):
        self.expect(GAIN.format(3), "fail: PvGenParameterArray::SetFloatValue (name:N, value:V, result:<R>)",
                    camera=Camera("--refuse-write", "Gain"))

    def test_names_a_refused_region(self):
        image = "[image]\nheight = 240\nwidth = {}\noffset_x = {}\n"
        self.expect(image.format(9000, 0), "fail: name:Width, value:V, soft-min:A, soft-max:B", "fail: sensor_w_param::validate")
        self.expect(image.format(325, 0), "fail: name:Width, value:V, hard-min:A, soft-inc:I", "fail: sensor_w_param::validate")
        self.expect(image.format(2000, 1000), "fail: validate (sensor-x:X, sensor-w:W, sensor-w-max:M)")

    def test_names_a_region_that_the_limits_of_the_camera_exclude(self):
        self.expect("[image]\nwidth = 320\nheight = 240\noffset_x = 96\n",
                    "fail: params_error (name:OffsetX, value:V, hard-max:M)", camera=StandardCamera())


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
