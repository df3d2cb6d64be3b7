# SPDX-License-Identifier: MIT
"""Power cycles of the camera: the recording continues by itself, and memory, descriptors and threads do not grow."""

import os
import pathlib
import random
import statistics
import sys
import unittest

from fault_recording import INTERRUPTED, FaultRecording

CYCLES = int(os.environ.get("POWER_CYCLES", "30"))
WARM_UP = 5  # cycles after which buffers and memory pools have their size
LONG_CYCLES = 2
MAX_RECOVERY_SECONDS = 10.0
MAX_KILOBYTES_PER_CYCLE = 4.0  # one page


class ResourceUsage:
    """Memory, threads and file descriptors of a process."""

    def __init__(self, pid):
        status = pathlib.Path(f"/proc/{pid}/status").read_text()
        figure = lambda name: int(next(line.split()[1] for line in status.splitlines() if line.startswith(name)))
        self.kilobytes = figure("RssAnon:")
        self.threads = figure("Threads:")
        self.descriptors = len(os.listdir(f"/proc/{pid}/fd"))

    def __str__(self):
        return f"{self.kilobytes} kB, {self.descriptors} descriptors, {self.threads} threads"


def slope(values):
    """The median of the slopes between all pairs of values, which single steps do not change."""
    return statistics.median((values[j] - values[i]) / (j - i) for i in range(len(values)) for j in range(i + 1, len(values)))


def power_off_until_noticed(run):
    """Cuts the camera's power until the run has ended with -10."""
    ended = lambda: run.recording.log.count("(exit code -10)")
    before = ended()
    fault = run.camera.start_fault("power_cycle")
    run.recording.wait_while_running(lambda: ended() > before, "the end of the run with -10")
    run.camera.stop_fault(fault)


class PowerCycle(unittest.TestCase):
    def test_ends_the_run_with_minus_10_and_the_next_one_succeeds(self):
        with FaultRecording(self) as run:
            for cycle in range(LONG_CYCLES):
                power_off_until_noticed(run)
                run.recover()
                self.assertLess(run.recovery, MAX_RECOVERY_SECONDS)
            balance = run.finish()
        balance.check(self, interrupted=INTERRUPTED)
        self.assertEqual(len(balance.restarts()), LONG_CYCLES)
        power_cycles = {frame.get("power_cycle", 1) for frame in balance.truth}
        self.assertEqual(len(power_cycles), LONG_CYCLES + 1)

    def test_that_is_shorter_than_all_timeouts_is_detected_and_leaves_nothing_behind(self):
        with FaultRecording(self) as run:
            usages = []
            for cycle in range(CYCLES):
                ended = run.recording.log.count("(exit code -10)")
                run.inject_for(0.2, "power_cycle")
                run.recording.wait_while_running(lambda: run.recording.log.count("(exit code -10)") > ended, "the end of the run")
                run.recover()
                self.assertLess(run.recovery, MAX_RECOVERY_SECONDS)
                usages.append(ResourceUsage(run.recording.process.pid))
                print(f"cycle {cycle + 1}: frames again after {run.recovery:.2f} s, {usages[-1]}", flush=True)
            balance = run.finish()
        balance.check(self, interrupted=INTERRUPTED)
        self.assertEqual(len(balance.restarts()), CYCLES)
        later = usages[WARM_UP:]
        for name in ("descriptors", "threads"):  # a file may be open at the moment
            self.assertEqual(slope([getattr(usage, name) for usage in later]), 0, name)
        growth = slope([usage.kilobytes for usage in later])
        print(f"memory grows by {growth:.1f} kB per cycle", flush=True)
        if not os.environ["SANITIZE"]:  # sanitizers keep freed memory
            self.assertLess(growth, MAX_KILOBYTES_PER_CYCLE)


class MemorySlope(unittest.TestCase):
    """The measure of growth itself. No camera is needed."""

    def test_is_that_of_a_leak_and_not_that_of_a_step_or_of_noise(self):
        noise = [random.Random(cycle).uniform(-20, 20) for cycle in range(25)]
        self.assertAlmostEqual(slope([1000 + 40 * cycle + more for cycle, more in enumerate(noise)]), 40, delta=4)
        self.assertAlmostEqual(slope([1000 + (3000 if cycle > 20 else 0) + more for cycle, more in enumerate(noise)]), 0, delta=6)


class PowerCycleDuringConfiguration(unittest.TestCase):
    def test_does_not_end_the_recording(self):
        with FaultRecording(self) as run:
            for moment in ("ROI Width x Height", "START GRABBING"):
                slow = run.camera.start_fault("ack_delay", delay_ms=40)  # so that the fault begins before configuration ends
                power_off_until_noticed(run)
                before = run.recording.log.count(moment)
                run.recording.wait_while_running(lambda: run.recording.log.count(moment) > before, f"\"{moment}\" again")
                run.inject_for(0.5, "power_cycle")
                run.camera.stop_fault(slow)
                run.recover()
                print(f"power cycle at \"{moment}\": frames again after {run.recovery:.2f} s", flush=True)
                self.assertLess(run.recovery, MAX_RECOVERY_SECONDS)
            run.finish().check(self, interrupted=INTERRUPTED)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
