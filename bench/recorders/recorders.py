# SPDX-License-Identifier: MIT
"""Measures what recordings cost in each file format.

Run by `scripts/bench recorders`. Three measurements for each format: frames written as fast as the disk takes them, beside raw in the same
round; small frames, whose cost at the start of a file is compared with that at its end; and a recording from a simulated camera, which
fails if frames are lost.
"""

import json
import os
import pathlib
import subprocess
import sys
import tempfile

from bench_tools import (BUILD, Measurement, account_of, add_recording_options, camera, loss_options, parser, report_problems, spread, table,
                         write_configuration)

FORMATS = ("raw", "tiff", "bigtiff", "hdf5")


def write_frames(scratch, kind, width, height, frames):
    """Writes frames without a camera. \\return what recorder_bench prints"""
    with tempfile.TemporaryDirectory(dir=scratch) as directory:
        done = subprocess.run([BUILD / "bin/recorder_bench", pathlib.Path(directory) / "frames", kind, str(width), str(height), str(frames)],
                              capture_output=True, text=True, check=True)
        return json.loads(done.stdout)


def record(options, kind):
    """Records from a simulated camera. \\return account of the frames, CPU seconds and bytes of the pixels"""
    with tempfile.TemporaryDirectory(dir=options.scratch) as name:
        directory = pathlib.Path(name)
        write_configuration(directory, options, kind)
        with camera("--pacing", "118", "--truth", str(directory / "truth.jsonl"), *loss_options(directory, options.inject_loss)):
            recorder = subprocess.Popen([BUILD / "bin/mediagrabber", "run", "--plugin", BUILD / "lib/libmgjai.so", "--config",
                                         directory / "run.toml", "--output", directory / "frames"],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            _, status, usage = os.wait4(recorder.pid, 0)
            recorder.returncode = os.waitstatus_to_exitcode(status)
        account, ticks = account_of(directory)
        return account, usage.ru_utime + usage.ru_stime, len(ticks) * options.width * options.height


def speed_table(measurement):
    options = measurement.options
    rounds = [{kind: measurement.steady(write_frames, options.scratch, kind, options.width, options.height, options.frames)
               for kind in FORMATS} for _ in range(options.rounds)]
    speed = lambda one: one["bytes"] / one["seconds"] / 1e6
    rows = [[kind, spread((speed(found[kind]) for found in rounds), 0),
             spread((speed(found[kind]) / speed(found["raw"]) for found in rounds), 2),
             spread((found[kind]["processor_seconds"] / found[kind]["bytes"] * 1e9 for found in rounds), 2)] for kind in FORMATS]
    return (f"{options.frames} frames of {options.width} x {options.height} bytes, until they are on the disk; "
            f"median of {options.rounds} rounds (range):\n\n"
            + table(["format", "MB/s", "relative to raw", "CPU seconds per GB"], rows))


def append_table(measurement):
    options = measurement.options
    rows = []
    for kind in FORMATS:
        found = measurement.steady(write_frames, options.scratch, kind, 8, 4, options.appends)
        for name, place in (("first", 2), ("last", options.appends)):
            one = found[name]
            rows.append([kind, f"{place:,}", f"{one['us']:.1f}", one["bytes"], f"{one['calls']:.1f}"])
    return ("Frames of 8 x 4 bytes, median of 100 frames from the given one on, or before the last one; with the frame index:\n\n"
            + table(["format", "frame", "us per frame", "bytes written", "write calls"], rows))


def camera_table(measurement):
    options = measurement.options
    wanted = options.rate * options.seconds
    rows, problems = [], []
    for kind in FORMATS:
        account, seconds, pixels = measurement.steady(record, options, kind)
        rows.append([kind, f"{account.received} of {wanted}", account.lost, account.left_out, f"{seconds / (pixels or 1) * 1e9:.2f}"])
        problems += [f"{kind}: {problem}" for problem in account.problems(wanted)]
    return (f"Recordings from a simulated camera, {options.rate} frames/s for {options.seconds} s:\n\n"
            + table(["format", "frames recorded", "lost", "left out by the camera", "mediagrabber CPU seconds per GB"], rows)), problems


def main():
    options = parser("recorders", __doc__)
    options.add_argument("--rounds", type=int, default=5, help="repetitions of the first table (5)")
    options.add_argument("--frames", type=int, default=2000, help="of the first table (2000)")
    options.add_argument("--appends", type=int, default=1_000_000, help="frames of the second table (1,000,000)")
    add_recording_options(options, rate=50, width=1920, height=1080)
    options.add_argument("--quick", action="store_true", help="a few small frames, to try the programs")
    measurement = Measurement("recorders", options)
    chosen = measurement.options
    if chosen.quick:
        chosen.rounds, chosen.frames, chosen.appends = 1, 210, 210
        chosen.rate, chosen.seconds, chosen.width, chosen.height = 5, 4, 320, 240
    speed, appends = speed_table(measurement), append_table(measurement)
    recordings, problems = camera_table(measurement)
    measurement.finish("\n".join((speed, appends, recordings)))
    return report_problems(problems)


if __name__ == "__main__":
    sys.exit(main())
