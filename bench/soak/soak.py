# SPDX-License-Identifier: MIT
"""Soak test: a long recording with random faults, in which every frame must be accounted for and resource usage must not grow.

Run by `scripts/soak MINUTES` inside a network namespace of its own. mediagrabber records at 100 frames/s from the simulated camera into
the pre-trigger buffer and a GStreamer pipeline. Meanwhile a viewer looks at the page and reads the metrics, a program reads the frame
ring, and a broker receives a message for each frame, from which the frames are accounted. Every few seconds a random event is injected:
a fault of the camera or the network, a reload with other values, invalid ones or another region, a live update, a calculated LUT, a
trigger. All the time, visitors of every bad kind (bad_visitors.py) use page, control socket, ring and camera network. Fails if frames are
missing that were not reported lost, if memory, descriptors or threads grow, if a consumer received nothing, or if mediagrabber
does not exit cleanly.
"""

import argparse
import atexit
import collections
import json
import os
import pathlib
import random
import re
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time
import tomllib

from bad_visitors import BadVisitors
from bench_tools import BUILD, CALIBRATION_FRAMES, CONVENIENCE, Measurement, plot, table, utc_us
from frame_account import completely_sent
from growth import BLOCKS, Growth
from page_viewer import FIGURES, Page

CONFIGURATION = """
[image]
width = {width}
height = {height}
[transport]
packet_size_bytes = 1400
[timing]
frame_rate_hz = {rate}.0
clock_correction_ppb = 1
[exposure]
auto = "Off"
time_us = 2000
[gain]
auto = "Off"
db = {gain}
[tone]
enable = true
[memory]
export_buffers = 64
[output]
format = "raw"
pipeline = "videoscale ! video/x-raw,width=160 ! jpegenc ! fakesink sync=false"
[pretrigger]
seconds = 0.5
[web]
address = "127.0.0.1:0"
[ring]
socket = "{ring}"
[mqtt]
broker = "mqtt://127.0.0.1"
frames = true
queue_frames = 65536
[run]
retry_interval_s = 0.5
give_up_after = "never"
[log]
level = "info"
"""
RATE = 100
SAMPLE_SECONDS = 1.0
SETTLED_FRACTION = 1 / 3  # of the run, after which resource usage must not grow: the page's history fills for 11 minutes
MEMORY_BOUND = 1024      # kilobytes per hour; a growth that the run must be able to show
QUIET_SECONDS = 15       # at the end, without events
MAX_ANSWER_SECONDS = 1   # of the control socket, whatever visitors do
IN_FLIGHT_SECONDS = 0.1  # a frame that was sent longer ago than this is exported, while the camera is undisturbed
BROKER = "listener 1883 127.0.0.1\nallow_anonymous true\npersistence false\nuser root\nlog_dest none\n"
SOURCE = pathlib.Path(__file__).parents[2]
# Counts in openpv's log records of its stream statistics, and in mediagrabber's summary.
LOST_FRAMES = re.compile(r"\b(?:frames_incomplete|frames_missing|frames_without_buffer|frames_too_large)=(\d+)")
DROPPED_FRAMES = re.compile(r"dropped: (\d+) \(queue full\)")


def start(command, **options):
    """Starts a program, which is killed at the end of this one if it still runs then. \return its process"""
    process = subprocess.Popen(command, **options)
    atexit.register(process.kill)
    return process


class Camera:
    """camsim with a connection to its control socket."""

    def __init__(self, directory):
        self.truth_path = directory / "truth.jsonl"
        path = directory / "control"
        self.process = start([BUILD / "bin/camsim", *CONVENIENCE, "--pacing", "118", "--truth", self.truth_path, "--control", path],
                             stdout=subprocess.PIPE, text=True)
        if not self.process.stdout.readline().startswith("camsim: ready"):
            raise RuntimeError("camsim did not start")
        self.control = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.control.connect(str(path))
        self.answers = self.control.makefile("r")

    def inject(self, kind, **parameters):
        """Starts a fault. It ends by itself after `for_s` seconds."""
        fields = ", ".join(f"{name} = {json.dumps(value)}" for name, value in {"kind": kind, **parameters}.items())
        self.control.sendall(f"start = {{ {fields} }}\n".encode())
        answer = tomllib.loads(self.answers.readline())
        if "fault" not in answer:
            raise RuntimeError(f"{kind}: {answer}")

    def end(self):
        self.process.terminate()
        return self.process.wait(timeout=60)


