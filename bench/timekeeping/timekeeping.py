# SPDX-License-Identifier: MIT
"""Measures the accuracy of timestamps: both modes of the plug-in, and Aravis, compared with the simulated camera's truth file.

Run by `scripts/bench timekeeping` inside a network namespace of its own. All recordings of a table run at the same time, each from
its own camera.
"""

import concurrent.futures
import json
import pathlib
import statistics
import subprocess
import sys
import tempfile

from bench_tools import BUILD, Measurement, camera, parser, percentile, plot, read_truth, set_features, table, utc_us

DRIFT_PPM = 40
FRAME_RATE = 30
CALIBRATION_RATE = 100  # frames/s; more frames find the minimum delay sooner
EXPOSURE_US = 1000
JITTER = "20:5"
NO_JITTER = "0"
SOCKET_BUFFER = 1 << 20  # bytes, of Aravis's socket; frames are small

CONFIGURATION = """
[camera]
model = "GO-5100M-PGE"
serial = "{serial}"
[image]
width = 64
height = 48
[transport]
packet_size_bytes = 1400
[timing]
frame_rate_hz = {rate}.0
clock_correction_ppb = {correction}
[exposure]
auto = "Off"
time_us = {exposure}
[control]
socket = "none"
"""


class Setup:
    """One camera and one receiver: mediagrabber, or Aravis if `correction` is None."""

    _count = 0

    def __init__(self, name, delay, correction=None):
        Setup._count += 1
        self.name, self.delay, self.correction = name, delay, correction
        self.serial = f"TK{Setup._count}"
        self.address = f"127.0.0.{Setup._count + 1}"


def camera_of(setup, truth_path):
    return camera("--address", setup.address, "--serial", setup.serial, "--truth", truth_path, "--timestamp", "running",
                  "--clock-drift-ppm", str(DRIFT_PPM), "--network-delay", setup.delay)


def exposure_starts(truth_path):
    """The start of each exposure in microseconds of UTC, by the camera's ticks."""
    return {frame["ticks"]: utc_us(frame, "exposure_start_ns") for frame in read_truth(truth_path)}


def record(setup, frames, directory):
    """Records with mediagrabber. \\return pairs of ticks and timestamp in microseconds"""
    configuration = directory / "run.toml"
    configuration.write_text(CONFIGURATION.format(serial=setup.serial, rate=FRAME_RATE, exposure=EXPOSURE_US,
                                                  correction=setup.correction))
    output = directory / "frames"
    done = subprocess.run([BUILD / "bin/mediagrabber", "--plugin", BUILD / "lib/libmgjai.so", "run", "--config", configuration,
                           "--output", output, "--frames", str(frames)], capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"{setup.name}: {done.stdout}{done.stderr}")
    lines = (json.loads(line) for line in (output / "frames.jsonl").read_text().splitlines())
    return [(line["ticks"], line["timestamp_us"]) for line in lines]


def grab_with_aravis(setup, seconds):
    set_features(setup.address, "Width=64", "Height=48", f"AcquisitionFrameRate={FRAME_RATE}",
                 f"ExposureTime={EXPOSURE_US}", "GevSCPSPacketSize=1400")
    done = subprocess.run([BUILD / "bin/aravis_grabber", setup.address, str(seconds * FRAME_RATE), "udp", str(SOCKET_BUFFER)],
                          check=True, capture_output=True, text=True)
    lines = (line.split() for line in done.stdout.splitlines())
    return [(int(ticks), int(system_ns) / 1000) for ticks, _, system_ns in lines]


def measure(setup, seconds):
    with tempfile.TemporaryDirectory() as temporary:
        directory = pathlib.Path(temporary)
        truth_path = directory / "truth.jsonl"
        with camera_of(setup, truth_path):
            if setup.correction is None:
                stamped = grab_with_aravis(setup, seconds)
            else:
                stamped = record(setup, seconds * FRAME_RATE, directory)
        truth = exposure_starts(truth_path)
    if setup.correction is not None:
        stamped = stamped[1:]  # in camera time the second frame, the first one saved, initialises the clock
    return [(stamp, truth[ticks]) for ticks, stamp in stamped]


def slope(points):
    """Slope of the linear regression."""
    return statistics.linear_regression(*zip(*points)).slope


