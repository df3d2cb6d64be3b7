"""A long run with everything that goes wrong on a line: is every frame accounted for, and does nothing grow?

Run by `scripts/soak MINUTES` inside a network namespace of its own. A recording at 100 frames/s from the simulated camera, without
files; every few seconds, by a seed, something happens to it: a fault of the camera or of the way, a reload with other values or
another region, a value set while it runs, a look-up table from the picture. Writes soak.md, soak.tsv, soak.png and soak.svg into
the output directory, and fails when frames are missing that nobody reported, when memory, descriptors or threads grow, or when
mediagrabber does not end in good order.
"""

import argparse
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

from bench_tools import BUILD, table, utc_us

CONFIGURATION = """
[image]
width = {width}
height = {height}
[transport]
packet_size = 1400
[timing]
frame_rate = {rate}.0
clock_correction = 1
[exposure]
mode = "manual"
time_us = 2000
[gain]
mode = "manual"
db = {gain}
[tone]
enable = true
[memory]
export_buffers = 64
[output]
format = "none"
[run]
retry_interval_s = 0.5
give_up_after = "never"
[log]
level = "info"
"""
RATE = 100
SAMPLE_SECONDS = 1.0
SETTLED_SHARE = 0.2     # of the run, after which nothing may grow any more
GROWTH_KILOBYTES = 4096  # that resident memory may differ between the settled beginning and the end
LOST_FRAMES = re.compile(r"(\d+) frames (?:incomplete|of which nothing came|without a buffer for them|larger than their buffers)")


class Camera:
    """camsim with its control socket."""

    def __init__(self, directory):
        self.truth_path = directory / "truth.jsonl"
        path = directory / "control"
        self.process = subprocess.Popen([BUILD / "bin/camsim", "--pacing", "118", "--truth", self.truth_path, "--control", path],
                                        stdout=subprocess.PIPE, text=True)
        if not self.process.stdout.readline().startswith("camsim: ready"):
            raise RuntimeError("camsim did not get ready")
        self.control = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.control.connect(str(path))
        self.answers = self.control.makefile("r")

    def strike(self, kind, **parameters):
        words = ", ".join(f"{name} = {json.dumps(value)}" for name, value in {"kind": kind, **parameters}.items())
        self.control.sendall(f"start = {{ {words} }}\n".encode())
        answer = tomllib.loads(self.answers.readline())
        if "fault" not in answer:
            raise RuntimeError(f"{kind}: {answer}")

    def end(self):
        self.process.terminate()
        return self.process.wait(timeout=60)


