# SPDX-License-Identifier: MIT
"""Measures the cost of viewers for a recording: the latency from a frame's last packet to its export.

Run by `scripts/bench viewers`. Recordings without viewers alternate with recordings that have three web pages open and a program that
reads every frame from the frame ring. Frames of 1 MB at 100 frames/s are recorded to BigTIFF. Fails if a run lost a frame.
"""

import os
import pathlib
import re
import resource
import subprocess
import sys
import tempfile
import time

from bench_tools import (BUILD, CALIBRATION_FRAMES, Measurement, camera, loss_options, parser, percentile, read_index, read_truth,
                         report_problems, spread, table, utc_us)
from frame_account import FrameAccount
from page_viewer import Page

WIDTH, HEIGHT, RATE = 1280, 800, 100
QUICK_RATE = 10  # frames/s, which a busy machine keeps up with
PAGES = 3
DEADLINE_SECONDS = 60
SOURCE = pathlib.Path(__file__).parents[2]

# A real camera has its own CPU. The simulated one shares this machine, so a short scheduler slice lets it run promptly.
PROMPTLY = """
import ctypes, os, struct, sys
ctypes.CDLL(None).syscall(314, 0, struct.pack("IIQiIQQQ", 56, 0, 0, 0, 0, 100000, 0, 0), 0)  # sched_setattr
os.execv(sys.argv[1], sys.argv[1:])
"""

CONFIGURATION = """
[image]
width = {width}
height = {height}
[timing]
frame_rate_hz = {rate}.0
[output]
format = "bigtiff"
"""


class Browser:
    """The page in headless Chromium."""

    def __init__(self, port):
        from selenium import webdriver
        options = webdriver.chrome.options.Options()
        options.binary_location = "/usr/bin/chromium"
        for option in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run"):
            options.add_argument(option)
        self.driver = webdriver.Chrome(service=webdriver.chrome.service.Service("/usr/bin/chromedriver"), options=options)
        self.driver.get(f"http://127.0.0.1:{port}/")

    def close(self):
        self.driver.quit()


class Reader:
    """The Python example of the frame ring, which calculates the mean value of every frame."""

    def __init__(self, socket):
        deadline = time.monotonic() + DEADLINE_SECONDS
        while not socket.exists() and time.monotonic() < deadline:
            time.sleep(0.01)
        self.process = subprocess.Popen(["/usr/bin/python3", SOURCE / "examples/frame_ring/frame_brightness.py", socket],
                                        env=os.environ | {"PYTHONPATH": str(SOURCE / "python")}, text=True,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)

    def finish(self):
        """\\return frames read, frames missed"""
        summary = self.process.communicate(timeout=DEADLINE_SECONDS)[1]
        return tuple(map(int, re.findall(r"\d+", summary)))


def port_of(process, log):
    """Reads the log until it names the page. \\return the port"""
    for line in process.stderr:
        log.append(line)
        if found := re.search(r"live page: http://127.0.0.1:(\d+)/", line):
            return int(found.group(1))
    raise RuntimeError("".join(log))


class Run:
    """One recording: its frames, the latencies in microseconds, the CPU seconds, and what the viewers received."""

    def __init__(self, account, delays, used, received):
        self.account, self.delays, self.used, self.received = account, delays, used, received


def record(scratch, rate, frames, viewers, browsers, inject_loss):
    """Makes one recording in a new directory below `scratch`. \return it"""
    with tempfile.TemporaryDirectory(dir=scratch) as temporary:
        return record_in(pathlib.Path(temporary), rate, frames, viewers, browsers, inject_loss)


