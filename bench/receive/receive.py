# SPDX-License-Identifier: MIT
"""Measures what receiving costs: openpv, mediagrabber and Aravis receive the same stream in turn, beside bare system calls.

Run by `scripts/bench receive` inside network and mount namespaces of its own. docs/measurements/receive.md describes the programs and
the figures. Fails if the run of one minute lost a frame.
"""

import contextlib
import json
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import threading
import time

from bench_tools import (BUILD, CALIBRATION_FRAMES, Goals, Measurement, camera, loss_options, parser, percentile, plot, read_index,
                         read_truth, report_problems, set_features, spread, table, utc_us)
from frame_account import FrameAccount

WIDTH, HEIGHT, RATE = 1280, 800, 100  # frames of 1 MB
MINUTE_RATE = 115                     # frames/s, 118 MB/s
WIDE = (4096, 512)                    # frames of 2 MB, for high rates
RATES = (100, 150, 200, 300, 400, 500, 600, 700, 800, 900, 1000, 1200, 1400, 1600, 1800, 2000)  # MB/s
ATTEMPTS = 2                          # per data rate: the first loss can be the machine's
BUFFERS = 16                          # of all programs
FEATURES = 5                          # accesses of the plug-in per frame
APART, TOGETHER = "on processors of their own", "on the same processor"
START_FRACTION = 0.05                 # of the frames of a run; the CPU time until they have been sent is that of the start
SIZES = (1400, 8900)                  # packet sizes in bytes
RMEM_MAX = int(pathlib.Path("/proc/sys/net/core/rmem_max").read_text())

CONFIGURATION = """
[image]
width = {width}
height = {height}
[transport]
packet_size_bytes = {packet_size}
[timing]
frame_rate_hz = {rate}.0
[exposure]
auto = "Off"
time_us = 100
[memory]
buffers = 16
[output]
format = "none"
[control]
socket = "none"
"""

# Without CAP_NET_ADMIN the kernel limits the socket receive buffer to net.core.rmem_max.
UNPRIVILEGED = ("setpriv", "--bounding-set=-net_admin", "--inh-caps=-net_admin")


class Path:
    """A network path from a camera to this host."""

    def __init__(self, name, packet_size, address, inside=()):
        self.name, self.packet_size, self.address, self.inside = name, packet_size, address, inside


