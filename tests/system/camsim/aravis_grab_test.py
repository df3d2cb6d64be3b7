# SPDX-License-Identifier: MIT
"""Aravis grabs from camsim and loses nothing."""

import pathlib
import unittest

from camera_process import Camera, arv_control, arv_grab


def packets_dropped_by_the_kernel():
    """\\return the datagrams that found a full socket buffer, in this test's network namespace"""
    names, values = [line.split() for line in pathlib.Path("/proc/net/snmp").read_text().splitlines() if line.startswith("Udp:")]
    return int(values[names.index("RcvbufErrors")])


class AravisGrab(unittest.TestCase):
    def grab_500_frames(self, packet_size, *settings):
        dropped_before = packets_dropped_by_the_kernel()
        with Camera() as camera:
            arv_control("Width=480", "Height=320", "AcquisitionFrameRate=80", *settings)
            figures = arv_grab(9, packet_size)
        dropped = packets_dropped_by_the_kernel() - dropped_before
        self.assertGreaterEqual(figures["n_completed_buffers"], 500)
        for name in ("n_underruns", "n_error_packets", "n_ignored_packets", "n_size_mismatch_errors"):
            self.assertEqual(figures[name], 0, figures)
        # Aravis's socket buffer holds one frame. When the machine does not schedule Aravis for longer than that, the kernel
        # drops packets, which the camera has sent; any other missing packet is the camera's.
        for name in ("n_failures", "n_timeouts", "n_missing_frames", "n_missing_packets"):
            self.assertLessEqual(figures[name], dropped, figures)
        self.assertGreaterEqual(sum(frame["outcome"] == "sent" for frame in camera.truth_frames), 500)

    def test_grabs_500_frames_with_packets_of_1400_bytes(self):
        self.grab_500_frames(1400)

    def test_grabs_500_frames_with_packets_of_8900_bytes(self):
        self.grab_500_frames(8900)

    def test_grabs_500_frames_with_extended_ids(self):
        self.grab_500_frames(4000, "GevGVSPExtendedIDMode=On", "PixelFormat=Mono12Packed")


if __name__ == "__main__":
    unittest.main()
