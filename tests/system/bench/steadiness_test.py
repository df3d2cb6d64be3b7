# SPDX-License-Identifier: MIT
"""Repetition of runs from which processor time was stolen, with times made up by the tests; and the evaluation of ratios."""

import sys
import tempfile
import unittest

from bench_tools import MAX_ATTEMPTS, Steadiness, spread
from processor_time import processor_times, stolen_between


class Runs(unittest.TestCase):
    def setUp(self):
        self.stolen = self.total = 0
        self.steadiness = Steadiness(lambda: (self.stolen, self.total))

    def run_with(self, *fractions):
        """Makes a run from which these fractions are stolen in turn. \\return the number of the attempt that counts"""
        remaining = list(enumerate(fractions, 1))

        def run():
            attempt, fraction = remaining.pop(0)
            self.stolen += round(1000 * fraction)
            self.total += 1000
            return attempt
        return self.steadiness.steady(run)

    def test_a_steady_run_counts_at_once(self):
        self.assertEqual(self.run_with(0.05, 0), 1)
        self.assertEqual((self.steadiness.repeated, self.steadiness.accepted), (0, 0))

    def test_a_run_with_more_than_five_percent_stolen_is_repeated(self):
        self.assertEqual(self.run_with(0.051, 0.2, 0.01), 3)
        self.assertEqual((self.steadiness.repeated, self.steadiness.accepted, self.steadiness.stolen), (2, 0, [0.01]))

    def test_the_steadiest_attempt_counts_and_is_reported_if_none_is_steady(self):
        self.assertEqual(self.run_with(*[0.3] * (MAX_ATTEMPTS - 2), 0.1, 0.2), MAX_ATTEMPTS - 1)
        self.assertEqual(self.steadiness.accepted, 1)
        self.assertEqual(self.steadiness.report(), "median 10.0 %, maximum 10.0 % of 1 runs; 3 repeated because of more than 5 %, "
                                                   "1 accepted nevertheless")

    def test_the_eighth_time_of_the_kernel_is_the_stolen_one(self):
        with tempfile.NamedTemporaryFile("w") as file:
            file.write("cpu  1 2 3 4 5 6 7 80 900 1000\ncpu0 0 0 0 0 0 0 0 0 0 0\n")  # the last two are part of the first two
            file.flush()
            self.assertEqual(processor_times(file.name), (80, 108))

    def test_the_kernel_reports_the_times(self):
        stolen, total = processor_times()
        self.assertGreater(total, 0)
        self.assertTrue(0 <= stolen_between((0, 0), (stolen, total)) < 1)


class Cells(unittest.TestCase):
    def test_a_cell_has_the_median_and_the_range(self):
        self.assertEqual(spread([3, 1, 2.25]), "2.250 (1.000 to 3.000)")
        self.assertEqual(spread([2], 0), "2")
        self.assertEqual(spread([]), "-")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
