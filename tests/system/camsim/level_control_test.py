"""Automatic gain and exposure: set by Aravis, measured on pictures that an application of our own receives."""

import struct
import unittest

import gvcp
from camera_process import CAMSIM, Camera, arv_control, run, wait_for
from gvcp import Application, Stream

ADDRESSES = gvcp.feature_addresses(run(CAMSIM, "--print-description"))
FRAMES_TO_SETTLE = 60
CONTINUOUS = 2


def mean_of(packets):
    pixels = b"".join(packets[number][1] for number in range(1, len(packets) - 1))
    return sum(pixels) / len(pixels)


def means(application, stream, frames):
    """Mean brightness of so many Mono8 frames, from the first of an acquisition on."""
    stream.open(application)
    assert application.write(gvcp.PACKET_SIZE, 1500) == gvcp.SUCCESS
    assert application.write(ADDRESSES["AcquisitionStart"], 1) == gvcp.SUCCESS
    return [mean_of(stream.block()[1]) for _ in range(frames)]


class LevelControl(unittest.TestCase):
    def check(self, reference, settings, *options):
        with Camera(*options) as camera, Application() as application, Stream() as stream:
            answers = arv_control("Width=320", "Height=192", "AcquisitionFrameRate=100", f"ALCReference={reference}",
                                  *settings)
            self.assertNotIn("rror", "".join(answers))
            application.take_control()
            measured = means(application, stream, FRAMES_TO_SETTLE + 20)
        target = 255 * reference / 100
        for mean in measured[FRAMES_TO_SETTLE:]:
            self.assertAlmostEqual(mean, target, delta=0.05 * target)
        return measured, camera

    def test_lightens_a_dark_picture_by_exposure(self):
        measured, camera = self.check(40, ["ExposureTime=20", "ExposureAuto=Continuous"])
        self.assertLess(measured[0], 10)
        self.assertEqual({frame["gain"] for frame in camera.truth_frames}, {1.0})

    def test_darkens_a_bright_picture_by_gain(self):
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

    def test_shows_aravis_what_it_has_come_to(self):
        steps = ("Width=320", "Height=192", "AcquisitionFrameRate=100", "ExposureTime=20", "ExposureAuto=Once")
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
