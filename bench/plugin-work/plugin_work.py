# SPDX-License-Identifier: MIT
"""Measures the plug-in's own work for a frame: one iteration of its loop, and rotation and conversion of the pixels.

Run by `scripts/bench plugin-work`. The programs are bench/grab_loop_bench.cpp and bench/frame_transforms_bench.cpp.
"""

import json
import subprocess
import sys

from bench_tools import BUILD, Measurement, parser, spread, table

LOOP = {"one_iteration_of_the_loop": "one loop iteration (upper limit: the test doubles are included)",
        "timestamps": "of this: timestamping the frame, evaluating the pace and announcing the next timestamp",
        "filtered_log_call": "a log call below the active level",
        "memcpy_of_a_frame": "for comparison: `memcpy` of a frame of 1 MB"}
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
FORMATS = ("Mono8", "Mono12Packed", "Mono12", "BayerRG8")


def results(program, repetitions, quick):
    """\\return the nanoseconds of each repetition, by the name of the benchmark; of an item if the benchmark counts items"""
    command = [BUILD / "bin" / program, "--benchmark_format=json", f"--benchmark_repetitions={repetitions}",
               "--benchmark_enable_random_interleaving=true", *(["--benchmark_min_time=0.001"] if quick else [])]
    done = subprocess.run(command, check=True, capture_output=True, text=True)
    found = {}
    for run in json.loads(done.stdout)["benchmarks"]:
        if run["run_type"] == "iteration":
            found.setdefault(run["run_name"], []).append(run)
    return found


def nanoseconds(runs):
    return [run["cpu_time"] * NANOSECONDS[run["time_unit"]] for run in runs]


def main():
    options = parser("plugin-work", __doc__)
    options.add_argument("--repetitions", type=int, default=10, help="runs of each benchmark (10)")
    options.add_argument("--quick", action="store_true", help="one short run of each, to try the programs")
    measurement = Measurement("plugin-work", options)
    repetitions = 1 if measurement.options.quick else measurement.options.repetitions
    loop = measurement.steady(results, "grab_loop_bench", repetitions, measurement.options.quick)
    pixels = measurement.steady(results, "frame_transforms_bench", repetitions, measurement.options.quick)

    times = {name: nanoseconds(runs) for name, runs in loop.items()}
    times["one_iteration_of_the_loop"] = [1e9 / run["items_per_second"] for run in loop["one_iteration_of_the_loop"]]
    text = table(["operation", "ns"], [[meaning, spread(times[name], 1)] for name, meaning in LOOP.items()])
    cell = lambda name: spread((value / 1e6 for value in nanoseconds(pixels[name])), 2)
    targets = [name for name in FORMATS if name != "BayerRG8"]
    text += "\n" + table(["1280 x 1024 pixels, ms: from", "`memcpy`", "rotation by 180 degrees", *(f"to {name}" for name in targets)],
                         [[name, cell(f"memcpy/{name}"), cell(f"rotate/{name}"),
                           *(cell(way) if (way := f"convert/{name}/{target}") in pixels else "-" for target in targets)]
                          for name in FORMATS])
    measurement.finish(text)


if __name__ == "__main__":
    sys.exit(main())
