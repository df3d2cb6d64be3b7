# SPDX-License-Identifier: MIT
"""How the soak test decides whether memory grows, with samples made up by the tests."""

import random
import sys
import unittest

from growth import BLOCKS, Growth

HOUR = 3600
BOUND = 1000  # per hour


def samples(generator, leak_per_hour=0.0, noise=200.0, seconds=HOUR, step=0.0):
    """Memory with noise, a leak, and a step in the middle, sampled once per second."""
    return [(second, 50_000 + leak_per_hour * second / HOUR + generator.gauss(0, noise) + (step if second > seconds / 2 else 0))
            for second in range(seconds)]


class Decision(unittest.TestCase):
    def growth(self, **options):
        return Growth(samples(random.Random(1), **options), BOUND)

    def test_noise_is_not_growth(self):
        self.assertEqual(self.growth().decision, "does not grow")

    def test_a_leak_smaller_than_the_noise_is_growth(self):
        growth = self.growth(leak_per_hour=100)
        self.assertEqual(growth.decision, "grows")
        self.assertAlmostEqual(growth.slope, 100, delta=growth.uncertainty)

    def test_a_leak_without_noise_is_growth_however_small(self):
        self.assertEqual(self.growth(leak_per_hour=1, noise=0).decision, "grows")

    def test_a_constant_or_shrinking_quantity_does_not_grow(self):
        self.assertEqual(self.growth(noise=0).decision, "does not grow")
        self.assertEqual(self.growth(leak_per_hour=-500).decision, "does not grow")

    def test_a_step_that_stays_is_growth(self):
        self.assertEqual(self.growth(step=1000).decision, "grows")

    def test_a_short_or_noisy_run_is_undecided(self):
        self.assertEqual(self.growth(seconds=60).decision, "undecided")
        self.assertEqual(self.growth(noise=100_000).decision, "undecided")

    def test_too_few_samples_are_an_error(self):
        with self.assertRaises(ValueError):
            Growth([(second, 1) for second in range(BLOCKS - 1)], BOUND)

    def test_the_uncertainty_is_that_of_the_slope(self):
        """Of many constant quantities, one in a hundred seems to grow; of those that leak by the uncertainty, half do."""
        generator, runs = random.Random(2), 1000
        flat = [Growth(samples(generator, seconds=200), BOUND) for _ in range(runs)]
        self.assertLess(sum(growth.decision == "grows" for growth in flat), 0.03 * runs)
        self.assertGreater(sum(growth.decision == "grows" for growth in flat), 0)
        leak = sum(growth.uncertainty for growth in flat) / runs
        leaking = [Growth(samples(generator, leak_per_hour=leak, seconds=200), BOUND) for _ in range(runs)]
        self.assertAlmostEqual(sum(growth.decision == "grows" for growth in leaking) / runs, 0.5, delta=0.1)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
