"""The camera's power is cut and returns: the host grabs again by itself, and keeps nothing of the camera that is gone."""

import os
import pathlib
import sys
import unittest

from faulty_grabbing import Grabbing

CYCLES = int(os.environ.get("POWER_CYCLES", "4"))
WARM_UP = 2  # cycles after which the process has what it needs
LONGEST_RECOVERY = 10.0


class Footprint:
    """What a process occupies."""

    def __init__(self, pid):
        status = pathlib.Path(f"/proc/{pid}/status").read_text()
        figure = lambda name: int(next(line.split()[1] for line in status.splitlines() if line.startswith(name)))
        self.kilobytes = figure("VmRSS:")
        self.threads = figure("Threads:")
        self.descriptors = len(os.listdir(f"/proc/{pid}/fd"))
        self.sanitized = "libasan" in pathlib.Path(f"/proc/{pid}/maps").read_text()

    def is_like(self, other):
        """A sanitizer keeps memory that is free, so it is no measure there."""
        same_memory = self.sanitized or self.kilobytes < 1.1 * other.kilobytes + 2048
        return same_memory and (self.descriptors, self.threads) == (other.descriptors, other.threads)

    def __str__(self):
        return f"{self.kilobytes} kB, {self.descriptors} descriptors, {self.threads} threads"


def cut_until_noticed(run):
    """The camera is without power until its run has ended with -10."""
    ended = lambda: run.recording.log.count("(exit code -10)")
    before = ended()
    cut = run.camera.start_fault("power_cut")
    run.recording.wait_while_running(lambda: ended() > before, "the run ended with -10")
    run.camera.stop_fault(cut)


class PowerCut(unittest.TestCase):
    def test_ends_the_run_with_minus_10_and_the_return_begins_another(self):
        with Grabbing(self) as run:
            for cycle in range(CYCLES):
                cut_until_noticed(run)
                run.recover()
                self.assertLess(run.recovery, LONGEST_RECOVERY)
                footprint = Footprint(run.recording.process.pid)
                print(f"cycle {cycle + 1}: frames again after {run.recovery:.2f} s, {footprint}", flush=True)
                if cycle + 1 == min(WARM_UP, CYCLES):
                    first = footprint
            account = run.finish()
        self.assertTrue(footprint.is_like(first), f"{first}; now {footprint}")
        # The first frame of each run is for its clocks and is never exported.
        self.assertTrue(CYCLES <= account.missing <= CYCLES + account.reported, account.words + account.log)
        lives = {frame.get("boot", 1) for frame in account.truth}
        self.assertEqual(len(lives), CYCLES + 1)

    def test_for_a_moment_is_noticed_though_nobody_missed_the_camera(self):
        with Grabbing(self) as run:
            run.strike_for(0.2, "power_cut")
            run.recording.wait_for_log("(exit code -10)")
            run.recover()
            self.assertLess(run.recovery, LONGEST_RECOVERY)
            run.finish()


class PowerCutAtAnAwkwardMoment(unittest.TestCase):
    def test_while_the_camera_gets_its_configuration_ends_no_recording(self):
        with Grabbing(self) as run:
            for moment in ("ROI Width x Height", "START GRABBING"):
                slow = run.camera.start_fault("answer_delay", delay_ms=40)  # so that there is time to come in between
                cut_until_noticed(run)
                before = run.recording.log.count(moment)
                run.recording.wait_while_running(lambda: run.recording.log.count(moment) > before, f"\"{moment}\" again")
                run.strike_for(0.5, "power_cut")
                run.camera.stop_fault(slow)
                run.recover()
                print(f"cut at \"{moment}\": frames again after {run.recovery:.2f} s", flush=True)
                self.assertLess(run.recovery, LONGEST_RECOVERY)
            run.finish()


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
