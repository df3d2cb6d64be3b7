# SPDX-License-Identifier: MIT
"""The balance of frames: lost frames that are not reported must fail a fault test. No camera is needed."""

import sys
import types
import unittest
from unittest import mock

import fault_recording
from fault_recording import FrameBalance


def sent(*blocks):
    """Frames of a truth file with these block IDs."""
    return [{"outcome": "sent", "block_id": block} for block in blocks]


def balance(truth, saved, reported=0, log=""):
    """A balance in which the frames at the positions `saved` of the truth were saved."""
    for number, frame in enumerate(truth):
        frame["ticks"] = number
    made = FrameBalance.__new__(FrameBalance)
    made.truth, made.frames = truth, [{"ticks": number} for number in saved]
    made.camera = types.SimpleNamespace(frames_so_far=lambda: truth)
    made.missing = sum(truth[i]["outcome"] == "sent" for i in range(saved[0], saved[-1]) if i not in saved)
    made.dropped_queue_full = made.dropped_write_error = made.never_arrived = made.without_buffer = 0
    made.failed, made.log, made.report = reported, log, ""
    return made


class Balance(unittest.TestCase):
    def setUp(self):
        def wait_for(condition, what, seconds=0):
            self.assertTrue(condition(), what)
        self.enterContext(mock.patch.object(fault_recording, "wait_for", wait_for))

    def expect_failure(self, made, **options):
        with self.assertRaises(AssertionError):
            made.check(self, **options)

    def test_needs_a_report_for_each_missing_frame(self):
        balance(sent(1, 2, 3, 4), [0, 1, 2, 3]).check(self)
        balance(sent(1, 2, 3, 4), [0, 3], reported=2).check(self)
        self.expect_failure(balance(sent(1, 2, 3, 4), [0, 3], reported=1))

    def test_accepts_reports_only_of_frames_that_were_lost(self):
        balance(sent(1, 2, 3, 4), [0, 2], reported=2).check(self)  # the last one may have been lost
        self.expect_failure(balance(sent(1, 2, 3, 4), [0, 2], reported=3))

    def test_of_a_restart_excuses_the_end_of_the_run_and_the_first_frame(self):
        log = "(exit code -10)"
        truth = sent(1, 2, 3, 4) + sent(1, 2, 3)
        balance(truth, [0, 1, 5, 6], log=log).check(self, interrupted=2)
        self.expect_failure(balance(truth, [0, 1, 5, 6], log=log), interrupted=1)
        self.expect_failure(balance(truth, [0, 1, 5, 6], log=log))
        self.expect_failure(balance(truth, [0, 1, 5, 6]), interrupted=2)
        self.expect_failure(balance(truth, [0, 1, 6], log=log), interrupted=2)
        self.expect_failure(balance(truth, [0, 2, 5, 6], log=log), interrupted=2)
        balance(truth, [0, 2, 5, 6], reported=1, log=log).check(self, interrupted=2)

    def test_needs_a_restart_where_one_is_expected(self):
        self.expect_failure(balance(sent(1, 2, 3), [0, 1, 2]), interrupted=2)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
