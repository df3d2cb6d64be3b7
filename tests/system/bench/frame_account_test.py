# SPDX-License-Identifier: MIT
"""The check for losses, with frames made up by the tests: each loss must be found, wherever in the run it is."""

import sys
import unittest

from frame_account import FrameAccount

FRAMES = 10


def exposure(number, outcome="sent", unsent_packets=0):
    """A line of the truth file. Ticks differ from the counter, and the frame has left the camera at 1000 us * number."""
    return {"frame": number, "ticks": 100 + 7 * number, "outcome": outcome, "unsent_packets": unsent_packets,
            "send_end_ns": number * 1_000_000, "utc_offset_ns": 0}


def ticks(*numbers):
    return [100 + 7 * number for number in numbers]


TRUTH = [exposure(number) for number in range(FRAMES)]


class LossCheck(unittest.TestCase):
    def problems(self, received, wanted, truth=TRUTH, **options):
        return FrameAccount(truth, received, **options).problems(wanted)

    def test_a_run_without_loss_has_no_problem(self):
        self.assertEqual(self.problems(ticks(*range(10)), 10), [])

    def test_frames_after_the_last_received_one_are_not_part_of_the_run(self):
        self.assertEqual(self.problems(ticks(*range(6)), 6), [])

    def test_a_loss_is_found_although_a_later_frame_makes_up_for_it(self):
        self.assertEqual(self.problems(ticks(0, 1, 2, 4, 5), 5), ["1 of 6 frames lost"])

    def test_the_first_frame_of_the_run_counts(self):
        self.assertEqual(self.problems(ticks(1, 2, 3), 3), ["1 of 4 frames lost"])

    def test_the_frame_before_the_last_received_one_counts(self):
        self.assertEqual(self.problems(ticks(0, 1, 3), 3), ["1 of 4 frames lost"])

    def test_a_frame_that_the_program_skips_on_purpose_does_not_count(self):
        self.assertEqual(self.problems(ticks(1, 2, 3), 3, skipped=1), [])
        self.assertEqual(self.problems(ticks(2, 3, 4), 3, skipped=1), ["1 of 4 frames lost"])

    def test_frames_sent_before_a_given_end_count(self):
        self.assertEqual(self.problems(ticks(0, 1, 2), 3, until_us=4500), ["2 of 5 frames lost"])

    def test_frames_that_the_camera_leaves_out_count(self):
        truth = [exposure(0), exposure(1, "dropped"), exposure(2, unsent_packets=3), exposure(3, "aborted"), exposure(4)]
        self.assertEqual(self.problems(ticks(0, 4), 2, truth), ["3 of 5 frames not sent by the camera"])

    def test_exposures_that_the_truth_file_lacks_count(self):
        truth = [exposure(0), exposure(3), exposure(4)]
        self.assertEqual(self.problems(ticks(0, 3, 4), 3, truth), ["2 of 5 frames not sent by the camera"])
        truth = [exposure(2), exposure(3)]
        self.assertEqual(self.problems(ticks(2, 3), 2, truth), ["2 of 4 frames not sent by the camera"])

    def test_too_few_frames_are_a_problem(self):
        self.assertEqual(self.problems(ticks(0, 1), 3), ["2 of 3 frames received"])
        self.assertEqual(self.problems([], 3), ["0 of 3 frames received"])

    def test_unknown_and_repeated_frames_are_a_problem(self):
        self.assertEqual(self.problems(ticks(0, 1, 1, 50), 2), ["2 received frames are not the camera's"])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
