# SPDX-License-Identifier: MIT
"""Delays of frames and ACKs, and the times in the truth file."""

import statistics
import subprocess
import time
import unittest

import gvcp
from camera_process import CAMSIM, PROBE, Camera, run
from gvcp import Application

PERIOD_NS = 10_000_000  # at 100 Hz


def grab(camera, *options):
    return run(PROBE, "--width", "64", "--height", "32", "--rate", "100", "--seconds", "2", "--truth",
               str(camera.truth_path), *options)


class NetworkDelay(unittest.TestCase):
    def test_of_several_frame_periods_keeps_frame_rate_and_order(self):
        with Camera("--network-delay", "35:30", "--pacing", "burst") as camera:
            output = grab(camera)
        self.assertRegex(output, r"byte_exact=(\d\d+) of \1\n")
        self.assertIn("incomplete=0 ", output)
        frames = camera.truth_frames
        self.assertGreater(sum(frame["outcome"] == "sent" for frame in frames), 150)
        self.assertNotIn("dropped", [frame["outcome"] for frame in frames])
        first = frames[0]["exposure_start_ns"]
        for number, frame in enumerate(frames):
            self.assertAlmostEqual(frame["exposure_start_ns"], first + number * PERIOD_NS, delta=2)
        sent = [frame for frame in frames if frame["outcome"] == "sent"]
        for before, frame in zip(sent, sent[1:]):
            self.assertGreaterEqual(frame["send_start_ns"], before["send_end_ns"])
        for frame in sent:
            self.assertGreaterEqual(frame["send_start_ns"], frame["exposure_end_ns"] + frame["delay_ns"])
            self.assertGreaterEqual(frame["send_end_ns"], frame["send_start_ns"])
        delays = [frame["delay_ns"] / 1e6 for frame in frames if frame["delay_ns"]]
        self.assertAlmostEqual(statistics.mean(delays), 35, delta=8)
        self.assertAlmostEqual(statistics.stdev(delays), 30, delta=8)

    def test_is_the_same_with_the_same_seed(self):
        delays = []
        for seed in ("5", "5", "6"):
            with Camera("--network-delay", "5:2", "--seed", seed) as camera:
                run(PROBE, "--width", "320", "--height", "200", "--rate", "100", "--seconds", "0.5")
            delays.append([frame["delay_ns"] for frame in camera.truth_frames[:20]])
        self.assertEqual(delays[0], delays[1])
        self.assertNotEqual(delays[0], delays[2])

    def test_affects_acks_only_if_configured(self):
        def round_trips(*options):
            with Camera("--network-delay", "20:1", *options), Application() as application:
                taken = []
                for _ in range(20):
                    start = time.monotonic()
                    self.assertEqual(application.read(gvcp.CCP), (gvcp.SUCCESS, (0,)))
                    taken.append(time.monotonic() - start)
                return taken
        self.assertGreater(min(round_trips("--network-delay-acks")), 0.012)
        self.assertLess(min(round_trips()), 0.012)

    def test_keeps_the_order_of_acks(self):
        with Camera("--network-delay", "5:10", "--network-delay-acks"), Application() as application:
            for _ in range(50):
                application.send(gvcp.READREG, gvcp.CCP.to_bytes(4, "big"))
            self.assertEqual([application.receive()[2] for _ in range(50)], list(range(1, 51)))

    def test_rejects_an_invalid_delay(self):
        done = subprocess.run([CAMSIM, "--network-delay", "0:3"], capture_output=True, text=True, timeout=20)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn('"0:3" is not a valid delay: use MEAN or MEAN:DEVIATION', done.stderr)


class Times(unittest.TestCase):
    def test_of_a_frame_are_those_of_the_host_clocks(self):
        before, utc_before = time.monotonic_ns(), time.time_ns()
        with Camera("--clock-drift-ppm", "5000") as camera:
            grab(camera)
        after, utc_after = time.monotonic_ns(), time.time_ns()
        sent = [frame for frame in camera.truth_frames if frame["outcome"] == "sent"]
        for frame in sent:
            self.assertTrue(before < frame["exposure_start_ns"] < frame["exposure_end_ns"] <= frame["send_start_ns"]
                            < frame["send_end_ns"] < after)
            utc = frame["exposure_start_ns"] + frame["utc_offset_ns"]
            self.assertTrue(utc_before < utc < utc_after)
            self.assertEqual(utc // 1000, frame["exposure_start_us"])
            # The camera clock is 0.5 % fast, so the exposure takes less time on the host clock.
            self.assertAlmostEqual(frame["exposure_end_ns"] - frame["exposure_start_ns"],
                                   frame["exposure_us"] * 1000 / 1.005, delta=2)
        ticks = sent[-1]["ticks"] - sent[0]["ticks"]
        host = sent[-1]["exposure_start_ns"] - sent[0]["exposure_start_ns"]
        self.assertAlmostEqual(ticks / host, 1.005, delta=1e-8)


if __name__ == "__main__":
    unittest.main()
