# SPDX-License-Identifier: MIT
"""gevctl action."""

import time
import unittest

from camera_process import Camera, Cameras
from gevctl import NO_CAMERA, REFUSED, USAGE, gevctl, gevctl_json
from gvcp import ACTION_DEVICE_KEY, ACTION_GROUP_KEY, ACTION_GROUP_MASK, Application, Stream, feature_addresses, timestamp

ACTION1 = 2  # of TriggerSource
KEYS = ("--device-key", "1", "--group-key", "2", "--mask", "4")


def prepare(camera):
    """Takes control and sets the keys. \\return the application"""
    application = Application(camera)
    application.take_control()
    for address, value in ((ACTION_DEVICE_KEY, 1), (ACTION_GROUP_KEY, 2), (ACTION_GROUP_MASK, 6)):
        assert application.write(address, value) == 0
    return application


class Action(unittest.TestCase):
    def test_lists_the_acknowledge_of_each_camera(self):
        with Camera("--serial", "S1"), Camera("--serial", "S2", "--address", "127.0.0.2"), \
                prepare("127.0.0.1"), prepare("127.0.0.2"):
            found = gevctl_json("action", *KEYS)
            self.assertIn("accepted", gevctl("action", *KEYS))
        self.assertEqual({(one["camera"], one["status"]) for one in found},
                         {("GO-5100M-PGE S1 (127.0.0.1)", 0), ("GO-5100M-PGE S2 (127.0.0.2)", 0)})

    def test_triggers_a_frame(self):
        with Camera("--sensor", "640x480") as camera, prepare("127.0.0.1") as application, Stream() as stream:
            stream.open(application)
            # The features are written over the connection that has control.
            addresses = feature_addresses(camera.description())
            for name, value in (("TriggerMode", 1), ("TriggerSource", ACTION1), ("AcquisitionStart", 1)):
                self.assertEqual(application.write(addresses[name], value), 0)
            self.assertTrue(stream.is_silent())
            gevctl("action", *KEYS)
            stream.block()

    def test_triggers_cameras_with_synchronised_clocks_at_the_same_time(self):
        with Cameras(2, "--ptp", "--sensor", "640x480") as cameras, Stream() as first, Stream() as second:
            for address in cameras.addresses:
                gevctl("set", address, "PtpEnable=true", "TriggerMode=On", "TriggerSource=Action1")
            start = feature_addresses(gevctl("xml", cameras.addresses[0]))["AcquisitionStart"]
            with prepare(cameras.addresses[0]) as one, prepare(cameras.addresses[1]) as two:
                for application, stream in ((one, first), (two, second)):
                    stream.open(application)
                    self.assertEqual(application.write(start, 1), 0)
                exposure = time.time_ns() + 500_000_000
                self.assertEqual([each["result"] for each in gevctl_json("action", *KEYS, "--at", exposure)], ["accepted"] * 2)
                times = [timestamp(stream.block()[1]) for stream in (first, second)]
        # Less than what a network or a busy machine may delay a command by.
        for each in times:
            self.assertAlmostEqual(each, exposure, delta=1000)

    def test_reports_a_time_that_has_passed(self):
        with Camera(), prepare("127.0.0.1"):
            self.assertIn("the time of the action has passed", gevctl("action", *KEYS, "--at", "1", status=REFUSED))

    def test_reports_a_camera_without_a_program_in_control(self):
        with Camera():
            with prepare("127.0.0.1") as application:
                application.write(0x0A00, 0)
            self.assertIn("access is denied", gevctl("action", *KEYS, status=REFUSED))

    def test_reports_that_no_camera_has_the_keys(self):
        with Camera(), prepare("127.0.0.1"):
            self.assertIn("no camera acknowledged", gevctl("action", "--device-key", "9", "--group-key", "2", "--mask", "4",
                                                          status=NO_CAMERA))

    def test_refuses_an_interface_that_does_not_exist(self):
        self.assertIn('no network interface "eth9"', gevctl("action", *KEYS, "--interface", "eth9", status=USAGE))

    def test_requires_the_keys(self):
        gevctl("action", "--device-key", "1", status=USAGE)


if __name__ == "__main__":
    unittest.main()
