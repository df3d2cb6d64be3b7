# SPDX-License-Identifier: MIT
"""Decides whether a quantity grows: a line through its samples, and the uncertainty of its slope."""

import math
import statistics

BLOCKS = 20        # medians of as many intervals are fitted: samples next to each other are not independent
QUANTILE = 2.552   # 99 %, one-sided, of Student's distribution with BLOCKS - 2 degrees of freedom


class Growth:
    """The slope of (seconds, value) samples, per hour.

    `uncertainty` is half the 98 % confidence interval: the slope of a constant quantity exceeds it in one of a hundred runs. `bound` is
    the uncertainty above which the samples prove nothing; it is not compared with the slope.
    """

    def __init__(self, samples, bound):
        if len(samples) < BLOCKS:
            raise ValueError(f"{len(samples)} samples; at least {BLOCKS} are needed")
        edges = [len(samples) * block // BLOCKS for block in range(BLOCKS + 1)]
        blocks = [samples[begin:end] for begin, end in zip(edges, edges[1:])]
        times = [statistics.fmean(time for time, _ in block) / 3600 for block in blocks]
        values = [statistics.median(value for _, value in block) for block in blocks]
        fit = statistics.linear_regression(times, values)
        residuals = sum((value - fit.intercept - fit.slope * time) ** 2 for time, value in zip(times, values))
        spread = sum((time - statistics.fmean(times)) ** 2 for time in times)
        self.slope = fit.slope
        self.uncertainty = QUANTILE * math.sqrt(residuals / (BLOCKS - 2) / spread)
        self.bound = bound

    @property
    def decision(self):
        """"grows", "does not grow", or "undecided" if the samples cannot show a growth of `bound` per hour."""
        if self.slope > self.uncertainty:
            return "grows"
        return "undecided" if self.uncertainty > self.bound else "does not grow"

    def __str__(self):
        return f"{self.slope:+.0f} ± {self.uncertainty:.0f}"
