# SPDX-License-Identifier: MIT
"""The account of frames of the soak test, with frames made up by the tests: frames that vanish silently must be noticed."""

import sys
import unittest

from soak import account, account_problems, resource_problems

PERIOD_NS = 10_000_000
LOSS = "openpv-stream-statistics: frames_incomplete=0 frames_missing={}"
END = 20 * PERIOD_NS / 1e9  # seconds; long after the last frame


def exposure(number, outcome="sent"):
    time = number * PERIOD_NS
    return {"frame": number, "ticks": 7 * number, "outcome": outcome, "unsent_packets": 0, "exposure_end_ns": time, "send_end_ns": time,
            "utc_offset_ns": 0}


class Account(unittest.TestCase):
    """Ten frames, of which the plug-in does not deliver the first."""

    def account(self, *exported, log=(), truth=None, stopped=END):
        truth = truth or [exposure(number) for number in range(10)]
        return account(truth, [7 * number for number in exported], [(0.0, line) for line in log], stopped)

    def problems(self, *exported, **options):
        return account_problems(self.account(*exported, **options))

    def test_all_frames_are_accounted_for(self):
        self.assertEqual(self.problems(*range(1, 10)), [])
        self.assertEqual(self.account(*range(1, 10))["exported"], 9)

    def test_a_frame_that_vanishes_is_noticed_wherever_it_is(self):
        for missing in (1, 5, 9):
            exported = [number for number in range(1, 10) if number != missing]
            self.assertEqual(self.problems(*exported), ["frames are missing that were not reported lost"], missing)
            self.assertEqual(self.problems(*exported, log=[LOSS.format(1)]), [], missing)

    def test_frames_that_were_on_their_way_at_the_end_are_not_missing(self):
        self.assertEqual(self.problems(*range(1, 5), stopped=0.15), [])
        self.assertNotEqual(self.problems(*range(1, 4), stopped=0.15), [])

    def test_frames_that_the_host_dropped_are_reported(self):
        self.assertEqual(self.problems(1, 2, 3, 5, 6, 7, 8, 9, log=["dropped: 1 (queue full), 0 (write errors)"]), [])

    def test_losses_that_did_not_happen_are_noticed(self):
        self.assertEqual(self.problems(*range(1, 10), log=[LOSS.format(2)]), ["frames were reported lost that are not missing"])

    def test_unknown_frames_are_noticed(self):
        self.assertEqual(self.problems(*range(1, 10), 50), ["frames were exported that were not sent"])

    def test_frames_between_two_runs_need_no_report(self):
        figures = account([exposure(number) for number in range(10)], [7 * number for number in (1, 2, 3, 7, 8, 9)],
                          [(0.04, "grabbing loop is completed")], END)
        self.assertEqual((figures["missing between runs"], account_problems(figures)), (3, []))

    def test_blocks_that_the_camera_dropped_count(self):
        truth = [exposure(number) for number in range(10)]
        truth[4] = {**exposure(4, "dropped"), "faults": {"block_drop": 1}}
        self.assertEqual(self.problems(1, 2, 3, 5, 6, 7, 8, 9, truth=truth), ["frames are missing that were not reported lost"])


class Resources(unittest.TestCase):
    """An hour of samples: seconds, memory, descriptors, threads."""

    def problems(self, memory=lambda second: 1000, descriptors=lambda second: 20, threads=lambda second: 8):
        return resource_problems({}, [(second, memory(second), descriptors(second), threads(second)) for second in range(3600)])

    def test_constant_usage_and_usage_that_varies_are_no_problem(self):
        self.assertEqual(self.problems(), [])
        self.assertEqual(self.problems(threads=lambda second: 8 + (second // 500) % 2), [])

    def test_growth_before_usage_has_settled_is_no_problem(self):
        self.assertEqual(self.problems(memory=lambda second: min(second, 1000)), [])

    def test_growth_is_noticed(self):
        self.assertRegex(" ".join(self.problems(memory=lambda second: 1000 + second / 100)), "^resident memory grows: [+]36 ± 0 kB per hour")
        self.assertRegex(" ".join(self.problems(descriptors=lambda second: 20 + second // 1000)), "^descriptors grew from")
        self.assertRegex(" ".join(self.problems(threads=lambda second: 8 + (second > 3000))), "^threads grew from 8")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