def record_in(directory, rate, frames, viewers, browsers, inject_loss):
    configuration = directory / "run.toml"
    socket = directory / "ring"
    viewer_sockets = f"[ring]\nsocket = \"{socket}\"\n[web]\naddress = \"127.0.0.1:0\"\n" if viewers else ""
    configuration.write_text(CONFIGURATION.format(width=WIDTH, height=HEIGHT, rate=rate) + viewer_sockets)
    truth_path = directory / "truth.jsonl"
    log = []
    with camera("--pacing", "118", "--truth", truth_path, *loss_options(directory, inject_loss),
                inside=["/usr/bin/python3", "-c", PROMPTLY]):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        process = subprocess.Popen([BUILD / "bin/mediagrabber", "run", "--plugin", BUILD / "lib/libmgjai.so", "--config", configuration,
                                    "--frames", str(frames), "--output", directory / "frames"], stdout=subprocess.DEVNULL,
                                   stderr=subprocess.PIPE, text=True)
        pages, reader, received = [], None, "-"
        if viewers:
            port = port_of(process, log)
            pages = [Browser(port) if browsers else Page(port) for _ in range(PAGES)]
            if not browsers:
                [page.start() for page in pages]
            reader = Reader(socket)
        log += process.stderr.readlines()
        if process.wait() not in (0, 1):
            raise RuntimeError("".join(log))
        usage = resource.getrusage(resource.RUSAGE_CHILDREN)
        if reader is not None:
            read, missed = reader.finish()
            received = f"{read} frames from shared memory, {missed} missed"
            if browsers:
                [page.close() for page in pages]
            else:
                [page.join() for page in pages]
                received += f"; {'/'.join(str(page.images) for page in pages)} images"
    lines, truth = read_index(directory / "frames"), read_truth(truth_path)
    sent = {frame["ticks"]: utc_us(frame, "send_end_ns") for frame in truth if frame["outcome"] == "sent"}
    delays = [line["handed_over_us"] - sent[line["ticks"]] for line in lines if line["ticks"] in sent]
    used = usage.ru_utime + usage.ru_stime - before.ru_utime - before.ru_stime
    account = FrameAccount(truth, [line["ticks"] for line in lines], skipped=CALIBRATION_FRAMES)
    return Run(account, delays, used, received)


def main():
    options = parser("viewers", __doc__)
    options.add_argument("--seconds", type=int, default=12, help="length of each recording (12)")
    options.add_argument("--repetitions", type=int, default=10, help="recordings of each kind (10)")
    options.add_argument("--browsers", action="store_true", help="also measure pages in Chromium on this machine")
    options.add_argument("--quick", action="store_true", help="one short run of each kind at a low rate, to try the programs")
    options.add_argument("--inject-loss", action="store_true", help="let the camera lose frames; the measurement must then fail")
    options.add_argument("--directory", help="parent directory of the recordings (the system's temporary directory)")
    measurement = Measurement("viewers", options)
    chosen = measurement.options
    seconds, repetitions, rate = (2, 1, QUICK_RATE) if chosen.quick else (chosen.seconds, chosen.repetitions, RATE)

    kinds = {"none": (False, False), "three pages and a reader": (True, False)}
    if chosen.browsers:
        kinds["three pages in Chromium and a reader"] = (True, True)
    runs = {kind: [] for kind in kinds}
    rows, problems = [], []
    for repetition in range(1, repetitions + 1):
        for kind, (viewers, browsers) in kinds.items():
            run = measurement.steady(record, chosen.directory, rate, rate * seconds, viewers, browsers, chosen.inject_loss)
            runs[kind].append(run)
            problems += [f"run {repetition}, viewers: {kind}: {problem}" for problem in run.account.problems(rate * seconds)]
            latencies = [f"{percentile(run.delays, fraction):.0f}" for fraction in (0.5, 0.99, 1)] if run.delays else ["-"] * 3
            rows.append([repetition, kind, run.account.received, run.account.lost, run.account.left_out, *latencies,
                         f"{run.used:.1f}" if not viewers else f"{run.used:.1f} (without the reader)", run.received])
            print(*rows[-1], sep="\t", file=sys.stderr)
    text = table(["viewers", "us from the last packet to export, median of the runs (range): p50", "p99", "p99 relative to no viewer",
                  "frames lost"], summary(runs))
    text += "\n" + table(["run", "viewers", "frames", "lost", "left out by the camera", "us from the last packet to export: p50", "p99",
                          "maximum", "CPU seconds", "seen by viewers"], rows)
    measurement.finish(text)
    return report_problems(problems)


def summary(runs):
    """\\return a row for each kind; each run is compared with that without viewers next to it"""
    p99 = lambda run: percentile(run.delays, 0.99)
    rows = []
    for kind, each in runs.items():
        pairs = [(run, alone) for run, alone in zip(each, runs["none"]) if run.delays and alone.delays]
        rows.append([kind, spread([percentile(run.delays, 0.5) for run, _ in pairs], 0), spread([p99(run) for run, _ in pairs], 0),
                     spread([p99(run) / p99(alone) for run, alone in pairs], 2), sum(run.account.lost for run in each)])
    return rows


if __name__ == "__main__":
    sys.exit(main())
