# SPDX-License-Identifier: MIT
"""gevctl clock."""

import json
import re
import subprocess
import time
import unittest

from camera_process import Camera
from gevctl import CONTROLLED, GEVCTL, gevctl, gevctl_json
from gvcp import Application


class Clock(unittest.TestCase):
    def test_finds_the_drift_of_a_running_timestamp(self):
        with Camera("--timestamp", "running", "--clock-drift-ppm", "200", "--tick-frequency", "125000000"):
            found = gevctl_json("clock", "127.0.0.1", "--seconds", "3")
        print(found)
        self.assertFalse(found["latched"])
        self.assertEqual(found["tick_frequency_hz"], 125_000_000)
        self.assertLess(abs(found["drift_ppb"] - 200_000), found["drift_uncertainty_ppb"] + 20_000)

    def test_latches_a_timestamp_that_does_not_run(self):
        with Camera("--timestamp", "latched", "--clock-drift-ppm", "-300"):
            found = gevctl_json("clock", "127.0.0.1", "--seconds", "3")
        print(found)
        self.assertTrue(found["latched"])
        self.assertLess(abs(found["drift_ppb"] + 300_000), found["drift_uncertainty_ppb"] + 20_000)

    def test_finds_the_offset_within_its_uncertainty(self):
        with Camera("--timestamp", "running") as camera:
            before = time.time_ns()
            found = gevctl_json("clock", "127.0.0.1", "--seconds", "0.5")
            after = time.time_ns()
        # The camera counts nanoseconds since power-up, for which the truth file has the monotonic time.
        power_up = camera.truth_header["power_up_ns"] + time.time_ns() - time.monotonic_ns()
        print(found, power_up)
        self.assertTrue(before <= found["machine_time_ns"] <= after)
        self.assertLess(abs(found["offset_ns"] + power_up), found["uncertainty_ns"] + 1_000_000)
        self.assertGreater(found["uncertainty_ns"], 0)

    def test_prints_a_reference_for_the_configuration(self):
        with Camera("--timestamp", "running", "--tick-frequency", "125000000") as camera:
            line = gevctl("clock", "127.0.0.1", "--seconds", "0.5", "--reference")
        ticks, time_us, uncertainty_us = map(int, re.fullmatch(r"timing\.clock_reference = \[(\d+), (\d+), (\d+)\]\n", line).groups())
        power_up = camera.truth_header["power_up_ns"] + time.time_ns() - time.monotonic_ns()
        self.assertLess(abs(time_us - ticks / 125 - power_up / 1000), uncertainty_us + 1000)
        self.assertGreater(uncertainty_us, 0)

    def test_works_while_another_program_has_control_if_the_timestamp_runs(self):
        with Camera("--timestamp", "running"), Application() as other:
            other.take_control()
            self.assertIn("running timestamp", gevctl("clock", "127.0.0.1", "--seconds", "0.1"))
        with Camera("--timestamp", "latched"), Application() as other:
            other.take_control()
            self.assertIn("is controlled by", gevctl("clock", "127.0.0.1", "--seconds", "0.1", status=CONTROLLED))

    def test_repeats_until_a_signal(self):
        with Camera("--timestamp", "running"):
            command = [GEVCTL, "clock", "127.0.0.1", "--seconds", "0.1", "--watch", "--json"]
            with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as clock:
                try:
                    times = [json.loads(clock.stdout.readline())["machine_time_ns"] for _ in range(3)]
                finally:
                    clock.terminate()
        self.assertEqual(times, sorted(set(times)))


if __name__ == "__main__":
    unittest.main()