class Figures:
    """Accuracy of the timestamps of a recording, in microseconds unless named otherwise."""

    WINDOW_SECONDS = 10

    def __init__(self, pairs):
        begin = pairs[0][1]
        self.errors = [((true - begin) / 1e6, stamp - true) for stamp, true in pairs]
        values = [error for _, error in self.errors]
        self.offset = statistics.median(values)
        self.around = [abs(value - self.offset) for value in values]
        self.intervals = [abs((b[0] - a[0]) - (b[1] - a[1])) for a, b in zip(pairs, pairs[1:])]
        self.drift_ppm = slope(self.errors)
        windows = {}
        for time, error in self.errors:
            windows.setdefault(int(time // self.WINDOW_SECONDS), []).append(error)
        complete = [statistics.median(each) for each in windows.values() if len(each) >= self.WINDOW_SECONDS * FRAME_RATE / 2]
        self.moved = max(complete) - min(complete)
        self.count = len(pairs)

    def row(self):
        return [self.count, f"{self.offset:,.0f}", f"{statistics.median(self.around):,.1f}",
                f"{percentile(self.around, 0.99):,.1f}", f"{max(self.around):,.1f}",
                f"{percentile(self.intervals, 0.99):,.1f}", f"{max(self.intervals):,.1f}", f"{self.drift_ppm:,.3f}",
                f"{self.moved:,.1f}"]


def calibrate(delay, seconds):
    """\\return the output of `mediagrabber calibrate`"""
    setup = Setup("calibration", delay, 0)
    with tempfile.TemporaryDirectory() as temporary:
        directory = pathlib.Path(temporary)
        configuration = directory / "run.toml"
        configuration.write_text(CONFIGURATION.format(serial=setup.serial, rate=CALIBRATION_RATE, exposure=EXPOSURE_US,
                                                      correction=0))
        with camera_of(setup, directory / "truth.jsonl"):
            done = subprocess.run([BUILD / "bin/mediagrabber", "--plugin", BUILD / "lib/libmgjai.so", "calibrate", "--config",
                                   configuration, "--seconds", str(seconds)], capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"calibrate: {done.stdout}{done.stderr}")
    return done.stdout


def correction_of(output):
    return int(output.split("clock_correction_ppb = ")[1].split()[0])


def offsets_of_starts(delay, correction, starts):
    """The median timestamp error of each of several short recordings from one camera."""
    setup = Setup("start", delay, correction)
    offsets = []
    with tempfile.TemporaryDirectory() as temporary:
        truth_path = pathlib.Path(temporary) / "truth.jsonl"
        stamped = []
        with camera_of(setup, truth_path):
            for number in range(starts):
                directory = pathlib.Path(temporary) / str(number)
                directory.mkdir()
                stamped.append(record(setup, 10, directory)[1:])
        truth = exposure_starts(truth_path)
        for frames in stamped:
            offsets.append(statistics.median(stamp - truth[ticks] for ticks, stamp in frames))
    return offsets


def draw(chart, figures):
    """Plots the errors over time, one panel per recording. The SVG file has every eighth point only, to limit its size."""
    with tempfile.TemporaryDirectory() as temporary:
        files = []
        for number, (name, each) in enumerate(figures.items()):
            path = pathlib.Path(temporary) / f"{number}.dat"
            path.write_text("\n".join(f"{time} {(error - each.offset) / 1000}" for time, error in each.errors))
            files.append((name, path))
        for terminal, suffix, step in (("pngcairo size 1100,900", "png", 1),
                                       ("svg size 1100,900 dynamic background '#ffffff'", "svg", 8)):
            panels = []
            for name, path in files:
                panels.append(f"set title '{name}'\nplot '{path}' every {step} using 1:2 with points pt 7 ps 0.25 lc rgb '#1f5fa8' notitle\n")
            script = (f"set terminal {terminal}\nset output '{chart}.{suffix}'\n"
                      f"set multiplot layout {(len(files) + 1) // 2},2 title 'Timestamp error less its median'\n"
                      "set xlabel 'time, s'\nset ylabel 'error, ms'\nset grid\n" + "".join(panels) + "unset multiplot\n")
            plot(script)


def indented(text):
    return "".join(f"    {line}\n" for line in text.strip().splitlines())


def describe_starts(offsets):
    return [len(offsets), f"{statistics.median(offsets):,.0f}", f"{min(offsets):,.0f}", f"{max(offsets):,.0f}",
            f"{statistics.pstdev(offsets):,.0f}"]


def main():
    options = parser("timekeeping", __doc__)
    options.add_argument("--seconds", type=int, default=180, help="length of each recording (180)")
    options.add_argument("--calibration-seconds", type=int, default=60, help="length of the calibration (60)")
    options.add_argument("--starts", type=int, default=20, help="starts for the distribution of the offset (20)")
    options.add_argument("--quick", action="store_true", help="short recordings and one start, to try the programs")
    measurement = Measurement("timekeeping", options)
    chosen = measurement.options
    if chosen.quick:
        chosen.seconds, chosen.calibration_seconds, chosen.starts = 12, 5, 1

    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        steady, jittery = pool.map(lambda delay: calibrate(delay, chosen.calibration_seconds), (NO_JITTER, JITTER))
    correction = correction_of(steady)
    print(steady, jittery, sep="\n")

    setups = [Setup("host time, calm", NO_JITTER, 0), Setup("host time, jitter", JITTER, 0),
              Setup("camera time, calm", NO_JITTER, correction), Setup("camera time, jitter", JITTER, correction),
              Setup("camera time, calm, not calibrated", NO_JITTER, 1),
              Setup("Aravis, calm", NO_JITTER), Setup("Aravis, jitter", JITTER)]
    with concurrent.futures.ThreadPoolExecutor(len(setups)) as pool:
        measured = list(pool.map(lambda setup: Figures(measure(setup, chosen.seconds)), setups))
    figures = {setup.name: each for setup, each in zip(setups, measured)}
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        starts = list(pool.map(lambda delay: offsets_of_starts(delay, correction, chosen.starts), (NO_JITTER, JITTER)))

    text = table(["recording", "frames", "offset (median error)", "error around it: median", "p99", "maximum",
                  "error of intervals: p99", "maximum", "rate of change, ppm", "offset drift"],
                 [[name, *each.row()] for name, each in figures.items()])
    text += "\n" + table(["offset over starts, camera time", "starts", "median", "minimum", "maximum", "standard deviation"],
                         [["calm", *describe_starts(starts[0])], ["jitter", *describe_starts(starts[1])]])
    text += f"\nCalibration, {chosen.calibration_seconds} s, calm:\n\n{indented(steady)}"
    text += f"\nCalibration, {chosen.calibration_seconds} s, jitter:\n\n{indented(jittery)}"
    ratio = percentile(figures["host time, jitter"].intervals, 0.99) / percentile(
        figures["camera time, jitter"].intervals, 0.99)
    text += (f"\nWith jitter, the interval error (p99) of host time is {ratio:,.0f} times that of camera time. The"
             f" offset drift in camera time is {figures['camera time, jitter'].moved:,.1f} us over the recording.\n")
    measurement.finish(text)
    draw(measurement.chart("timekeeping"), figures)


if __name__ == "__main__":
    sys.exit(main())
