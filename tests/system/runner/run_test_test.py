# SPDX-License-Identifier: MIT
"""run_test.py: which failures are repeated, and what counts as a stall of the machine."""

import os
import subprocess
import sys
import time
import unittest

import run_test
from run_test import CALM_SECONDS, MAX_REPEATS, MAX_WAIT_SECONDS, SANITIZER_STATUS, UNDECIDED_STATUS, MachineWatch, run_at_pace, wait_for_calm_machine
from waiting import wait_for


class FakeMachine:
    """Stalls in the runs whose numbers are given, counted from 1."""

    def __init__(self, *stalls):
        self.stalls = stalls
        self.runs = 0

    def __call__(self):
        return self

    def __enter__(self):
        self.runs += 1
        return self

    def __exit__(self, *_):
        self.stalled = self.runs in self.stalls

    def __str__(self):
        return "the machine's report"


class Repeats(unittest.TestCase):
    def outcome(self, machine, *statuses, calm=True):
        """The exit status, the number of runs and the log of a test with these exit statuses."""
        remaining, log = list(statuses), []
        status = run_at_pace(lambda: remaining.pop(0), machine, lambda: log.append("settled") or calm, log.append)
        return status, len(statuses) - len(remaining), "\n".join(log)

    def test_a_passing_test_runs_once_although_the_machine_stalled(self):
        self.assertEqual(self.outcome(FakeMachine(1), 0, 1), (0, 1, ""))

    def test_a_failure_without_a_stall_fails_at_once(self):
        status, runs, log = self.outcome(FakeMachine(), 7, 0)
        self.assertEqual((status, runs), (7, 1))
        self.assertIn("the machine's report", log)

    def test_a_failure_during_a_stall_is_repeated(self):
        status, runs, log = self.outcome(FakeMachine(1, 2), 7, 1, 0)
        self.assertEqual((status, runs), (0, 3))
        self.assertEqual(log.count("settled"), 2)

    def test_a_stall_does_not_excuse_a_failure_of_a_later_run(self):
        self.assertEqual(self.outcome(FakeMachine(1), 1, 7, 0)[:2], (7, 2))

    def test_the_result_is_undecided_if_the_machine_stalled_in_each_run(self):
        always = range(1, 100)
        status, runs, log = self.outcome(FakeMachine(*always), *[7] * 100)
        self.assertEqual((status, runs), (UNDECIDED_STATUS, MAX_REPEATS + 1))
        self.assertEqual(log.count("the machine's report"), MAX_REPEATS + 1)
        self.assertIn(f"stalled during each of {MAX_REPEATS + 1} runs", log)

    def test_the_result_is_undecided_if_the_machine_does_not_get_calm(self):
        status, runs, log = self.outcome(FakeMachine(1), 7, 0, calm=False)
        self.assertEqual((status, runs), (UNDECIDED_STATUS, 1))
        self.assertIn("stalled during each of 1 runs", log)

    def test_a_sanitizer_report_is_a_failure_although_the_machine_stalled(self):
        self.assertEqual(self.outcome(FakeMachine(1), SANITIZER_STATUS, 0)[:2], (SANITIZER_STATUS, 1))

    def test_a_repeat_waits_until_the_machine_is_calm(self):
        for stalls, waits in (((), 1), ((1, 2), 3), (range(1, 1000), MAX_WAIT_SECONDS // CALM_SECONDS)):
            pauses = []
            calm = wait_for_calm_machine(FakeMachine(*stalls), pauses.append, lambda _: None)
            self.assertEqual((pauses, calm), ([CALM_SECONDS] * waits, len(stalls) < 100))


class Command(unittest.TestCase):
    def status_of(self, *command):
        return subprocess.run([sys.executable, run_test.__file__, *command], capture_output=True).returncode

    def test_status_is_that_of_the_test(self):
        for pace in ((), ("--pace",)):
            self.assertEqual(self.status_of(*pace, "true"), 0)
        self.assertEqual(self.status_of("sh", "-c", "exit 7"), 7)

    def test_a_killed_test_fails(self):
        self.assertEqual(self.status_of("sh", "-c", "kill -KILL $$"), 128 + 9)

    def test_arguments_of_the_command_are_its_own(self):
        self.assertEqual(self.status_of("sh", "-c", 'test "$1" = --pace', "sh", "--pace"), 0)

    def test_runtime_directories_are_not_shared(self):
        directories = set()
        for _ in range(2):
            done = subprocess.run([sys.executable, run_test.__file__, "sh", "-c", 'test -d "$XDG_RUNTIME_DIR" && echo "$XDG_RUNTIME_DIR"'],
                                  capture_output=True, text=True, check=True)
            directories.add(done.stdout)
        self.assertEqual(len(directories - {os.environ["XDG_RUNTIME_DIR"] + "\n"}), 2, directories)


BUSY = "import time\nwhile time.process_time() < {}: pass"


class Watch(unittest.TestCase):
    """Other programs may run meanwhile, so these tests expect a minimum, or compare the programs' shares."""

    def test_a_program_of_another_process_is_foreign(self):
        process = subprocess.Popen([sys.executable, "-c", BUSY.format(600)])
        try:
            with MachineWatch() as machine:
                time.sleep(1)
        finally:
            process.kill()
            process.wait()
        self.assertGreater(machine.foreign_share, 0.25 / os.cpu_count())

    def test_a_child_that_ended_is_not_foreign(self):
        with MachineWatch() as machine:
            before = MachineWatch._times()
            subprocess.run([sys.executable, "-c", BUSY.format(1)], check=True)
            used, idle, own = (after - before for before, after in zip(before, MachineWatch._times()))
        self.assertGreater(own, 0.5)
        self.assertLess(machine.foreign_share, (used - own / 2) / (used + idle))

    def test_a_pause_is_noticed(self):
        with MachineWatch() as machine:
            subprocess.run(["sh", "-c", f"kill -STOP {os.getpid()}; sleep 0.3; kill -CONT {os.getpid()}"], check=True)
        self.assertGreater(machine.max_pause, 0.2)
        self.assertTrue(machine.stalled)

    def test_each_processor_is_watched_by_a_thread_of_its_own(self):
        processors = {frozenset({processor}) for processor in os.sched_getaffinity(0)}
        with MachineWatch():
            wait_for(lambda: processors <= {frozenset(os.sched_getaffinity(int(thread))) for thread in os.listdir("/proc/self/task")},
                     "a thread for each processor")

    def test_bounds(self):
        for pause, share, stalled in ((0.009, 0.04, False), (0.011, 0, True), (0, 0.06, True)):
            with MachineWatch() as machine:
                pass
            machine.max_pause, machine.foreign_share = pause, share
            self.assertEqual(machine.stalled, stalled)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
