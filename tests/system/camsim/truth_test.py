# SPDX-License-Identifier: MIT
"""The truth file describes what was sent."""

import unittest

from camera_process import PROBE, Camera, run


class Truth(unittest.TestCase):
    def test_describes_every_received_frame_to_the_byte(self):
        for pixel_format in ("Mono8", "Mono12Packed", "Mono12", "BayerRG8"):
            for options in ((), ("--extended-ids",), ("--chunks",)):
                with self.subTest(pixel_format=pixel_format, options=options), Camera() as camera:
                    output = run(PROBE, "--format", pixel_format, "--width", "1000", "--height", "202", "--rate", "50",
                                 "--packet-size", "1500", "--seconds", "1", "--truth", str(camera.truth_path), *options)
                    self.assertRegex(output, r"byte_exact=(\d\d) of \1\n")
                    self.assertIn("incomplete=0 ", output)

    def test_describes_frames_whose_tone_changes_continuously(self):
        for pixel_format in ("Mono8", "BayerRG8"):
            with self.subTest(pixel_format=pixel_format), Camera() as camera:
                output = run(PROBE, "--format", pixel_format, "--width", "320", "--height", "200", "--rate", "400",
                             "--seconds", "1", "--change-tone", "--truth", str(camera.truth_path))
                self.assertRegex(output, r"byte_exact=(\d\d+) of \1\n")
                self.assertIn("incomplete=0 ", output)
            # Many of these frames have a partially written LUT.
            tables = {frame["lut"]: frame["lut_tables"] for frame in camera.truth_frames if "lut_tables" in frame}
            self.assertGreater(len(tables), 20)
            self.assertGreater(sum("gamma" in frame for frame in camera.truth_frames), 20)

    def test_keeps_the_frame_period_in_the_camera_s_drifting_time(self):
        drift = 20000  # ppm: 2 %, far more than the host's timing errors in one second
        with Camera("--clock-drift-ppm", str(drift), "--tick-frequency", "1000000", "--first-tick", "5000") as camera:
            run(PROBE, "--width", "320", "--height", "200", "--rate", "200", "--seconds", "1")
        frames = [frame for frame in camera.truth_frames if frame["outcome"] == "sent"]
        self.assertGreater(len(frames), 20)
        first, last = frames[0], frames[-1]
        periods = last["frame"] - first["frame"]
        ticks = last["ticks"] - first["ticks"]
        self.assertAlmostEqual(ticks, periods * 5000, delta=2)
        self.assertAlmostEqual((last["exposure_start_us"] - first["exposure_start_us"]) * (1 + drift * 1e-6), ticks,
                               delta=ticks * 1e-3)
        self.assertGreater(first["ticks"], 5000)

    def test_contains_frames_dropped_by_a_camera_that_cannot_keep_up(self):
        with Camera("--pacing", "2") as camera:  # 2 MB/s for 64 kB at 100 Hz
            run(PROBE, "--width", "320", "--height", "200", "--rate", "100", "--seconds", "2")
        outcomes = [frame["outcome"] for frame in camera.truth_frames]
        self.assertGreater(outcomes.count("dropped"), 50)
        numbers = [frame["frame"] for frame in camera.truth_frames]
        self.assertEqual(numbers, list(range(len(numbers))))
        blocks = [frame["block_id"] for frame in camera.truth_frames if frame["outcome"] != "dropped"]
        self.assertEqual(blocks, list(range(1, len(blocks) + 1)))
        self.assertTrue(all(frame["block_id"] == 0 for frame in camera.truth_frames if frame["outcome"] == "dropped"))

    def test_a_camera_with_enough_frame_buffers_drops_no_frame(self):
        with Camera("--pacing", "2", "--frame-buffers", "1000") as camera:
            run(PROBE, "--width", "320", "--height", "200", "--rate", "100", "--seconds", "2")
        self.assertGreater(len(camera.truth_frames), 50)
        self.assertNotIn("dropped", {frame["outcome"] for frame in camera.truth_frames})


if __name__ == "__main__":
    unittest.main()