def wait_for(condition, what):
    deadline = time.monotonic() + 60
    while not condition():
        if time.monotonic() > deadline:
            raise RuntimeError(f"timed out waiting for {what}")
        time.sleep(0.1)


class Broker:
    """mosquitto, and a subscriber that writes the frame messages to a file: they have the content of the frame index."""

    def __init__(self, directory):
        (directory / "broker.conf").write_text(BROKER)
        self.messages = directory / "frames.jsonl"
        self.broker = start(["/usr/sbin/mosquitto", "-c", directory / "broker.conf"], stderr=subprocess.DEVNULL)
        wait_for(self._accepts_connections, "the broker")
        with self.messages.open("w") as file:
            self.subscriber = start(["mosquitto_sub", "-h", "127.0.0.1", "-t", "mediagrabber/0/frame"], stdout=file,
                                    stderr=subprocess.DEVNULL)

    @staticmethod
    def _accepts_connections():
        with socket.socket() as client:
            return client.connect_ex(("127.0.0.1", 1883)) == 0

    def end(self):
        for process in (self.subscriber, self.broker):
            process.terminate()
            process.wait()


class Reader:
    """The Python example of the frame ring."""

    def __init__(self, path):
        self.process = start(["/usr/bin/python3", SOURCE / "examples/frame_ring/frame_brightness.py", path], text=True,
                             env=os.environ | {"PYTHONPATH": str(SOURCE / "python")}, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)

    def end(self):
        """Waits until the recording has ended. \return frames read"""
        found = re.match(r"(\d+) frames", self.process.communicate(timeout=60)[1])
        return int(found.group(1)) if found else 0


