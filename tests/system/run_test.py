#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs the command of one system test.

    run_test.py [--pace] COMMAND [ARGUMENT...]

Fails with status 99 if a sanitizer reported an error in any process that the test started, also if the test expects the
process to fail. Reports are written to files; sitecustomize.py adds a file for each child process of a Python test with status 99,
because UBSan writes to standard error if it is combined with ASan.

Each test has a runtime directory of its own. mediagrabber creates its control socket there, so that recordings of parallel tests do
not find each other's.

With --pace, for tests that depend on pace or latency: watches how long this machine kept programs from running. If that exceeds a
bound, a failed test is repeated as soon as the machine is calm. A test that fails although the machine ran it in time fails at once.
If the machine stalled in each run, or does not get calm, the result is undecided: the exit status is 77, which CTest reports as
skipped.
"""

import argparse
import os
import pathlib
import resource
import subprocess
import sys
import tempfile
import threading
import time

from processor_time import used_idle_stolen

MAX_REPEATS = 3
# What uses the machine of a shared host is over in a minute, or stays.
MAX_WAIT_SECONDS = 60
CALM_SECONDS = 3  # as long as the shortest of these tests
# The time of one frame at 100 frames/s, the highest rate of these tests. A camera that is four frames late drops frames.
MAX_PAUSE_SECONDS = 0.01
# As in the measurements.
MAX_FOREIGN_SHARE = 0.05
SAMPLE_SECONDS = 0.002
SANITIZER_STATUS = 99  # no program of this project exits with it
UNDECIDED_STATUS = 77
UNDECIDED = "undecided: the machine stalled during each of {} runs"


class MachineWatch:
    """What the machine did while the context was active.

    `max_pause` is the longest time, in seconds, by which a sleeping thread woke up too late, on any processor: a hypervisor can stop
    one while the others run. `foreign_share` is the share of all processors' time that other programs used or the hypervisor
    withheld. Programs started by this process count as its own when they have ended and have been waited for.
    """

    def __enter__(self):
        self.max_pause = 0.0
        self._ended = threading.Event()
        self._samplers = [threading.Thread(target=self._sample, args=(processor,)) for processor in os.sched_getaffinity(0)]
        self._before = self._times()
        for sampler in self._samplers:
            sampler.start()
        return self

    def __exit__(self, *_):
        self._ended.set()
        for sampler in self._samplers:
            sampler.join()
        used, idle, own = (after - before for before, after in zip(self._before, self._times()))
        self.foreign_share = max(0.0, used - own) / max(used + idle, 1e-9)

    def _sample(self, processor):
        os.sched_setaffinity(0, {processor})  # this thread alone
        before, ended = time.monotonic(), False
        while not ended:
            ended = self._ended.wait(SAMPLE_SECONDS)
            now = time.monotonic()
            self.max_pause = max(self.max_pause, now - before - SAMPLE_SECONDS)
            before = now

    @staticmethod
    def _times():
        """Used and idle time of all processors, and the time used by this process and its children, in seconds."""
        used, idle, stolen = (ticks / os.sysconf("SC_CLK_TCK") for ticks in used_idle_stolen())
        usages = map(resource.getrusage, (resource.RUSAGE_SELF, resource.RUSAGE_CHILDREN))
        own = sum(usage.ru_utime + usage.ru_stime for usage in usages)
        return used + stolen, idle, own

    @property
    def stalled(self):
        return self.max_pause > MAX_PAUSE_SECONDS or self.foreign_share > MAX_FOREIGN_SHARE

    def __str__(self):
        return (f"the longest pause was {self.max_pause * 1000:.0f} ms (bound {MAX_PAUSE_SECONDS * 1000:.0f} ms), and other "
                f"programs or the hypervisor used {self.foreign_share:.0%} of the processors (bound {MAX_FOREIGN_SHARE:.0%})")


def wait_for_calm_machine(watch=MachineWatch, pause=time.sleep, log=print):
    """Waits until the machine did not stall for CALM_SECONDS, at most MAX_WAIT_SECONDS. \\return whether it is calm"""
    for _ in range(MAX_WAIT_SECONDS // CALM_SECONDS):
        with watch() as machine:
            pause(CALM_SECONDS)
        if not machine.stalled:
            return True
    log(f"run_test.py: the machine is still not calm after {MAX_WAIT_SECONDS} s")
    return False


def run_at_pace(run, watch=MachineWatch, settle=wait_for_calm_machine, log=print):
    """Calls run() and repeats it while it fails and the machine stalled, except after a sanitizer report. Calls settle() before each
    repeat, and gives up if it returns False.

    \\return the last exit status, or UNDECIDED_STATUS
    """
    runs = 0
    while runs == 0 or (runs <= MAX_REPEATS and settle()):
        runs += 1
        with watch() as machine:
            status = run()
        if status == 0:
            return 0
        log(f"run_test.py: run {runs} failed with {status}; {machine}")
        if status == SANITIZER_STATUS or not machine.stalled:
            return status
    log(f"run_test.py: {UNDECIDED.format(runs)}, so this failure may be the machine's")
    return UNDECIDED_STATUS


def run_sanitized(command, log=print):
    """Runs a command. \\return its exit status, or SANITIZER_STATUS if there are sanitizer reports"""
    with tempfile.TemporaryDirectory() as directory, tempfile.TemporaryDirectory() as runtime_directory:
        options = f"exitcode={SANITIZER_STATUS}:log_path={directory}/report"
        environment = {name: ":".join(filter(None, (os.environ.get(name), options)))
                       for name in ("ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS")}
        environment |= {"SANITIZER_REPORTS": directory, "XDG_RUNTIME_DIR": runtime_directory}
        status = subprocess.run(command, env={**os.environ, **environment}).returncode
        reports = sorted(pathlib.Path(directory).iterdir())
        for report in reports:
            log(f"run_test.py: {report.name}:\n{report.read_text(errors='replace')}")
    return SANITIZER_STATUS if reports else status


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--pace", action="store_true")
    parser.add_argument("command", nargs=argparse.REMAINDER)
    arguments = parser.parse_args()

    def log(text):
        print(text, flush=True)

    def run():
        return run_sanitized(arguments.command, log)

    return run_at_pace(run, settle=lambda: wait_for_calm_machine(log=log), log=log) if arguments.pace else run()


if __name__ == "__main__":
    status = main()
    sys.exit(status if status >= 0 else 128 - status)
