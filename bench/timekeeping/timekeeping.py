# SPDX-License-Identifier: MIT
"""Measures the accuracy of times: the plug-in's timestamps in both modes, mediagrabber's exposure times, and Aravis's timestamps,
compared with the simulated camera's truth file.

Run by `scripts/bench timekeeping` inside a network namespace of its own. All recordings of a table run at the same time, each from
its own camera, which loses 1 % of its frames.
"""

import concurrent.futures
import json
import pathlib
import statistics
import subprocess
import sys
import tempfile

from bench_tools import BUILD, Goals, Measurement, camera, parser, percentile, plot, read_truth, set_features, table, utc_us

DRIFT_PPM = 40
FRAME_RATE = 30
CALIBRATION_RATE = 100  # frames/s; more frames find the minimum delay sooner
EXPOSURE_US = 1000
JITTER = "20:5"
NO_JITTER = "0"
SOCKET_BUFFER = 1 << 20  # bytes, of Aravis's socket; frames are small
FIRST_SECONDS = 300      # in which the window of the clock model fills, or half of a short recording
LOSES_FRAMES = '[[fault]]\nkind = "block_drop"\nprobability = 0.01\n'

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
{more}
[exposure]
auto = "Off"
time_us = {exposure}
[control]
socket = "none"
"""


class Setup:
    """One camera and one receiver: mediagrabber, or Aravis if `correction` is None.

    `rows` names what is measured: keys of the frame index, each with the name of its row.
    """

    _count = 0

    def __init__(self, delay, correction=None, referenced=False, **rows):
        Setup._count += 1
        self.delay, self.correction, self.referenced, self.rows = delay, correction, referenced, rows
        self.serial = f"TK{Setup._count}"
        self.address = f"127.0.0.{Setup._count + 1}"


class Stamp:
    """A time that a receiver stated for a frame, and the true start of its exposure, in microseconds; uncertainty None: not stated."""

    def __init__(self, stated, true, uncertainty=None):
        self.stated, self.true, self.uncertainty = stated, true, uncertainty


def camera_of(setup, truth_path):
    faults = truth_path.with_name("faults.toml")
    faults.write_text(LOSES_FRAMES)
    return camera("--address", setup.address, "--serial", setup.serial, "--truth", truth_path, "--timestamp", "running",
                  "--clock-drift-ppm", str(DRIFT_PPM), "--network-delay", setup.delay, "--faults", faults)


def exposure_starts(truth_path):
    """The start of each exposure in microseconds of UTC, by the camera's ticks."""
    return {frame["ticks"]: utc_us(frame, "exposure_start_ns") for frame in read_truth(truth_path)}


def record(setup, frames, directory):
    """Records with mediagrabber. \\return the lines of the frame index"""
    configuration = directory / "run.toml"
    reference = subprocess.run([BUILD / "bin/gevctl", "clock", setup.address, "--seconds", "1", "--reference"], check=True,
                               capture_output=True, text=True).stdout.replace("timing.", "") if setup.referenced else ""
    configuration.write_text(CONFIGURATION.format(serial=setup.serial, rate=FRAME_RATE, exposure=EXPOSURE_US,
                                                  correction=setup.correction, more=reference))
    output = directory / "frames"
    done = subprocess.run([BUILD / "bin/mediagrabber", "--plugin", BUILD / "lib/libmgjai.so", "run", "--config", configuration,
                           "--output", output, "--frames", str(frames)], capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"{setup.serial}: {done.stdout}{done.stderr}")
    return [json.loads(line) for line in (output / "frames.jsonl").read_text().splitlines()]


def grab_with_aravis(setup, seconds):
    set_features(setup.address, "Width=64", "Height=48", f"AcquisitionFrameRate={FRAME_RATE}",
                 f"ExposureTime={EXPOSURE_US}", "GevSCPSPacketSize=1400")
    done = subprocess.run([BUILD / "bin/aravis_grabber", setup.address, str(seconds * FRAME_RATE), "udp", str(SOCKET_BUFFER)],
                          check=True, capture_output=True, text=True)
    lines = (line.split() for line in done.stdout.splitlines())
    return [{"ticks": int(ticks), "system_us": int(system_ns) / 1000} for ticks, _, system_ns in lines]