class Recording:
    """mediagrabber, and what it says with the time at which it says it."""

    def __init__(self, directory):
        self.directory = directory
        self.values = {"width": 640, "height": 480, "rate": RATE, "gain": 0}
        self.configuration = directory / "run.toml"
        self.write()
        self.socket = directory / "set"
        with self.configuration.open("a") as file:
            file.write(f'[control]\nsocket = "{self.socket}"\n')
        self.process = subprocess.Popen(
            [BUILD / "bin/mediagrabber", "run", "--plugin", BUILD / "lib/libmgjai.so", "--config", self.configuration, "--output",
             directory / "frames"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.log = collections.deque()  # (seconds of UTC, line)
        self.reader = threading.Thread(target=self._read)
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

    def set(self, assignment):
        subprocess.run([BUILD / "bin/mediagrabber", "set", "--socket", self.socket, "--timeout", "20", assignment],
                       capture_output=True, check=False)

    def end(self):
        self.process.send_signal(signal.SIGTERM)
        status = self.process.wait(timeout=120)
        self.reader.join()
        return status


def events(camera, recording, chance):
    """What may happen, with its share."""
    def short():
        return round(chance.uniform(0.5, 4), 1)

    def region():
        recording.reload(width=chance.choice((320, 480, 640)), height=chance.choice((240, 480)))

    return {
        "packets lost": (5, lambda: camera.strike("packet_loss", share=chance.choice((0.001, 0.01, 0.05)), for_s=short())),
        "bursts of loss": (3, lambda: camera.strike("loss_burst", share=0.2, packets=chance.choice((5, 50, 500)), for_s=short())),
        "packets overtaken": (3, lambda: camera.strike("packet_reordering", share=0.05, for_s=short())),
        "packets doubled": (3, lambda: camera.strike("packet_duplication", share=0.05, for_s=short())),
        "headers corrupted": (2, lambda: camera.strike("header_corruption", share=0.001, for_s=short())),
        "leaders lost": (2, lambda: camera.strike("leader_loss", share=0.3, for_s=short())),
        "trailers lost": (2, lambda: camera.strike("trailer_loss", share=0.3, for_s=short())),
        "blocks skipped": (2, lambda: camera.strike("block_skip", share=0.2, for_s=short())),
        "frozen": (2, lambda: camera.strike("freeze", for_s=round(chance.uniform(0.1, 1.5), 1))),
        "answers late": (2, lambda: camera.strike("answer_delay", delay_ms=chance.choice((5, 50)), for_s=short())),
        "answers lost": (2, lambda: camera.strike("answer_loss", share=0.05, for_s=short())),
        "answers doubled": (2, lambda: camera.strike("answer_doubling", share=0.3, for_s=short())),
        "answers with a wrong ID": (2, lambda: camera.strike("answer_wrong_id", share=0.05, for_s=short())),
        "temperature not told": (1, lambda: camera.strike("read_failure", for_s=short())),
        "power cut": (0.5, lambda: camera.strike("power_cut", for_s=round(chance.uniform(1, 4), 1))),
        "reload: rate": (3, lambda: recording.reload(rate=chance.choice((80, 100, 100, 100)))),
        "reload: gain": (3, lambda: recording.reload(gain=chance.choice((0, 3, 6)))),
        "reload: region": (1, region),
        "set gain.db": (3, lambda: recording.set(f"gain.db={chance.choice((0, 1, 2))}")),
        "signal lut": (2, lambda: recording.process.send_signal(signal.SIGUSR1)),
        "signal lut12": (1, lambda: recording.process.send_signal(signal.SIGUSR2)),
    }


def sample(process):
    """Resident kilobytes, descriptors and threads."""
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    resident, threads = (int(re.search(rf"{name}:\s+(\d+)", status).group(1)) for name in ("VmRSS", "Threads"))
    return resident, len(os.listdir(f"/proc/{process.pid}/fd")), threads


def lines_of(path):
    """The objects of a file of one a line; the last one may not be complete."""
    with path.open() as file:
        for line in file:
            if line.endswith("\n"):
                yield json.loads(line)


def account(camera, recording):
    """Frames sent from the first to the last exported one, and what became of those that are not among the exported."""
    exported = {line["ticks"] for line in lines_of(recording.directory / "frames/frames.jsonl")}
    # A block that was left out on purpose has spent an ID: to those who receive it is lost, too. Others that the camera
    # did not send, because it was frozen, nobody can miss.
    frames = [frame for frame in lines_of(camera.truth_path)
              if frame.get("fate") == "sent" or "block_skip" in frame.get("faults", {})]
    places = [place for place, frame in enumerate(frames) if frame["ticks"] in exported]
    # Frames that follow this line belong to nobody until the next run of the plug-in has begun.
    boundaries = [when for when, line in recording.log if "grabbing loop is completed" in line]
    in_runs = between = boundary_gaps = 0
    for before, after in zip(places, places[1:]):
        missing = after - before - 1
        if missing == 0:
            continue
        begin, end = (utc_us(frames[place], "exposure_end_ns") / 1e6 for place in (before, after))
        if any(begin - 0.5 <= when <= end + 0.5 for when in boundaries):
            between += missing
            boundary_gaps += 1
        else:
            in_runs += missing
    text = "\n".join(line for _, line in recording.log)
    reported = sum(map(int, LOST_FRAMES.findall(text)))
    return {"sent": places[-1] - places[0] + 1, "exported": len(places), "unknown": len(exported) - len(places),
            "missing within runs": in_runs, "missing where a run ended": between, "reported lost": reported,
            "runs of the plug-in": len(boundaries), "gaps where a run ended": boundary_gaps}


def plot(directory):
    data = directory / "soak.tsv"
    for terminal, suffix in (("pngcairo size 1000,700", "png"), ("svg size 1000,700 dynamic background '#ffffff'", "svg")):
        script = f"""set terminal {terminal}
set output '{directory / ("soak." + suffix)}'
set multiplot layout 3,1
set xlabel 'minutes'
set grid
set key bottom right
set ylabel 'MB resident'
set yrange [0:*]
plot '{data}' using ($1/60):($2/1024) with lines title 'mediagrabber', '' using ($1/60):($6/1024) with lines title 'camsim'
set ylabel 'mediagrabber'
plot '{data}' using ($1/60):3 with steps title 'descriptors', '' using ($1/60):4 with steps title 'threads'
set ylabel 'frames/s exported'
plot '{data}' using ($1/60):5 with lines title ''
"""
        subprocess.run(["gnuplot"], input=script, text=True, check=True)


def soak(minutes, seed, directory):
    chance = random.Random(seed)
    counts = collections.Counter()
    samples = []
    camera = Camera(directory)
    recording = Recording(directory)
    happenings = events(camera, recording, chance)
    names, shares = list(happenings), [share for share, _ in happenings.values()]
    journal = directory / "frames/frames.jsonl"
    while not journal.exists() or journal.stat().st_size == 0:
        time.sleep(0.1)
    began = time.monotonic()
    next_event = began + 5
    exported_before, journal_at = 0, 0
    for step in range(1, int(minutes * 60 / SAMPLE_SECONDS) + 1):
        time.sleep(max(0.0, began + step * SAMPLE_SECONDS - time.monotonic()))
        if recording.process.poll() is not None:
            raise RuntimeError(f"mediagrabber ended with {recording.process.returncode}:\n" +
                               "\n".join(line for _, line in list(recording.log)[-30:]))
        with journal.open("rb") as file:
            file.seek(journal_at)
            new = file.read()
            journal_at += len(new)
        camera_memory, _, _ = sample(camera.process)
        samples.append((step * SAMPLE_SECONDS, *sample(recording.process), new.count(b"\n"), camera_memory))
        remaining = minutes * 60 - step * SAMPLE_SECONDS
        if time.monotonic() >= next_event and remaining > 15:
            name, = chance.choices(names, shares)
            happenings[name][1]()
            counts[name] += 1
            next_event = time.monotonic() + chance.uniform(1, 5)
    status = recording.end()
    camera_status = camera.end()
    return camera, recording, samples, counts, status, camera_status


def judge(figures, samples, status, camera_status):
    """What is wrong, a line each."""
    settled = samples[int(len(samples) * SETTLED_SHARE):]
    tenth = max(1, len(settled) // 10)
    wrong = []
    for column, name, allowed in ((1, "resident kilobytes", GROWTH_KILOBYTES), (2, "descriptors", 0), (3, "threads", 0)):
        begin, end = (statistics.median(row[column] for row in part) for part in (settled[:tenth], settled[-tenth:]))
        figures[f"{name}, settled"], figures[f"{name}, at the end"] = begin, end
        if end - begin > allowed:
            wrong.append(f"{name} grew from {begin} to {end}")
    if figures["missing within runs"] > figures["reported lost"]:
        wrong.append("frames are missing that nobody reported lost")
    if figures["reported lost"] - figures["missing within runs"] > figures["missing where a run ended"]:
        wrong.append("frames were reported lost that were not")
    if figures["unknown"] != 0:
        wrong.append("frames were exported that were not sent")
    if status not in (0, 1) or camera_status != 0:
        wrong.append(f"mediagrabber ended with {status}, camsim with {camera_status}")
    return wrong


def main():
    options = argparse.ArgumentParser(prog="scripts/soak", description=__doc__.splitlines()[0])
    options.add_argument("minutes", type=float)
    options.add_argument("--seed", type=int, default=1, help="of what happens when (1)")
    options.add_argument("--output", type=pathlib.Path, default=pathlib.Path("docs/measurements"))
    options.add_argument("--keep", type=pathlib.Path, help="directory to leave journal, truth and log in")
    chosen = options.parse_args()
    chosen.output.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory() as temporary:
        directory = chosen.keep or pathlib.Path(temporary)
        directory.mkdir(parents=True, exist_ok=True)
        camera, recording, samples, counts, status, camera_status = soak(chosen.minutes, chosen.seed, directory)
        (directory / "log").write_text("".join(f"{when:.3f} {line}\n" for when, line in recording.log))
        figures = account(camera, recording)
    wrong = judge(figures, samples, status, camera_status)
    (chosen.output / "soak.tsv").write_text("".join("\t".join(map(str, row)) + "\n" for row in samples))
    plot(chosen.output)
    text = (f"# {chosen.minutes:g} minutes of soak\n\n    scripts/soak {chosen.minutes:g} --seed {chosen.seed}\n\n" +
            table(["figure", ""], [[name, f"{value:g}"] for name, value in figures.items()]) + "\n" +
            table(["what happened", "times"], sorted(counts.items())) + "\n![memory, descriptors, threads and rate](soak.png)\n\n" +
            ("Verdict: " + ("; ".join(wrong) if wrong else "every frame is accounted for, and nothing grows") + ".\n"))
    (chosen.output / "soak.md").write_text(text)
    print(text)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
