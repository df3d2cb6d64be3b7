# SPDX-License-Identifier: MIT
"""Automatic gain and exposure, configured by Aravis and measured on received images."""

import unittest

import gvcp
from camera_process import CAMSIM, Camera, arv_control, run, undisturbed_frames, wait_for
from gvcp import Application, Stream

ADDRESSES = gvcp.feature_addresses(run(CAMSIM, "--print-xml"))
FRAMES_TO_SETTLE = 60


def mean_of(packets):
    pixels = b"".join(packets[number][1] for number in range(1, len(packets) - 1))
    return sum(pixels) / len(pixels)


def means(application, stream, frames):
    """\\return block IDs and means of the first `frames` Mono8 frames of an acquisition"""
    stream.open(application)
    assert application.write(gvcp.PACKET_SIZE, 1500) == gvcp.SUCCESS
    assert application.write(ADDRESSES["AcquisitionStart"], 1) == gvcp.SUCCESS
    return [(block, mean_of(packets)) for block, packets in (stream.block() for _ in range(frames))]


class LevelControl(unittest.TestCase):
    def check(self, reference, settings, *options):
        with Camera(*options) as camera, Application() as application, Stream() as stream:
            output = arv_control("Width=320", "Height=192", "AcquisitionFrameRate=50", f"ALCReference={reference}",
                                  *settings)
            self.assertNotIn("rror", "".join(output))
            application.take_control()
            measured = means(application, stream, FRAMES_TO_SETTLE + 60)
        target = 255 * reference / 100
        undisturbed = {frame["block_id"] for frame in undisturbed_frames(camera.truth_frames)}
        settled = [mean for block, mean in measured[FRAMES_TO_SETTLE:] if block in undisturbed]
        self.assertGreaterEqual(len(settled), 10)
        for mean in settled:
            self.assertAlmostEqual(mean, target, delta=0.05 * target)
        return [mean for _, mean in measured], camera

    def test_brightens_a_dark_image_by_exposure(self):
        measured, camera = self.check(40, ["ExposureTime=20", "ExposureAuto=Continuous"])
        self.assertLess(measured[0], 10)
        self.assertEqual({frame["gain"] for frame in camera.truth_frames}, {1.0})

    def test_darkens_a_bright_image_by_gain(self):
        measured, camera = self.check(60, ["ExposureTime=500", "Gain=16", "GainAuto=Continuous"])
        self.assertGreater(measured[0], 200)
        self.assertEqual({frame["exposure_us"] for frame in camera.truth_frames}, {500.0})

    def test_uses_both_within_their_limits_in_a_dim_scene(self):
        _, camera = self.check(50, ["ExposureAuto=Continuous", "GainAuto=Continuous",
                                    "AutoShutterControlExposureMin=100", "AutoShutterControlExposureMax=4000",
                                    "AutoGainControlGainRawMin=100", "AutoGainControlGainRawMax=1500"],
                               "--scene", "dim")
        self.assertTrue(all(100 <= frame["exposure_us"] <= 4000 for frame in camera.truth_frames))
        self.assertTrue(all(1 <= frame["gain"] <= 15 for frame in camera.truth_frames))
        self.assertEqual(camera.truth_frames[-1]["exposure_us"], 4000)

    def test_shows_its_result_in_the_features(self):
        steps = ("Width=320", "Height=192", "AcquisitionFrameRate=50", "ExposureTime=20", "ExposureAuto=Once")
        with Camera() as camera, Application() as application, Stream() as stream:
            arv_control(*steps)
            application.take_control()
            means(application, stream, FRAMES_TO_SETTLE)
            application.write(ADDRESSES["AcquisitionStop"], 1)
            status, (mode,) = application.read(ADDRESSES["ExposureAuto"])
            self.assertEqual((status, mode), (gvcp.SUCCESS, 0))
            application.write(gvcp.CCP, 0)
            line, automatic = arv_control("ExposureTime", "ExposureAuto")
            last = wait_for(lambda: camera.frames_so_far(), "the truth")[-1]
        self.assertEqual(automatic, "ExposureAuto = Off")
        self.assertAlmostEqual(float(line.split()[2]), last["exposure_us"], delta=0.01 * last["exposure_us"])


if __name__ == "__main__":
    unittest.main()
