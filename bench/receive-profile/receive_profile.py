# SPDX-License-Identifier: MIT
"""Shows where the CPU time of receiving goes: perf samples the grabber of the examples, mediagrabber and Aravis. Shows also where
the time from the last packet of a frame to its export goes: perf traces the system calls of mediagrabber.

Run by `scripts/bench receive-profile` as root, because only root may sample the kernel. docs/measurements/receive.md describes the
programs.
"""

import collections
import pathlib
import re
import subprocess
import sys
import tempfile

from bench_tools import Measurement, parser, table
from receive import ARAVIS, GRABBER, RATE, SIZES, Mediagrabber, Printing, Stream, grab, loopback

SAMPLES_PER_SECOND = 4000
MIN_PERCENT = 1.5  # of the samples; smaller shares are not listed


def sampled(name, recorder):
    """\\return the program of this name, run by `recorder`"""
    if name == "mediagrabber":
        return Mediagrabber(run_as=recorder)
    program = {each.name: each for each in (GRABBER, ARAVIS)}[name]
    return Printing(name, lambda path, stream: [*recorder, *program.command(path, stream)])


def places(data):
    """\\return thread, object, symbol and percentage of each place in the samples"""
    done = subprocess.run(["perf", "report", "--input", data, "--stdio", "--no-children", "--sort", "comm,dso,symbol", "-t", ";"],
                          check=True, capture_output=True, text=True)
    found = []
    for line in done.stdout.splitlines():
        cells = [cell.strip() for cell in line.split(";")]
        if len(cells) >= 4 and cells[0].endswith("%"):
            level, _, symbol = cells[3].partition(" ")
            found.append((cells[1], "kernel" if level == "[k]" else cells[2], symbol.strip(), float(cells[0].rstrip("%"))))
    if not any(where == "kernel" for _, where, _, _ in found):
        raise RuntimeError("perf has no samples of the kernel: run the script as root")
    return found


def profile(name, size, stream):
    """\\return the places of a run"""
    with tempfile.TemporaryDirectory() as directory:
        data = pathlib.Path(directory) / "samples"
        recorder = ("perf", "record", "--quiet", "--output", str(data), "--freq", str(SAMPLES_PER_SECOND), "--")
        grab(sampled(name, recorder), loopback(size), stream)
        return places(data)


def tables(name, size, found):
    """\\return the shares of threads, and the largest places"""
    threads = collections.Counter()
    for thread, where, _, percent in found:
        threads[thread, "kernel" if where == "kernel" else "program"] += percent
    text = f"{name}, {size} bytes:\n\n"
    text += table(["thread", "in", "share of the CPU time"],
                  [[*key, f"{percent:.0f} %"] for key, percent in threads.most_common() if percent >= MIN_PERCENT])
    largest = sorted((place for place in found if place[3] >= MIN_PERCENT), key=lambda place: -place[3])
    return text + "\n" + table(["thread", "in", "function", "share"],
                               [[thread, where, f"`{symbol}`", f"{percent:.1f} %"] for thread, where, symbol, percent in largest])


CALLS = {44: "send", 45: "receive", 202: "wait", 299: "receive packets"}  # sendto, recvfrom, futex, recvmmsg on x86-64
EVENT = re.compile(r"^\s*(?P<thread>\d+)\s+(?P<time>[\d.]+):\s+raw_syscalls:sys_(?P<edge>enter|exit): NR (?P<call>\d+)(?: = (?P<result>-?\d+))?")


def system_calls(text):
    """\\return thread, time in us, name, whether it is the return, and result of each call in the output of perf"""
    for found in filter(None, map(EVENT.match, text.splitlines())):
        yield (int(found["thread"]), float(found["time"]) * 1e6, CALLS[int(found["call"])], found["edge"] == "exit",
               int(found["result"] or 0))


class Loop:
    """The plug-in's loop: the times of its parts, in us, for each frame."""

    def __init__(self, calls):
        calls = list(calls)
        main = next(thread for thread, _, name, _, _ in calls if name == "send")  # no other thread accesses features in the loop
        self.woken, self.accesses, self.loops = [], [], []
        packets = sent = last_access = woken = None
        for thread, time, name, returns, result in calls:
            if name == "receive packets" and returns and result > 0:
                packets = time
            elif thread != main:
                continue
            elif name == "wait" and returns:
                if last_access is not None and woken is not None:
                    self.loops.append(last_access - woken)
                if packets is not None:
                    self.woken.append(time - packets)
                woken, last_access = time, None
            elif name == "send" and not returns:
                sent = time
            elif name == "receive" and returns and result > 0 and sent is not None:
                self.accesses.append(time - sent)
                sent, last_access = None, time

    def table(self):
        rows = [[what, len(times), f"{quantile(times, 0.5):.0f}", f"{quantile(times, 0.99):.0f}"]
                for what, times in (("from the last receive call of the stream to the plug-in's thread", self.woken),
                                    ("one feature access, of five", self.accesses),
                                    ("from the wake of the plug-in's thread to the last answer", self.loops))]
        return table(["part of the time to the export", "number", "p50, us", "p99, us"], rows)


def quantile(values, share):
    return sorted(values)[int(share * (len(values) - 1))]


def trace(size, stream):
    """\\return the parts of mediagrabber's loop"""
    with tempfile.TemporaryDirectory() as directory:
        data = pathlib.Path(directory) / "calls"
        chosen = " || ".join(f"id == {number}" for number in CALLS)
        recorder = ("perf", "record", "--quiet", "--output", str(data), "-e", "raw_syscalls:sys_enter", "--filter", chosen,
                    "-e", "raw_syscalls:sys_exit", "--filter", chosen, "--")
        grab(sampled("mediagrabber", recorder), loopback(size), stream)
        text = subprocess.run(["perf", "script", "--input", data, "-F", "tid,time,event,trace", "--ns"], check=True, capture_output=True,
                              text=True).stdout
    return Loop(system_calls(text))


def main():
    options = parser("receive-profile", __doc__)
    options.add_argument("--seconds", type=float, default=10, help="length of each run (10)")
    measurement = Measurement("receive-profile", options)
    stream = Stream(RATE, measurement.options.seconds)
    parts = [tables(name, size, measurement.steady(profile, name, size, stream))
             for name in (GRABBER.name, "mediagrabber", ARAVIS.name) for size in SIZES]
    for size in SIZES:
        parts.append(f"mediagrabber, {size} bytes, system calls:\n\n" + measurement.steady(trace, size, stream).table())
    measurement.finish("\n".join(parts))


if __name__ == "__main__":
    sys.exit(main())
