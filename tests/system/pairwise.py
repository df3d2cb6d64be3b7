# SPDX-License-Identifier: MIT
"""Combinations of values for tests, where testing all of them takes too long."""

import itertools


def pairwise(**factors):
    """Combinations in which each value of a factor meets each value of each other factor.

    Greedy and without randomness: the same combinations in each run. With two factors these are all combinations, so a third
    factor costs nothing.

    \\param factors  name and values of each factor
    \\return a list of dicts from name to value
    """
    names = list(factors)
    every = list(itertools.product(*factors.values()))

    def pairs(row):
        return set(itertools.combinations(enumerate(row), 2))

    missing = set().union(*map(pairs, every))
    chosen = []
    while missing:
        row = max(every, key=lambda candidate: len(pairs(candidate) & missing))
        missing -= pairs(row)
        chosen.append(dict(zip(names, row)))
    return chosen
