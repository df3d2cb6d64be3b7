# SPDX-License-Identifier: MIT
"""Waits for a condition that another process makes true."""

import time

DEADLINE_SECONDS = 60


def wait_for(condition, what, seconds=DEADLINE_SECONDS):
    """Polls condition() until it is true and returns its value. Fails with `what` in the message after the deadline."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(0.005)
    raise AssertionError(f"timed out waiting for {what}")
