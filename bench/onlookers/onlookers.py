"""What those who look at a recording cost it: the time from a frame's last packet to its export, without them and with three pages open and a
program that reads every frame from memory, in turn; frames of 1 MB at 100 frames/s, recorded to BigTIFF."""

import argparse
import contextlib
import http.client
import json
import os
import pathlib
import re
import resource
import statistics
import subprocess
import sys
import tempfile
import threading
import time

from bench_tools import BUILD, camera, percentile, read_truth, table, utc_us

WIDTH, HEIGHT, RATE = 1280, 800, 100
PAGES = 3
DEADLINE_SECONDS = 60
EXAMPLES = pathlib.Path(__file__).parents[2] / "examples/frame_ring"

# A camera has processors of its own. This one shares ours, so it is run as soon as it has something to do.
PROMPTLY = """
import ctypes, os, struct, sys
ctypes.CDLL(None).syscall(314, 0, struct.pack("IIQiIQQQ", 56, 0, 0, 0, 0, 100000, 0, 0), 0)  # sched_setattr
os.execv(sys.argv[1], sys.argv[1:])
"""

CONFIGURATION = f"""
[image]
width = {WIDTH}
height = {HEIGHT}
[timing]
frame_rate = {RATE}.0
[output]
format = "bigtiff"
"""


class Page(threading.Thread):
    """Asks as the page does: pictures without a pause, figures every half second."""

    def __init__(self, port):
        super().__init__()
        self.port = port
        self.pictures = 0

    def get(self, path):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=20)
        try:
            connection.request("GET", path)
            response = connection.getresponse()
            return response, response.read()
        finally:
            connection.close()

    def run(self):
        os.sched_setscheduler(0, os.SCHED_IDLE, os.sched_param(0))  # who looks has a machine of their own
        frame = 0
        figures_due = 0.0
        with contextlib.suppress(OSError, http.client.HTTPException):  # the recording is over
            while True:
                response, _ = self.get(f"/frame.jpg?after={frame}")
                if response.status == 200:
                    frame = int(response.getheader("X-Frame"))
                    self.pictures += 1
                if time.monotonic() >= figures_due:
                    figures_due = time.monotonic() + 0.5
                    for path in ("/status.json", "/history.json", "/log.json"):
                        self.get(path)


class Browser:
    """A page in Chromium."""

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
    """The example in Python: mean value of every frame."""

    def __init__(self, socket):
        deadline = time.monotonic() + DEADLINE_SECONDS
        while not socket.exists() and time.monotonic() < deadline:
            time.sleep(0.01)
        self.process = subprocess.Popen(["/usr/bin/python3", EXAMPLES / "frame_ring.py", socket], text=True,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)

    def finish(self):
        """\\return frames read, frames missed"""
        told = self.process.communicate(timeout=DEADLINE_SECONDS)[1]
        return tuple(map(int, re.findall(r"\d+", told)))


def port_of(process, log):
    for line in process.stderr:
        log.append(line)
        if found := re.search(r"the page is at http://127.0.0.1:(\d+)/", line):
            return int(found.group(1))
    raise RuntimeError("".join(log))


def record(directory, seconds, onlookers, browsers):
    """One recording. \\return microseconds from last packet to export, frames lost, processor seconds, what onlookers saw"""
    directory = pathlib.Path(directory)
    configuration = directory / "run.toml"
    socket = directory / "ring"
    looked_at = f"[ring]\nsocket = \"{socket}\"\n[web]\naddress = \"127.0.0.1:0\"\n" if onlookers else ""
    configuration.write_text(CONFIGURATION + looked_at)
    truth_path = directory / "truth.jsonl"
    log = []
    with camera("--pacing", "118", "--truth", truth_path, inside=["/usr/bin/python3", "-c", PROMPTLY]):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        process = subprocess.Popen([BUILD / "bin/mediagrabber", "run", "--config", configuration, "--frames", str(RATE * seconds),
                                    "--output", directory / "frames"], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        pages, reader, saw = [], None, "-"
        if onlookers:
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
            saw = f"{read} frames from memory, {missed} missed"
            if browsers:
                [page.close() for page in pages]
            else:
                [page.join() for page in pages]
                saw += f"; {'/'.join(str(page.pictures) for page in pages)} pictures"
    lines = [json.loads(line) for line in (directory / "frames/frames.jsonl").read_text().splitlines()]
    sent = {frame["ticks"]: utc_us(frame, "send_end_ns") for frame in read_truth(truth_path) if frame["fate"] == "sent"}
    delays = [line["handed_over_us"] - sent[line["ticks"]] for line in lines if line["ticks"] in sent]
    used = usage.ru_utime + usage.ru_stime - before.ru_utime - before.ru_stime
    return delays, RATE * seconds - len(lines), used, saw


def main():
    options = argparse.ArgumentParser(prog="scripts/bench onlookers", description=__doc__)
    options.add_argument("--seconds", type=int, default=20, help="length of each recording (20)")
    options.add_argument("--repetitions", type=int, default=3, help="recordings of each kind (3)")
    options.add_argument("--browsers", action="store_true", help="pages in Chromium, on this machine, too")
    options.add_argument("--directory", help="where to record to; as for temporary files unless given")
    options.add_argument("--output", type=pathlib.Path, default=pathlib.Path("docs/measurements"))
    chosen = options.parse_args()

    kinds = {"nobody": (False, False), "three pages and a reader": (True, False)}
    if chosen.browsers:
        kinds["three pages in Chromium and a reader"] = (True, True)
    rows = []
    medians = {kind: [] for kind in kinds}
    for repetition in range(1, chosen.repetitions + 1):
        for kind, (onlookers, browsers) in kinds.items():
            with tempfile.TemporaryDirectory(dir=chosen.directory) as directory:
                delays, lost, used, saw = record(directory, chosen.seconds, onlookers, browsers)
            medians[kind].append(percentile(delays, 0.99))
            rows.append([repetition, kind, len(delays), lost, *(f"{percentile(delays, share):.0f}" for share in (0.5, 0.99)),
                         f"{max(delays):.0f}", f"{used:.1f}" if not onlookers else f"{used:.1f} (not the reader's)", saw])
            print(rows[-1], file=sys.stderr)
    text = table(["run", "who looks", "frames", "lost", "us from the last packet to export: p50", "p99", "most",
                  "processor seconds", "what they saw"], rows)
    alone = statistics.median(medians["nobody"])
    text += "\n" + table(["who looks", "p99, median of the runs, us", "of that alone"],
                         [[kind, f"{statistics.median(values):.0f}", f"{statistics.median(values) / alone:.2f}"]
                          for kind, values in medians.items()])
    print(text)
    (chosen.output / "onlookers.tables.md").write_text(text)


if __name__ == "__main__":
    main()
