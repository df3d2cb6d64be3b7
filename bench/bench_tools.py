# SPDX-License-Identifier: MIT
"""Shared by the measurements: the simulated camera as a process, the state of the machine, tables, and their publication."""

import argparse
import contextlib
import datetime
import json
import os
import pathlib
import platform
import re
import shlex
import statistics
import subprocess
import sys
import time

from frame_account import FrameAccount
from measurement_pages import PAGES, Page, digest_of, revision
from processor_time import processor_times, stolen_between

BUILD = pathlib.Path(os.environ["BUILD"])
MAX_STOLEN = 0.05     # of the processor time; above it, a run mainly measures the load of other virtual machines
MAX_ATTEMPTS = 4      # for a run, because time may be stolen again
FRAMES_LOST = 1       # exit status of a measurement that found a loss
# Of each run with --inject-loss: complete frames are lost at random, resends included, because their leader never arrives.
LOSS = 'seed = 1\n[[fault]]\nkind = "leader_loss"\nprobability = 0.1\nincluding_resends = true\n'
CALIBRATION_FRAMES = 1  # at the start of a run, which the plug-in does not deliver
CONFIGURATION = """
[image]
width = {width}
height = {height}
[timing]
frame_rate_hz = {rate}.0
[exposure]
auto = "Off"
time_us = 2000
[memory]
export_buffers = 64
[run]
frames = {frames}
[output]
format = "{format}"
"""
CONVENIENCE = ("--limits", "independent")  # the plug-in sets no region in a camera whose limits depend on each other


@contextlib.contextmanager
def camera(*options, inside=()):
    """Runs camsim until the context is left.

    `inside` is a command that starts it elsewhere, for example in another network namespace. Yields the process.
    """
    process = subprocess.Popen([*inside, BUILD / "bin/camsim", *CONVENIENCE, *options], stdout=subprocess.PIPE, text=True)
    try:
        ready = process.stdout.readline()
        if not ready.startswith("camsim: ready"):
            raise RuntimeError(f"camsim did not start: {ready}")
        yield process
    finally:
        process.terminate()
        process.wait()


def read_truth(path):
    """The frames of a truth file, in order."""
    _, *frames = (json.loads(line) for line in path.read_text().splitlines())
    return frames


def read_index(directory):
    """The lines of a recording's frame index; none if nothing was recorded."""
    path = directory / "frames.jsonl"
    return [json.loads(line) for line in path.read_text().splitlines()] if path.exists() else []


def write_configuration(directory, options, output_format, more=""):
    """Writes run.toml: a recording of `options.seconds` at `options.rate` frames/s, of `options.width` x `options.height` pixels."""
    (directory / "run.toml").write_text(CONFIGURATION.format(
        width=options.width, height=options.height, rate=options.rate, frames=options.rate * options.seconds, format=output_format) + more)


def account_of(directory):
    """\\return the account of the recording in `directory`/frames, beside the truth file of its camera; ticks of its frames"""
    ticks = [line["ticks"] for line in read_index(directory / "frames")]
    return FrameAccount(read_truth(directory / "truth.jsonl"), ticks, skipped=CALIBRATION_FRAMES), ticks


def utc_us(frame, key):
    """A time of a frame in the truth file, for example "send_end_ns", in microseconds of UTC."""
    return (frame[key] + frame["utc_offset_ns"]) / 1000


def loss_options(directory, inject):
    """\\return the options with which camsim loses frames, if they are to be lost"""
    if not inject:
        return []
    path = pathlib.Path(directory) / "loss.toml"
    path.write_text(LOSS)
    return ["--faults", str(path)]


def set_features(address, *assignments):
    """Writes camera features with Aravis, each as NAME=VALUE."""
    subprocess.run(["arv-tool-0.8", "-a", address, "control", *assignments], check=True, capture_output=True)


def percentile(values, fraction):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(fraction * len(ordered)))]


def spread(values, digits=3):
    """The median and the range of repeated runs, as a cell of a table."""
    values = list(values)
    if not values:
        return "-"
    low, middle, high = (f"{value:.{digits}f}" for value in (min(values), statistics.median(values), max(values)))
    return middle if low == high else f"{middle} ({low} to {high})"


def table(head, rows):
    """A Markdown table."""
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return "\n".join(lines + ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]) + "\n"


class Goals:
    """The bounds that the figures are compared with."""

    def __init__(self):
        self.rows = []

    def add(self, figure, values, low=None, high=None, digits=2):
        """Compares the median of `values` with the bounds."""
        bound = f"at least {low:g}" if high is None else f"at most {high:g}"
        middle = statistics.median(values) if values else None
        met = middle is not None and (low is None or middle >= low) and (high is None or middle <= high)
        self.rows.append([figure, spread(values, digits), bound, "yes" if met else "**no**" if values else "not measured"])

    def table(self):
        return table(["figure", "median (range)", "wanted", "reached"], self.rows)


