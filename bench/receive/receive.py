"""What it costs to receive: mediagrabber with the plug-in, Aravis's test program and GStreamer's aravissrc, in turn.

Run by `scripts/bench receive` inside a network namespace of its own. Writes receive.tables.md, receive.png and receive.svg
into the output directory. mediagrabber writes no files, so frames end in host memory, as with the others.
"""

import argparse
import contextlib
import json
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import time

from bench_tools import BUILD, camera, percentile, read_truth, set_features, table, utc_us

WIDTH, HEIGHT, RATE = 1280, 800, 100  # frames of 1 MB
TRIES = 3  # of a rate, because others use this machine, too

CONFIGURATION = """
[image]
width = {width}
height = {height}
[transport]
packet_size = {packet_size}
[timing]
frame_rate = {rate}.0
[exposure]
mode = "manual"
time_us = 100
[memory]
buffers = 16
[output]
format = "none"
[control]
socket = "none"
"""


class Way:
    """From a camera to this host."""

    def __init__(self, name, packet_size, address, inside=()):
        self.name, self.packet_size, self.address, self.inside = name, packet_size, address, inside


class Cost:
    """Of a program that grabbed."""

    def __init__(self, frames, lost, usage, frame_bytes):
        gigabytes = frames * frame_bytes / 1e9
        self.frames, self.lost = frames, lost
        self.seconds_a_gigabyte = (usage.ru_utime + usage.ru_stime) / gigabytes if gigabytes else float("inf")
        self.switches_a_frame = (usage.ru_nvcsw + usage.ru_nivcsw) / max(frames, 1)