class Stream:
    """What the camera sends, and how many frames a program is to receive."""

    def __init__(self, rate, seconds, size=(WIDTH, HEIGHT), pacing="118", camera_options=(), inject_loss=False):
        self.rate, self.frames, self.seconds = rate, round(rate * seconds), seconds
        self.width, self.height = size
        self.options = ["--pacing", pacing, *camera_options]
        self.inject_loss = inject_loss
        # Bytes, as openpv requests them: 0.1 s of data, at least 8 MB. The kernel would limit them to RMEM_MAX anyway.
        self.socket_buffer = min(RMEM_MAX, max(8 << 20, rate * self.width * self.height // 10))


class Usage:
    """The resource usage of a program, and the part of it that it had used when the first frames had been sent."""

    def __init__(self, total, start_seconds, start_switches, started_us):
        self.seconds = total.ru_utime + total.ru_stime
        self.kernel = total.ru_stime / self.seconds
        self.switches = total.ru_nvcsw + total.ru_nivcsw
        self.start_seconds = start_seconds    # CPU time until then
        self.start_switches = start_switches  # context switches until then
        self.started_us = started_us          # microseconds of UTC


class Run:
    """The outcome of one program's run. `late` is the number of frames that it received after its start."""

    def __init__(self, stream, usage, received, late, missing, left_out, delays, socket_buffer):
        frame = stream.width * stream.height / 1e9
        self.received, self.missing, self.left_out = received, missing, left_out
        self.whole = usage.seconds / (received * frame)                      # s/GB
        self.cpu = (usage.seconds - usage.start_seconds) / (late * frame)    # s/GB, while receiving
        self.start = usage.start_seconds
        self.kernel = usage.kernel
        self.switches = (usage.switches - usage.start_switches) / late       # while receiving
        self.delays = delays                # us from the last packet to the program; none if it does not print frames
        self.socket_buffer = socket_buffer  # KiB, as the kernel accounts for them; None if not observed


class SocketWatch(threading.Thread):
    """Observes the sockets of this namespace: the largest receive buffer of a UDP socket, and whether there is a packet socket."""

    def __init__(self):
        super().__init__(daemon=True)
        self.largest = 0
        self.packet_socket = False
        self.ended = threading.Event()
        self.start()

    def run(self):
        while not self.ended.wait(0.3):
            text = subprocess.run(["ss", "-uanmH"], capture_output=True, text=True, check=True).stdout
            self.largest = max([self.largest, *map(int, re.findall(r"\brb(\d+)", text))])
            self.packet_socket |= len(pathlib.Path("/proc/net/packet").read_text().splitlines()) > 1

    def end(self):
        """\\return the buffer, as a cell of the table"""
        self.ended.set()
        self.join()
        return "packet socket" if self.packet_socket else f"{self.largest // 1024}"


def processor_clock(process):
    """\\return the clock of the CPU time of another process, as clock_getcpuclockid(3) does"""
    return (~process.pid << 3) | 2


def context_switches(process):
    """\\return the number of context switches of the threads of another process"""
    count = 0
    for task in pathlib.Path(f"/proc/{process.pid}/task").iterdir():
        with contextlib.suppress(OSError):  # the thread has ended
            count += sum(map(int, re.findall(r"ctxt_switches:\s+(\d+)", (task / "status").read_text())))
    return count


def execute(command, directory, stream):
    """Runs a program. \return its output and resource usage"""
    truth = directory / "truth.jsonl"
    with open(directory / "output", "w+") as output:
        process = subprocess.Popen([str(word) for word in command], stdout=output, stderr=subprocess.STDOUT)
        start, switches, started = 0.0, 0, float("inf")
        while os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOHANG | os.WNOWAIT) is None:
            if truth.read_bytes().count(b"\n") > START_FRACTION * stream.frames + 1:  # the first line is a header
                start, switches, started = time.clock_gettime(processor_clock(process)), context_switches(process), time.time()
                break
            time.sleep(0.02)
        _, _, usage = os.wait4(process.pid, 0)
        output.seek(0)
        return output.read(), Usage(usage, start, switches, started * 1e6)


def printed_frames(text):
    """The frames that a program printed: ticks and microseconds of UTC."""
    found = (line.split() for line in text.splitlines() if re.match(r"\d+ \d+", line))
    return [(int(words[0]), int(words[1]) / 1000) for words in found]


def prepare(path, stream):
    set_features(path.address, f"Width={stream.width}", f"Height={stream.height}", f"AcquisitionFrameRate={stream.rate}",
                 "ExposureTime=100", "PixelFormat=Mono8", f"GevSCPSPacketSize={path.packet_size}")


class Printing:
    """A program that prints each complete frame."""

    skipped = 0

    def __init__(self, name, command):
        self.name, self.command = name, command

    def run(self, path, stream, directory):
        prepare(path, stream)
        text, usage = execute(self.command(path, stream), directory, stream)
        return printed_frames(text), usage, text


class Mediagrabber:
    """The complete program with the plug-in, without files."""

    skipped = CALIBRATION_FRAMES

    def __init__(self, name="mediagrabber", run_as=()):
        self.name, self.run_as = name, run_as

    def run(self, path, stream, directory):
        (directory / "run.toml").write_text(CONFIGURATION.format(width=stream.width, height=stream.height, rate=stream.rate,
                                                                 packet_size=path.packet_size))
        text, usage = execute([*self.run_as, BUILD / "bin/mediagrabber", "run", "--plugin", BUILD / "lib/libmgjai.so", "--config",
                               directory / "run.toml", "--output", directory / "frames", "--frames", stream.frames], directory, stream)
        return [(line["ticks"], line["handed_over_us"]) for line in read_index(directory / "frames")], usage, text


class ArvCameraTest:
    """Aravis's test program with its defaults. It prints counts only."""

    name = "arv-camera-test"

    def run(self, path, stream, directory):
        prepare(path, stream)
        text, usage = execute(["arv-camera-test-0.8", "-n", path.address, "--no-packet-socket", "-j", "never", "-i", path.packet_size,
                               f"--duration={stream.seconds}"], directory, stream)
        counts = {name: int(value) for name, value in re.findall(r"(n_\w+)\s*=\s*(\d+)", text)}
        if "n_completed_buffers" not in counts:
            raise RuntimeError(f"{self.name} at {path.address}: {text}")
        return counts["n_completed_buffers"], usage, text


def bare_loop(name, area_bytes):
    return Printing(name, lambda path, stream: [BUILD / "bin/bare_receiver", path.address, stream.frames, path.packet_size,
                                                stream.socket_buffer, area_bytes])


BARE = bare_loop("bare loop", 65536)
BARE_INTO_FRAMES = bare_loop("bare loop into 16 frames", BUFFERS * WIDTH * HEIGHT)
GRABBER = Printing("grabber", lambda path, stream: [BUILD / "bin/grabber", path.address, stream.frames, path.packet_size])
ARAVIS = Printing("Aravis", lambda path, stream: [BUILD / "bin/aravis_grabber", path.address, stream.frames, "udp", stream.socket_buffer])
PACKET_SOCKET = Printing("Aravis, packet socket", lambda path, stream: [BUILD / "bin/aravis_grabber", path.address, stream.frames,
                                                                        "packet", stream.socket_buffer])
MEDIAGRABBER = Mediagrabber()
ARV_CAMERA_TEST = ArvCameraTest()
ON_LOOPBACK = (BARE, BARE_INTO_FRAMES, GRABBER, MEDIAGRABBER, ARAVIS, ARV_CAMERA_TEST)
ON_VETH = (GRABBER, MEDIAGRABBER, ARAVIS, PACKET_SOCKET)


def grab(program, path, stream, watch=False):
    """Runs a program with a camera of its own. \\return the run"""
    with tempfile.TemporaryDirectory() as temporary:
        directory = pathlib.Path(temporary)
        truth_path = directory / "truth.jsonl"
        with camera("--address", path.address, "--truth", truth_path, *stream.options, *loss_options(directory, stream.inject_loss),
                    inside=path.inside):
            watcher = SocketWatch() if watch else None
            try:
                found, usage, text = program.run(path, stream, directory)
            finally:
                socket_buffer = watcher.end() if watcher else None
        truth = read_truth(truth_path)
    if not found or usage.started_us == float("inf"):
        raise RuntimeError(f"{program.name} received nothing from {path.address}, or ended at once: {text}")
    if isinstance(found, int):
        exposed = truth[-1]["frame"] + 1  # the last one may have been on its way when the program stopped: "aborted"
        left_out = exposed - sum(frame["outcome"] != "dropped" for frame in truth)
        early = sum(frame["outcome"] == "sent" and utc_us(frame, "send_end_ns") < usage.started_us for frame in truth)
        return Run(stream, usage, found, found - early, exposed - found, left_out, [], socket_buffer)
    account = FrameAccount(truth, [ticks for ticks, _ in found], skipped=program.skipped)
    if account.unknown:
        raise RuntimeError(f"{program.name}: {account.unknown} received frames are not the camera's")
    sent = {frame["ticks"]: utc_us(frame, "send_end_ns") for frame in truth if frame["outcome"] == "sent"}
    delays = [there - sent[ticks] for ticks, there in found if ticks in sent]
    late = sum(there > usage.started_us for _, there in found)
    return Run(stream, usage, account.received, late, account.missing, account.left_out, delays, socket_buffer)


def grab_surely(program, path, stream, watch):
    """Like grab(), but tries again once: a single failure would cost all runs so far."""
    try:
        return grab(program, path, stream, watch)
    except (RuntimeError, subprocess.CalledProcessError) as error:
        print(f"{program.name}: {error}; trying again", file=sys.stderr)
        return grab(program, path, stream, watch)


@contextlib.contextmanager
def virtual_cable():
    """A veth pair without segmentation and receive offload, so that each packet arrives alone.

    Yields the command prefix that runs a program at the camera's end.
    """
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
        do("ethtool", "-K", "cable", "gro", "off")
        yield there
    finally:
        subprocess.run(["ip", "link", "delete", "cable"], check=False)
        far.kill()
        far.wait()


def loopback(packet_size):
    return Path("merged", packet_size, "127.0.0.1")


def costs(measurement, path, programs, stream, repetitions):
    """Runs the programs in turn, `repetitions` times. \\return the runs by program"""
    runs = {program.name: [] for program in programs}
    for repetition in range(repetitions):
        for program in programs:
            run = measurement.steady(grab_surely, program, path, stream, watch=repetition == 0)
            runs[program.name].append(run)
            print(path.name, path.packet_size, program.name, f"{run.cpu:.3f} s/GB", f"{run.missing} missing", sep="\t", file=sys.stderr)
    return runs


def without_loss(measurement, program, packet_size, megabytes, seconds, inject_loss):
    """\\return whether the program received every frame that the camera exposed, at least once"""
    rate = round(megabytes * 1e6 / (WIDE[0] * WIDE[1]))
    stream = Stream(rate, seconds, WIDE, "spread:0.8", ("--sensor", "4096x1024"), inject_loss)
    for _ in range(ATTEMPTS):
        try:
            if measurement.steady(grab, program, loopback(packet_size), stream).missing == 0:
                return True
        except (RuntimeError, subprocess.CalledProcessError) as error:  # it received nothing, because each frame was incomplete
            print(f"{program.name} at {megabytes} MB/s: {error}", file=sys.stderr)
    return False


def highest_rate(rates, passes):
    """The highest of the rates without loss, found by bisection. \\return 0 if it is below the first one"""
    low, high = 0, len(rates)
    while low < high:
        middle = (low + high) // 2
        if passes(rates[middle]):
            low = middle + 1
        else:
            high = middle
    return rates[low - 1] if low else 0


def feature_reads(measurement, placement, repetitions, count):
    """\\return the lines of feature_reads of each repetition, with program and camera on processors of their own or on the same one"""
    processors = sorted(os.sched_getaffinity(0))

    def on(processor):
        return ["taskset", "--cpu-list", str(processor)]

    def once():
        with camera("--address", "127.0.0.1", inside=on(processors[-1])):
            text = subprocess.run([*on(processors[0 if placement == APART else -1]), BUILD / "bin/feature_reads", "127.0.0.1", str(count)],
                                  check=True, capture_output=True, text=True).stdout
        return [json.loads(line) for line in text.splitlines()]
    return [measurement.steady(once) for _ in range(repetitions)]


def ratios(runs, other, key=lambda run: run.cpu):
    """The ratios of neighbouring runs."""
    return [key(one) / key(two) for one, two in zip(runs, other)]


def p99(run):
    return percentile(run.delays, 0.99)


def cost_goals(goals, merged, single):
    for size, runs in merged.items():
        goals.add(f"CPU time of grabber / bare loop, merged, {size} bytes", ratios(runs["grabber"], runs["bare loop"]), high=1.5)
        goals.add(f"CPU time of Aravis / grabber, merged, {size} bytes", ratios(runs["Aravis"], runs["grabber"]),
                  low=3 if size == 1400 else 1.7)
        goals.add(f"CPU time of arv-camera-test / mediagrabber, merged, {size} bytes",
                  ratios(runs["arv-camera-test"], runs["mediagrabber"]), low=2.5 if size == 1400 else 1.3)
    for size, runs in single.items():
        goals.add(f"CPU time of mediagrabber / Aravis, not merged, {size} bytes", ratios(runs["mediagrabber"], runs["Aravis"]), high=1)
    for size, runs in merged.items():
        goals.add(f"us from the last packet to export, p50, {size} bytes",
                  [percentile(run.delays, 0.5) for run in runs["mediagrabber"]], high=150, digits=0)
        goals.add(f"the same, p99, {size} bytes", [p99(run) for run in runs["mediagrabber"]], high=500, digits=0)
        goals.add(f"the same, p99 of mediagrabber / Aravis, {size} bytes", ratios(runs["mediagrabber"], runs["Aravis"], p99), high=1)
        goals.add(f"context switches per frame, mediagrabber, {size} bytes", [run.switches for run in runs["mediagrabber"]],
                  high=2 * FEATURES + 4, digits=1)
        goals.add(f"context switches per frame, grabber, {size} bytes", [run.switches for run in runs["grabber"]], high=4, digits=1)


def feature_goals(goals, found):
    """Each access beside its own commands over a bare socket; the access with the highest ratio counts. An access without commands is
    answered from the cache."""
    rows = []
    for placement, repetitions in found.items():
        asking = [[line for line in lines if line["commands"]] for lines in repetitions]
        for figure, index in (("CPU time", 0), ("latency (p50)", 1)):
            goals.add(f"{figure} of a feature access / bare send and receive, {placement}",
                      [max(line["layer"][index] / line["bare"][index] for line in lines) for lines in asking], high=1.3)
        for lines in zip(*repetitions):
            column = lambda way, index: spread([line[way][index] for line in lines], 1)
            rows.append([placement, lines[0]["feature"], max(line["commands"] for line in lines), max(line["bytes"] for line in lines),
                         *(column(way, index) for index in range(3) for way in ("layer", "bare"))])
    return table(["program and camera", "feature access", "commands", "bytes", "us of CPU: openpv", "bare", "us of latency, p50: openpv",
                  "bare", "p99: openpv", "bare"], rows)


def cost_table(found):
    rows = []
    for (path, size), runs in found.items():
        for name, each in runs.items():
            delays = [run for run in each if run.delays]
            rows.append([path, size, name, len(each), spread(run.cpu for run in each), spread(run.whole for run in each),
                         spread((1000 * run.start for run in each), 0),
                         f"{100 * statistics.median(run.kernel for run in each):.0f} %", spread((run.switches for run in each), 1),
                         f"{sum(run.missing for run in each)} of {sum(run.received + run.missing for run in each)}",
                         sum(run.left_out for run in each),
                         spread((percentile(run.delays, 0.5) for run in delays), 0), spread((p99(run) for run in delays), 0),
                         next((run.socket_buffer for run in each if run.socket_buffer), "-")])
    return table(["path", "packet size", "program", "runs", "CPU s/GB while receiving", "with the start", "start, ms of CPU",
                  "CPU time in the kernel", "context switches per frame", "frames missing", "of these left out by the camera",
                  "us from the last packet to the program: p50", "p99", "socket buffer, KiB"], rows)


def draw(chart, found):
    """Plots the median CPU time of each program."""
    programs = list(dict.fromkeys(name for runs in found.values() for name in runs))
    with tempfile.NamedTemporaryFile("w", suffix=".dat") as data:
        data.write("path " + " ".join(f'"{name}"' for name in programs) + "\n")
        for (name, size), runs in found.items():
            cells = (f"{statistics.median(run.cpu for run in runs[each]):.3f}" if each in runs else "NaN" for each in programs)
            data.write(f'"{name}, {size}" ' + " ".join(cells) + "\n")
        data.flush()
        plot(chart, "1000,500", "set style data histogram\nset style histogram clustered gap 1\nset style fill solid\nset yrange [0:*]\n"
             "set grid ytics\nset ylabel 'CPU seconds per gigabyte'\nset key top right\n"
             f"plot for [i=2:{len(programs) + 1}] '{data.name}' using i:xtic(1) title columnheader(i)\n")


def main():
    options = parser("receive", __doc__)
    options.add_argument("--seconds", type=float, default=4, help="length of each run (4)")
    options.add_argument("--repetitions", type=int, default=10, help="runs of each program on each path (10)")
    options.add_argument("--rate-repetitions", type=int, default=3, help="searches for the highest rate without loss (3)")
    options.add_argument("--minute-seconds", type=float, default=60, help="length of the run at 118 MB/s without privileges (60)")
    options.add_argument("--quick", action="store_true", help="one short run of everything at a low rate, to try the programs")
    options.add_argument("--inject-loss", action="store_true", help="let the camera lose frames; the measurement must then fail")
    measurement = Measurement("receive", options)
    chosen = measurement.options
    rates, rate, minute_rate, sizes, reads = RATES, RATE, MINUTE_RATE, SIZES, 2000
    if chosen.quick:
        chosen.seconds, chosen.repetitions, chosen.rate_repetitions, chosen.minute_seconds = 1, 1, 1, 2
        rates, rate, minute_rate, sizes, reads = (20,), 10, 10, SIZES[:1], 20

    goals = Goals()
    text = feature_goals(goals, {placement: feature_reads(measurement, placement, chosen.repetitions, reads)
                                 for placement in (APART, TOGETHER)})
    stream = Stream(rate, chosen.seconds, inject_loss=chosen.inject_loss)
    merged = {size: costs(measurement, loopback(size), ON_LOOPBACK, stream, chosen.repetitions) for size in sizes}
    with virtual_cable() as there:
        single = {size: costs(measurement, Path("not merged", size, "10.1.0.2", there), ON_VETH, stream, chosen.repetitions)
                  for size in sizes}
    cost_goals(goals, merged, single)
    found = {**{("merged", size): runs for size, runs in merged.items()}, **{("not merged", size): runs for size, runs in single.items()}}
    text += "\n" + cost_table(found)

    programs = (MEDIAGRABBER, ARAVIS, BARE)
    highest = {(size, program.name): [] for size in sizes for program in programs}
    for _ in range(chosen.rate_repetitions):
        for size in sizes:
            for program in programs:
                passes = lambda megabytes: without_loss(measurement, program, size, megabytes, min(chosen.seconds, 2), chosen.inject_loss)
                highest[size, program.name].append(highest_rate(rates, passes))
    text += "\n" + table(["packet size", "program", f"highest rate without a missing frame, MB/s (steps from {rates[0]} to {rates[-1]})"],
                         [[size, name, spread(values, 0)] for (size, name), values in highest.items()])
    for size in sizes:
        both = [(own, other) for own, other in zip(highest[size, "mediagrabber"], highest[size, "Aravis"]) if other]
        goals.add(f"highest rate without a missing frame, mediagrabber / Aravis, {size} bytes", [own / other for own, other in both], low=3)

    # The camera sends at the rate of Gigabit Ethernet and can store half a second: at the data rate itself, it could never catch up.
    minute = measurement.steady(grab_surely, Mediagrabber(run_as=UNPRIVILEGED), loopback(SIZES[0]),
                                Stream(minute_rate, chosen.minute_seconds, pacing="125", camera_options=("--frame-buffers", "64"),
                                       inject_loss=chosen.inject_loss), watch=False)
    goals.add(f"frames missing in {chosen.minute_seconds:g} s at {minute_rate * WIDTH * HEIGHT / 1e6:.0f} MB/s without privileges, of "
              f"{minute.received + minute.missing} ({minute.left_out} of them left out by the camera)", [minute.missing], high=0, digits=0)
    measurement.finish(goals.table() + "\n" + text)
    draw(measurement.chart("receive"), found)
    print("highest rates:", sorted({value for values in highest.values() for value in values}), file=sys.stderr)
    return report_problems([f"{minute.missing} frames missing in the run at 118 MB/s"] if minute.missing else [])


if __name__ == "__main__":
    sys.exit(main())