def measure(setup, seconds):
    """\\return figures by the names of their rows"""
    with tempfile.TemporaryDirectory() as temporary:
        directory = pathlib.Path(temporary)
        truth_path = directory / "truth.jsonl"
        with camera_of(setup, truth_path):
            if setup.correction is None:
                lines = grab_with_aravis(setup, seconds)
            else:
                lines = record(setup, seconds * FRAME_RATE, directory)[1:]  # in camera time the first one initialises the clock
        truth = exposure_starts(truth_path)
    stated = {"time_us": "time_uncertainty_us"}
    return {name: Figures([Stamp(line[key], truth[line["ticks"]], line.get(stated.get(key))) for line in lines], seconds)
            for key, name in setup.rows.items()}


def first_seconds(seconds):
    return min(FIRST_SECONDS, seconds // 2)


class Figures:
    """Accuracy of the times of a recording, in microseconds unless named otherwise."""

    WINDOW_SECONDS = 10

    def __init__(self, stamps, seconds):
        begin = stamps[0].true
        self.errors = [((one.true - begin) / 1e6, one.stated - one.true) for one in stamps]
        values = [error for _, error in self.errors]
        self.offset = statistics.median(values)
        self.around = [abs(value - self.offset) for value in values]
        limit = first_seconds(seconds)
        self.first, self.later = (self.p99_around([error for time, error in self.errors if (time < limit) == early])
                                  for early in (True, False))
        self.intervals = [abs((b.stated - a.stated) - (b.true - a.true)) for a, b in zip(stamps, stamps[1:])]
        gap = 1.5e6 / FRAME_RATE
        self.gaps = [error for error, a, b in zip(self.intervals, stamps, stamps[1:]) if b.true - a.true > gap]
        self.uncertainties = [one.uncertainty for one in stamps if one.uncertainty is not None]
        self.within = [sum(abs(one.stated - one.true - constant) <= one.uncertainty for one in stamps) / len(stamps)
                       for constant in (self.offset, 0.0)] if self.uncertainties else []
        windows = {}
        for time, error in self.errors:
            windows.setdefault(int(time // self.WINDOW_SECONDS), []).append(error)
        complete = [statistics.median(each) for each in windows.values() if len(each) >= self.WINDOW_SECONDS * FRAME_RATE / 2]
        self.moved = max(complete) - min(complete)
        self.count = len(stamps)

    @staticmethod
    def p99_around(errors):
        offset = statistics.median(errors)
        return percentile([abs(error - offset) for error in errors], 0.99)

    def row(self):
        return [self.count, f"{self.offset:,.0f}", f"{statistics.median(self.around):,.1f}", f"{self.first:,.1f}", f"{self.later:,.1f}",
                f"{percentile(self.intervals, 0.99):,.1f}", f"{percentile(self.gaps, 0.99):,.1f}", f"{self.moved:,.1f}"]

    def stated_row(self):
        return [f"{statistics.median(self.uncertainties):,.0f}", *(f"{100 * part:.1f} %" for part in self.within)]


def calibrate(delay, seconds):
    """\\return the output of `mediagrabber calibrate`"""
    setup = Setup(delay, 0)
    with tempfile.TemporaryDirectory() as temporary:
        directory = pathlib.Path(temporary)
        configuration = directory / "run.toml"
        configuration.write_text(CONFIGURATION.format(serial=setup.serial, rate=CALIBRATION_RATE, exposure=EXPOSURE_US,
                                                      correction=0, more=""))
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
    setup = Setup(delay, correction)
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
            offsets.append(statistics.median(line["timestamp_us"] - truth[line["ticks"]] for line in frames))
    return offsets


def draw(chart, figures):
    """Plots the errors over time, one panel per recording."""
    with tempfile.TemporaryDirectory() as temporary:
        panels = []
        for number, (name, each) in enumerate(figures.items()):
            path = pathlib.Path(temporary) / f"{number}.dat"
            path.write_text("\n".join(f"{time} {(error - each.offset) / 1000}" for time, error in each.errors))
            panels.append(f"set title '{name}'\nplot '{path}' using 1:2 with points pt 7 ps 0.25 lc rgb '#1f5fa8' notitle\n")
        plot(chart, "1100,1800", f"set multiplot layout {(len(panels) + 1) // 2},2 title 'Timestamp error less its median'\n"
             "set xlabel 'time, s'\nset ylabel 'error, ms'\nset grid\n" + "".join(panels))


def goals_of(figures, first):
    goals = Goals()
    for way in ("calm", "jitter"):
        host, exposure = figures[f"host time, {way}"], figures[f"exposure time, {way}"]
        referenced = figures[f"exposure time with a reference, {way}"]
        goals.add(f"p99 of host time / exposure time, {way}, in the first {first} s", [host.first / exposure.first], low=20, digits=0)
        goals.add(f"p99 of host time / exposure time, {way}, later", [host.later / exposure.later], low=40, digits=0)
        if way == "calm":
            goals.add("p99 of exposure time, calm, later, us", [exposure.later], high=20, digits=0)
        goals.add(f"p99 of intervals across gaps, exposure time, {way}, us", [percentile(exposure.gaps, 0.99)], high=20, digits=0)
        goals.add(f"% of frames within the stated uncertainty, absolutely, exposure time with a reference, {way}",
                  [100 * referenced.within[1]], low=95, digits=1)
    return goals


def indented(text):
    return "".join(f"    {line}\n" for line in text.strip().splitlines())


def describe_starts(offsets):
    return [len(offsets), f"{statistics.median(offsets):,.0f}", f"{min(offsets):,.0f}", f"{max(offsets):,.0f}",
            f"{statistics.pstdev(offsets):,.0f}"]


def main():
    options = parser("timekeeping", __doc__)
    options.add_argument("--seconds", type=int, default=720, help="length of each recording (720)")
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

    setups = [Setup(NO_JITTER, 1, timestamp_us="camera time, calm, not calibrated")]
    for way, delay in (("calm", NO_JITTER), ("jitter", JITTER)):
        setups += [Setup(delay, 0, timestamp_us=f"host time, {way}", time_us=f"exposure time, {way}"),
                   Setup(delay, 0, referenced=True, time_us=f"exposure time with a reference, {way}"),
                   Setup(delay, correction, timestamp_us=f"camera time, {way}"),
                   Setup(delay, system_us=f"Aravis, {way}")]
    figures = {}
    with concurrent.futures.ThreadPoolExecutor(len(setups)) as pool:
        for measured in pool.map(lambda setup: measure(setup, chosen.seconds), setups):
            figures |= measured
    figures = dict(sorted(figures.items()))
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        starts = list(pool.map(lambda delay: offsets_of_starts(delay, correction, chosen.starts), (NO_JITTER, JITTER)))

    first = first_seconds(chosen.seconds)
    text = goals_of(figures, first).table()
    text += "\n" + table(["times", "frames", "offset (median error)", "error around it: median", f"p99 in the first {first} s",
                         "p99 later", "error of intervals: p99", "p99 across gaps", "offset drift"],
                        [[name, *each.row()] for name, each in figures.items()])
    text += "\n" + table(["times", "stated uncertainty, median", "frames within it about the offset", "absolutely"],
                         [[name, *each.stated_row()] for name, each in figures.items() if each.uncertainties])
    text += "\n" + table(["offset over starts, camera time", "starts", "median", "minimum", "maximum", "standard deviation"],
                         [["calm", *describe_starts(starts[0])], ["jitter", *describe_starts(starts[1])]])
    text += f"\nCalibration, {chosen.calibration_seconds} s, calm:\n\n{indented(steady)}"
    text += f"\nCalibration, {chosen.calibration_seconds} s, jitter:\n\n{indented(jittery)}"
    measurement.finish(text)
    draw(measurement.chart("timekeeping"), figures)


if __name__ == "__main__":
    sys.exit(main())
