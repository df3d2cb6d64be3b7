"""Aravis grabs from camsim and loses nothing."""

import unittest

from camera_process import Camera, arv_control, arv_grab


class AravisGrab(unittest.TestCase):
    def grab_500_frames(self, packet_size, *settings):
        with Camera() as camera:
            arv_control("Width=480", "Height=320", "AcquisitionFrameRate=80", *settings)
            figures = arv_grab(9, packet_size)
        self.assertGreaterEqual(figures["n_completed_buffers"], 500)
        for name in ("n_failures", "n_underruns", "n_timeouts", "n_missing_frames", "n_missing_packets",
                     "n_error_packets", "n_ignored_packets", "n_size_mismatch_errors"):
            self.assertEqual(figures[name], 0, figures)
        self.assertGreaterEqual(sum(frame["fate"] == "sent" for frame in camera.truth_frames), 500)

    def test_grabs_500_frames_with_packets_of_1400_bytes(self):
        self.grab_500_frames(1400)

    def test_grabs_500_frames_with_packets_of_8900_bytes(self):
        self.grab_500_frames(8900)

    def test_grabs_500_frames_with_extended_ids(self):
        self.grab_500_frames(4000, "GevGVSPExtendedIDMode=On", "PixelFormat=Mono12Packed")


if __name__ == "__main__":
    unittest.main()