class Recording:
    """mediagrabber, and its log with the time of each line."""

    def __init__(self, directory):
        self.directory = directory
        self.ring = directory / "ring"
        self.values = {"width": 640, "height": 480, "rate": RATE, "gain": 0, "ring": self.ring}
        self.configuration = directory / "run.toml"
        self.write()
        self.socket = directory / "set"
        with self.configuration.open("a") as file:
            file.write(f'[control]\nsocket = "{self.socket}"\n')
        self.process = start(
            [BUILD / "bin/mediagrabber", "run", "--plugin", BUILD / "lib/libmgjai.so", "--config", self.configuration, "--output",
             directory / "frames"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.log = collections.deque()  # (seconds of UTC, line)
        self.stopped = None  # seconds of UTC
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def _read(self):
        for line in self.process.stdout:
            self.log.append((time.time(), line.rstrip()))

    def write(self):
        self.configuration.write_text(CONFIGURATION.format(**self.values))

    def reload(self, **values):
        self.values.update(values)
        self.write()
        self.process.send_signal(signal.SIGHUP)

    def reload_invalid(self):
        self.configuration.write_text(CONFIGURATION.format(**self.values) + "[nonsense\n")
        self.process.send_signal(signal.SIGHUP)
        time.sleep(0.5)  # the file is read by then, or is valid again
        self.write()

    def set(self, assignment):
        subprocess.run([BUILD / "bin/mediagrabber", "set", "--socket", self.socket, "--timeout", "20", assignment],
                       capture_output=True, check=False)

    def end(self):
        self.stopped = time.time()
        self.process.send_signal(signal.SIGTERM)
        status = self.process.wait(timeout=120)
        self.reader.join()
        return status

    def port(self):
        """\\return the port of the page, once it is in the log"""
        found = [re.search(r"live page: http://127.0.0.1:(\d+)/", line) for _, line in list(self.log)]
        return next((int(one.group(1)) for one in found if one), None)

    def triggered(self):
        """\\return frames that triggers have saved"""
        return sum(sum(1 for _ in lines_of(path)) for path in self.directory.glob("frames/pretrigger/*/frames.jsonl"))


def events(camera, recording, generator):
    """The random events by name, each as its weight and its function."""
    def duration():
        return round(generator.uniform(0.5, 4), 1)

    def region():
        recording.reload(width=generator.choice((320, 480, 640)), height=generator.choice((240, 480)))

    return {
        "packet loss": (5, lambda: camera.inject("packet_loss", probability=generator.choice((0.001, 0.01, 0.05)), for_s=duration())),
        "burst loss": (3, lambda: camera.inject("loss_burst", probability=0.2, packets=generator.choice((5, 50, 500)), for_s=duration())),
        "packet reordering": (3, lambda: camera.inject("packet_reordering", probability=0.05, for_s=duration())),
        "packet duplication": (3, lambda: camera.inject("packet_duplication", probability=0.05, for_s=duration())),
        "header corruption": (2, lambda: camera.inject("header_corruption", probability=0.001, for_s=duration())),
        "leader loss": (2, lambda: camera.inject("leader_loss", probability=0.3, for_s=duration())),
        "trailer loss": (2, lambda: camera.inject("trailer_loss", probability=0.3, for_s=duration())),
        "block drop": (2, lambda: camera.inject("block_drop", probability=0.2, for_s=duration())),
        "freeze": (2, lambda: camera.inject("freeze", for_s=round(generator.uniform(0.1, 1.5), 1))),
        "ACK delay": (2, lambda: camera.inject("ack_delay", delay_ms=generator.choice((5, 50)), for_s=duration())),
        "ACK loss": (2, lambda: camera.inject("ack_loss", probability=0.05, for_s=duration())),
        "ACK duplication": (2, lambda: camera.inject("ack_duplication", probability=0.3, for_s=duration())),
        "ACK with wrong ID": (2, lambda: camera.inject("ack_wrong_id", probability=0.05, for_s=duration())),
        "read failure: temperature": (1, lambda: camera.inject("read_failure", for_s=duration())),
        "power cycle": (0.5, lambda: camera.inject("power_cycle", for_s=round(generator.uniform(1, 4), 1))),
        "reload: rate": (3, lambda: recording.reload(rate=generator.choice((80, 100, 100, 100)))),
        "reload: gain": (3, lambda: recording.reload(gain=generator.choice((0, 3, 6)))),
        "reload: region": (1, region),
        "reload: invalid": (1, recording.reload_invalid),
        "set gain.db": (3, lambda: recording.set(f"gain.db={generator.choice((0, 1, 2))}")),
        "signal lut": (2, lambda: recording.process.send_signal(signal.SIGUSR1)),
        "signal trigger": (1, lambda: recording.process.send_signal(signal.SIGRTMIN + 1)),
        "signal lut12": (1, lambda: recording.process.send_signal(signal.SIGUSR2)),
    }


def sample(process):
    """\\return resident memory in kilobytes, descriptors and threads"""
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    resident, threads = (int(re.search(rf"{name}:\s+(\d+)", status).group(1)) for name in ("VmRSS", "Threads"))
    return resident, len(os.listdir(f"/proc/{process.pid}/fd")), threads


def lines_of(path):
    """The objects of a JSON Lines file, without an incomplete last line."""
    with path.open() as file:
        for line in file:
            if line.endswith("\n"):
                yield json.loads(line)


def account(truth, ticks, log, stopped):
    """Compares the camera's frames with the exported ones and the log, from the camera's first frame to the end of the recording.

    `truth` are the lines of the truth file, `ticks` those of the exported frames, `log` pairs of time and line, and `stopped` is the
    time of the stop request, all in seconds of UTC. \return the counts
    """
    exported = set(ticks)
    # A dropped block has used a block ID, so the receiver counts it as lost. Blocks that a frozen camera did not send have no
    # block ID and cannot be missed.
    frames = [frame for frame in truth if frame.get("outcome") == "sent" or "block_drop" in frame.get("faults", {})]
    positions = [position for position, frame in enumerate(frames) if frame["ticks"] in exported]
    last = max([*positions, *(position for position, frame in enumerate(frames)
                              if completely_sent(frame) and utc_us(frame, "send_end_ns") / 1e6 < stopped - IN_FLIGHT_SECONDS)])
    # Frames after this log line are not received until the next run of the plug-in has started.
    boundaries = [when for when, line in log if "grabbing loop is completed" in line]
    in_runs = between = boundary_gaps = 0
    for before, after in zip([CALIBRATION_FRAMES - 1, *positions], [*positions, last + 1]):
        missing = after - before - 1
        if missing <= 0:
            continue
        begin, end = (utc_us(frames[min(position, last)], "exposure_end_ns") / 1e6 for position in (before, after))
        if any(begin - 0.5 <= when <= end + 0.5 for when in boundaries if when < stopped):
            between += missing
            boundary_gaps += 1
        else:
            in_runs += missing
    text = "\n".join(line for _, line in log)
    reported = sum(map(int, LOST_FRAMES.findall(text))) + sum(map(int, DROPPED_FRAMES.findall(text)))
    return {"sent": last + 1, "exported": len(positions), "unknown": len(exported) - len(positions), "missing within runs": in_runs,
            "missing between runs": between, "reported lost": reported, "runs of the plug-in": len(boundaries),
            "gaps between runs": boundary_gaps}


def draw(chart, data):
    plot(chart, "1000,700", f"""set multiplot layout 3,1
set xlabel 'minutes'
set grid
set key bottom right
set ylabel 'resident memory, MB'
set yrange [0:*]
plot '{data}' using ($1/60):($2/1024) with lines title 'mediagrabber', '' using ($1/60):($6/1024) with lines title 'camsim'
set ylabel 'mediagrabber'
plot '{data}' using ($1/60):3 with steps title 'descriptors', '' using ($1/60):4 with steps title 'threads'
set ylabel 'frames/s exported'
plot '{data}' using ($1/60):5 with lines title ''
""")


class Soak:
    """One soak test: its processes, samples and counts."""

    def __init__(self, minutes, seed, directory):
        self.generator = random.Random(seed)
        self.counts = collections.Counter()
        self.samples = []
        self.broker = Broker(directory)
        self.camera = Camera(directory)
        self.recording = Recording(directory)
        wait_for(self.recording.port, "the page")
        wait_for(self.recording.ring.exists, "the frame ring")
        self.page = Page(self.recording.port(), (*FIGURES, "/metrics"))
        self.page.start()
        self.reader = Reader(self.recording.ring)
        wait_for(lambda: self.broker.messages.stat().st_size != 0, "the first frame")
        self.visitors = BadVisitors(self.recording.port(), self.recording.socket, self.recording.ring, seed)
        self.run(minutes * 60)
        self.page_alive = self.page.is_alive()
        self.visitors.end()
        self.status = self.recording.end()
        self.camera_status = self.camera.end()
        self.page.join()
        self.consumed = {"images of the page": self.page.images, "answers with metrics": self.page.answers["/metrics"],
                         "frames read from the ring": self.reader.end(), "frames saved by triggers": self.recording.triggered()}
        self.broker.end()

    def run(self, seconds):
        actions = events(self.camera, self.recording, self.generator)
        names, weights = list(actions), [weight for weight, _ in actions.values()]
        began = time.monotonic()
        next_event = began + 5
        position = 0
        for step in range(1, int(seconds / SAMPLE_SECONDS) + 1):
            time.sleep(max(0.0, began + step * SAMPLE_SECONDS - time.monotonic()))
            if self.recording.process.poll() is not None:
                raise RuntimeError(f"mediagrabber ended with {self.recording.process.returncode}:\n" +
                                   "\n".join(line for _, line in list(self.recording.log)[-30:]))
            with self.broker.messages.open("rb") as file:
                file.seek(position)
                new = file.read()
                position += len(new)
            camera_memory, _, _ = sample(self.camera.process)
            self.samples.append((step * SAMPLE_SECONDS, *sample(self.recording.process), new.count(b"\n"), camera_memory))
            remaining = seconds - step * SAMPLE_SECONDS
            if time.monotonic() >= next_event and remaining > QUIET_SECONDS:
                name, = self.generator.choices(names, weights)
                actions[name][1]()
                self.counts[name] += 1
                next_event = time.monotonic() + self.generator.uniform(1, 5)


def resource_problems(figures, samples):
    """Adds resource usage to the figures. \return one line per problem"""
    settled = samples[int(len(samples) * SETTLED_FRACTION):]
    tenth = max(1, len(settled) // 10)
    problems = []
    for column, name in ((1, "resident memory, kB"), (2, "descriptors"), (3, "threads")):
        begin, end = (statistics.median(row[column] for row in part) for part in (settled[:tenth], settled[-tenth:]))
        figures[f"{name}, settled"], figures[f"{name}, at the end"] = f"{begin:g}", f"{end:g}"
        known = max(row[column] for row in settled[:len(settled) // 2])  # numbers may vary with the work of the moment
        if column != 1 and end > known:
            problems.append(f"{name} grew from {begin:g}, at most {known:g}, to {end:g}")
    growth = Growth([(row[0], row[1]) for row in settled], MEMORY_BOUND)
    figures["growth of resident memory, kB per hour"] = f"{growth}: {growth.decision}"
    if growth.decision != "does not grow":
        problems.append(f"resident memory {growth.decision}: {growth} kB per hour; "
                        f"undecided means that the uncertainty exceeds {MEMORY_BOUND}")
    return problems


def account_problems(figures):
    """\\return what is wrong with the counts of account(), one line per problem"""
    problems = []
    if figures["missing within runs"] > figures["reported lost"]:
        problems.append("frames are missing that were not reported lost")
    if figures["reported lost"] - figures["missing within runs"] > figures["missing between runs"]:
        problems.append("frames were reported lost that are not missing")
    if figures["unknown"] != 0:
        problems.append("frames were exported that were not sent")
    return problems


def consumer_problems(test):
    problems = [f"no {name}" for name, count in test.consumed.items()
                if count == 0 and (name != "frames saved by triggers" or test.counts["signal trigger"])]
    problems += test.visitors.errors
    if test.visitors.slowest_answer > MAX_ANSWER_SECONDS:
        problems.append(f"a request on the control socket waited for {test.visitors.slowest_answer:.1f} s")
    if not test.page_alive:
        problems.append("the page stopped answering")
    if test.status not in (0, 1) or test.camera_status != 0:
        problems.append(f"mediagrabber ended with {test.status}, camsim with {test.camera_status}")
    return problems


def main():
    options = argparse.ArgumentParser(prog="scripts/soak", description=__doc__.splitlines()[0])
    options.add_argument("minutes", type=float)
    options.add_argument("--seed", type=int, default=1, help="seed of the random events (1)")
    options.add_argument("--keep", type=pathlib.Path, help="directory for the frame messages, truth file and log, which are kept")
    measurement = Measurement("soak", options, command=["scripts/soak"])
    chosen = measurement.options
    if chosen.minutes * 60 / SAMPLE_SECONDS * (1 - SETTLED_FRACTION) < BLOCKS + 1:
        options.error(f"{chosen.minutes:g} minutes are too short to decide whether memory grows")
    with tempfile.TemporaryDirectory() as temporary:
        directory = chosen.keep or pathlib.Path(temporary)
        directory.mkdir(parents=True, exist_ok=True)
        test = Soak(chosen.minutes, chosen.seed, directory)
        log = list(test.recording.log)
        (directory / "log").write_text("".join(f"{when:.3f} {line}\n" for when, line in log))
        figures = account(lines_of(test.camera.truth_path), [line["ticks"] for line in lines_of(test.broker.messages)], log,
                          test.recording.stopped)
    problems = account_problems(figures) + resource_problems(figures, test.samples) + consumer_problems(test)
    figures.update(test.consumed)
    figures["slowest answer of the control socket, s"] = f"{test.visitors.slowest_answer:.3f}"
    chart = measurement.chart("soak")
    chart.with_suffix(".tsv").write_text("".join("\t".join(map(str, row)) + "\n" for row in test.samples))
    draw(chart, chart.with_suffix(".tsv"))
    measurement.finish(table(["figure", "value"], figures.items()) + "\n" + table(["event", "count"], sorted(test.counts.items())) +
                       "\n" + table(["bad visitor", "visits"], sorted(test.visitors.visits.items())) +
                       "\nResult: " + ("; ".join(problems) if problems else "every frame is accounted for, and no resource grows") + ".\n")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