def run(command, timeout=None):
    """Output and resource usage of a program. With a time-out it is interrupted then, as by ^C."""
    process = subprocess.Popen([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if timeout is not None:
        time.sleep(timeout)
        process.send_signal(2)
    output = process.stdout.read()
    _, _, usage = os.wait4(process.pid, 0)
    return output, usage


# As somebody without privileges, to whom the kernel gives no more socket memory than net.core.rmem_max.
UNPRIVILEGED = ("setpriv", "--bounding-set=-net_admin", "--inh-caps=-net_admin")


@contextlib.contextmanager
def recording(way, width, height, rate, frames, run_as=()):
    """The directory of a recording by mediagrabber, its resource usage and what it said."""
    with tempfile.TemporaryDirectory() as temporary:
        directory = pathlib.Path(temporary)
        (directory / "run.toml").write_text(CONFIGURATION.format(width=width, height=height, rate=rate,
                                                                 packet_size=way.packet_size))
        output, usage = run([*run_as, BUILD / "bin/mediagrabber", "--plugin", BUILD / "lib/libmgjai.so", "run", "--config",
                             directory / "run.toml", "--output", directory / "frames", "--frames", frames])
        journal = directory / "frames/frames.jsonl"
        lines = [json.loads(line) for line in journal.read_text().splitlines()] if journal.exists() else []
        yield lines, usage, output


def with_mediagrabber(way, width, height, rate, seconds, truth_path, run_as=()):
    with recording(way, width, height, rate, rate * seconds, run_as) as (lines, usage, _):
        recorded = {line["ticks"] for line in lines}
    if not recorded:
        return Cost(0, rate * seconds, usage, width * height)
    between = [frame for frame in read_truth(truth_path) if min(recorded) <= frame["ticks"] <= max(recorded)]
    lost = sum(1 for frame in between if frame["fate"] == "sent" and frame["ticks"] not in recorded)
    return Cost(len(recorded), lost, usage, width * height)


def prepare(way, width, height, rate):
    set_features(way.address, f"Width={width}", f"Height={height}", f"AcquisitionFrameRate={rate}", "ExposureTime=100",
                 "PixelFormat=Mono8", f"GevSCPSPacketSize={way.packet_size}")


def with_aravis(way, width, height, rate, seconds, _):
    prepare(way, width, height, rate)
    output, usage = run(["arv-camera-test-0.8", "-a", "--no-packet-socket", "-j", "never", "-i", way.packet_size,
                         f"--duration={seconds}", "-b", 16])
    counts = {name: int(value) for name, value in re.findall(r"(n_\w+)\s*=\s*(\d+)", output)}
    lost = counts["n_failures"] + counts["n_missing_frames"] + counts["n_underruns"]
    return Cost(counts["n_completed_buffers"] - counts["n_failures"], lost, usage, width * height)


def with_gstreamer(way, width, height, rate, seconds, _):
    prepare(way, width, height, rate)
    with tempfile.NamedTemporaryFile("r") as seen:
        output, usage = run(["setpriv", "--bounding-set=-net_raw", "--inh-caps=-net_raw", "gst-launch-1.0", "-e", "-q",
                             "aravissrc", f"num-buffers={rate * seconds}", "auto-packet-size=false",
                             f"packet-size={way.packet_size}", "!",
                             f"video/x-raw,format=GRAY8,width={width},height={height},framerate={rate}/1", "!",
                             "identity", "silent=true", "!", "filesink", "location=/dev/null"])
    # It tells of no losses: a frame that is not whole is left out, and another one waited for.
    return Cost(rate * seconds, None, usage, width * height) if "ERROR" not in output else Cost(0, None, usage, 1)


def with_unprivileged_mediagrabber(*arguments):
    return with_mediagrabber(*arguments, run_as=UNPRIVILEGED)


PROGRAMS = {"mediagrabber": with_mediagrabber, "arv-camera-test": with_aravis, "aravissrc": with_gstreamer}


@contextlib.contextmanager
def cable(merging):
    """A virtual cable whose far end segments nothing; yields the command that runs something there."""
    far = subprocess.Popen(["unshare", "--net", "sh", "-c", "echo here; exec sleep 100000"], stdout=subprocess.PIPE, text=True)
    far.stdout.readline()
    there = ["nsenter", "-t", str(far.pid), "-n"]

    def do(*command):
        subprocess.run(command, check=True, capture_output=True)

    try:
        do("ip", "link", "add", "cable", "type", "veth", "peer", "name", "plug", "netns", str(far.pid))
        do("ip", "addr", "add", "10.1.0.1/24", "dev", "cable")
        do("ip", "link", "set", "cable", "mtu", "9000", "up")
        do(*there, "ip", "link", "set", "lo", "up")
        do(*there, "ip", "addr", "add", "10.1.0.2/24", "dev", "plug")
        do(*there, "ip", "link", "set", "plug", "mtu", "9000", "up")
        do(*there, "ethtool", "-K", "plug", "gso", "off", "tx-udp-segmentation", "off")
        if merging:
            do("ethtool", "-K", "cable", "gro", "on", "rx-udp-gro-forwarding", "on")
            pathlib.Path("/sys/class/net/cable/threaded").write_text("1")
        else:
            do("ethtool", "-K", "cable", "gro", "off")
        yield there
    finally:
        subprocess.run(["ip", "link", "delete", "cable"], check=False)
        far.kill()
        far.wait()


def grab(way, program, width, height, rate, seconds, *options):
    """Runs a program and a camera for it."""
    with tempfile.TemporaryDirectory() as temporary:
        truth_path = pathlib.Path(temporary) / "truth.jsonl"
        with camera("--address", way.address, "--truth", truth_path, *options, inside=way.inside):
            return program(way, width, height, rate, seconds, truth_path)


def costs_of(way, programs, seconds, repetitions):
    """By program, from runs in turn."""
    costs = {name: [] for name in programs}
    for _ in range(repetitions):
        for name in programs:
            costs[name].append(grab(way, PROGRAMS[name], WIDTH, HEIGHT, RATE, seconds, "--pacing", "118"))
    return costs


def cost_rows(way, costs):
    own = statistics.median(cost.seconds_a_gigabyte for cost in costs["mediagrabber"])
    rows = []
    for name, each in costs.items():
        seconds = statistics.median(cost.seconds_a_gigabyte for cost in each)
        switches = statistics.median(cost.switches_a_frame for cost in each)
        lost = "not told" if each[0].lost is None else sum(cost.lost for cost in each)
        rows.append([way.name, way.packet_size, name, f"{seconds:.3f}", f"{seconds / own:.1f}", f"{switches:.0f}", lost])
    return rows


def highest_rate(way, program, seconds):
    """MB/s of the highest step without a lost frame, of frames of 2 MB."""
    width, height = 4096, 512
    best = 0
    for megabytes in (100, 150, 200, 300, 400, 500, 600, 700, 800, 900, 1000, 1200, 1400, 1600, 1800, 2000):
        rate = round(megabytes * 1e6 / (width * height))
        tries = (grab(way, PROGRAMS[program], width, height, rate, seconds, "--sensor", f"{width}x1024", "--pacing", "spread:0.8")
                 for _ in range(TRIES))
        if not any(cost.lost == 0 and cost.frames >= 0.9 * rate * seconds for cost in tries):
            break
        best = megabytes
    return best


def latencies(way, program, seconds):
    """Microseconds from the last packet's departure to the frame's arrival at whoever uses it."""
    with tempfile.TemporaryDirectory() as temporary:
        truth_path = pathlib.Path(temporary) / "truth.jsonl"
        with camera("--address", way.address, "--pacing", "118", "--truth", truth_path, inside=way.inside):
            if program == "mediagrabber":
                with recording(way, WIDTH, HEIGHT, RATE, RATE * seconds) as (lines, _, output):
                    arrived = {line["ticks"]: line["handed_over_us"] for line in lines}
            else:
                prepare(way, WIDTH, HEIGHT, RATE)
                output, _ = run([BUILD / "bin/aravis_timestamps", "CS000001", seconds])
                found = (line.split() for line in output.splitlines())
                arrived = {int(ticks): int(there) / 1000 for ticks, _, there in found}
        sent = {frame["ticks"]: utc_us(frame, "send_end_ns") for frame in read_truth(truth_path) if frame["fate"] == "sent"}
    return [there - sent[ticks] for ticks, there in arrived.items() if ticks in sent]


def plot(directory, rows):
    programs = list(dict.fromkeys(row[2] for row in rows))
    ways = list(dict.fromkeys((row[0], row[1]) for row in rows))
    figures = {(row[0], row[1], row[2]): row[3] for row in rows}
    with tempfile.NamedTemporaryFile("w", suffix=".dat") as data:
        data.write("way " + " ".join(programs) + "\n")
        for way in ways:
            data.write(f'"{way[0]}, {way[1]}" ' + " ".join(figures.get((*way, each), "NaN") for each in programs) + "\n")
        data.flush()
        for terminal, suffix in (("pngcairo size 1000,500", "png"), ("svg size 1000,500 dynamic background '#ffffff'", "svg")):
            script = (f"set terminal {terminal}\nset output '{directory / ('receive.' + suffix)}'\nset style data histogram\n"
                      "set style histogram clustered gap 1\nset style fill solid\nset yrange [0:*]\nset grid ytics\n"
                      "set ylabel 'CPU seconds a gigabyte'\nset key top right\n"
                      f"plot for [i=2:{len(programs) + 1}] '{data.name}' using i:xtic(1) title columnheader(i)\n")
            subprocess.run(["gnuplot"], input=script, text=True, check=True)


def main():
    options = argparse.ArgumentParser(prog="scripts/bench receive", description=__doc__)
    options.add_argument("--seconds", type=int, default=10, help="length of each run (10)")
    options.add_argument("--repetitions", type=int, default=3, help="runs of each program each way (3)")
    options.add_argument("--minute", action="store_true", help="also a run of 60 s at 118 MB/s")
    options.add_argument("--output", type=pathlib.Path, default=pathlib.Path("docs/measurements"))
    chosen = options.parse_args()
    chosen.output.mkdir(parents=True, exist_ok=True)

    rows = []
    for packet_size in (1400, 8900):
        way = Way("loopback", packet_size, "127.0.0.1")
        rows += cost_rows(way, costs_of(way, PROGRAMS, chosen.seconds, chosen.repetitions))
    for merging in (True, False):
        with cable(merging) as there:
            for packet_size in (1400, 8900):
                way = Way("cable, " + ("merging" if merging else "not merging"), packet_size, "10.1.0.2", there)
                rows += cost_rows(way, costs_of(way, PROGRAMS, chosen.seconds, chosen.repetitions))
    text = table(["way", "packet size", "program", "CPU s/GB", "times mediagrabber's", "context switches a frame",
                  "frames lost"], rows)

    rates = []
    for packet_size in (1400, 8900):
        way = Way("loopback", packet_size, "127.0.0.1")
        rates.append(["loopback", packet_size, *(highest_rate(way, name, 3) for name in ("mediagrabber", "arv-camera-test"))])
    text += "\n" + table(["way", "packet size", "mediagrabber, MB/s without loss", "arv-camera-test"], rates)

    delays = []
    for packet_size in (1400, 8900):
        way = Way("loopback", packet_size, "127.0.0.1")
        for program in ("mediagrabber", "Aravis's stream"):
            values = latencies(way, program, chosen.seconds)
            delays.append([packet_size, program, len(values), f"{percentile(values, 0.5):.0f}", f"{percentile(values, 0.99):.0f}"])
    text += "\n" + table(["packet size", "program", "frames", "us from the last packet to use: p50", "p99"], delays)

    if chosen.minute:
        way = Way("loopback", 1400, "127.0.0.1")
        cost = grab(way, with_unprivileged_mediagrabber, WIDTH, HEIGHT, 115, 60, "--pacing", "118")
        room = pathlib.Path("/proc/sys/net/core/rmem_max").read_text().strip()
        text += (f"\nA minute at 118 MB/s without privileges, net.core.rmem_max {room} as the kernel has it: {cost.frames} frames,"
                 f" {cost.lost} lost.\n")
    print(text)
    (chosen.output / "receive.tables.md").write_text(text)
    plot(chosen.output, rows)


if __name__ == "__main__":
    sys.exit(main())