def plot(chart, size, script):
    """Runs gnuplot, which writes `chart`.png of `size`, "WIDTH,HEIGHT" in pixels."""
    subprocess.run(["gnuplot"], input=f"set terminal pngcairo size {size}\nset output '{chart}.png'\n{script}", text=True, check=True)


def processor():
    """\\return number and name of the processors"""
    names = re.findall(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    return f"{os.cpu_count()} x {names[0] if names else platform.machine()}"


class Steadiness:
    """Repeats runs during which other virtual machines took processor time from this one, and counts them.

    `times` returns stolen and all processor time so far; tests replace it.
    """

    def __init__(self, times=processor_times):
        self.times = times
        self.stolen = []                 # fraction of the processor time, of each run
        self.repeated = self.accepted = 0  # runs; accepted although too much was stolen each time

    def steady(self, run, *arguments, **keywords):
        """Calls `run`, again while too much processor time was stolen meanwhile. \return the result of the steadiest call"""
        attempts = []
        while len(attempts) < MAX_ATTEMPTS:
            before = self.times()
            result = run(*arguments, **keywords)
            attempts.append((stolen_between(before, self.times()), len(attempts), result))
            if attempts[-1][0] <= MAX_STOLEN:
                break
        self.repeated += len(attempts) - 1
        best = min(attempts, key=lambda attempt: attempt[:2])
        self.accepted += best[0] > MAX_STOLEN
        self.stolen.append(best[0])
        return best[2]

    def report(self):
        return (f"median {100 * statistics.median(self.stolen):.1f} %, maximum {100 * max(self.stolen):.1f} % of {len(self.stolen)} runs; "
                f"{self.repeated} repeated because of more than {100 * MAX_STOLEN:.0f} %, {self.accepted} accepted nevertheless")


class Measurement(Steadiness):
    """One measurement: its command line, the state of the machine, and the page of its tables.

    `subject` names the page and the command, `scripts/bench SUBJECT` unless `command` is another one. Options that all measurements
    have are added to `options`, which are parsed.
    """

    def __init__(self, subject, options, command=None):
        super().__init__()
        options.add_argument("--publish", action="store_true", help=f"write the tables to docs/measurements/{subject}.md")
        self.options = options.parse_args()
        self.page = Page(PAGES / f"{subject}.md")
        self.revision, self.digest = revision(), digest_of(self.page.paths)
        self.command = shlex.join([*(command or ["scripts/bench", subject]), *sys.argv[1:]])
        self.load = os.getloadavg()[0]
        self.began = time.monotonic()
        self.before = processor_times()

    def header(self):
        """What the figures depend on."""
        stolen = self.report() if self.stolen else f"{100 * stolen_between(self.before, processor_times()):.1f} %"
        return table(["measured", datetime.date.today().isoformat()], [
            ["revision", self.revision],
            ["measured code", f"{' '.join(self.page.paths)}, digest `{self.digest}`"],
            ["command", f"`{self.command}`, {time.monotonic() - self.began:.0f} s"],
            ["processor", processor()],
            ["kernel", f"{platform.system()} {platform.release()}"],
            ["load average before", f"{self.load:.2f}"],
            ["stolen processor time", stolen]])

    def finish(self, text):
        """Prints the tables, and writes them to the page if that is wanted."""
        text = self.header() + "\n" + text
        print(text)
        if self.options.publish:
            self.page.replace(text)

    def chart(self, name):
        """Where a plot is to be written: beside the page, or in the build directory. \\return the path without suffix"""
        directory = PAGES if self.options.publish else BUILD / "measurements"
        directory.mkdir(exist_ok=True)
        return directory / name


def parser(subject, description):
    return argparse.ArgumentParser(prog=f"scripts/bench {subject}", description=description.splitlines()[0])


def add_recording_options(options, rate, width, height):
    """Adds the options of a measurement that records from simulated cameras; the parameters are defaults."""
    options.add_argument("--seconds", type=int, default=20, help="length of each recording (20)")
    options.add_argument("--rate", type=int, default=rate, help=f"frames/s of each camera ({rate})")
    options.add_argument("--width", type=int, default=width, help=f"pixels ({width})")
    options.add_argument("--height", type=int, default=height, help=f"pixels ({height})")
    options.add_argument("--inject-loss", action="store_true", help="let the cameras lose frames; the measurement must then fail")
    options.add_argument("--scratch", help="parent of the temporary directory for frames: on the disk that is measured")


def report_problems(problems):
    """Prints the losses that were found. \\return the exit status of the measurement"""
    for problem in problems:
        print(f"FRAMES LOST: {problem}", file=sys.stderr)
    return FRAMES_LOST if problems else 0
