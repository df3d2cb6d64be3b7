# SPDX-License-Identifier: MIT
"""Measures the cost of one recording while several run at the same time.

Run by `scripts/bench cameras`. Each recording has a simulated camera and a network namespace of its own. They record without files,
then with TIFF files, then without files and with an MQTT message for each frame to a broker of its own (Debian's mosquitto). CPU time
is that of the complete process, including startup, as the kernel accounts for it. Fails if a recording lost a frame.
"""

import json
import pathlib
import subprocess
import sys
import tempfile
import textwrap

from bench_tools import BUILD, Measurement, account_of, add_recording_options, loss_options, parser, report_problems, table, write_configuration

BROKER = "listener 1883 127.0.0.1\nallow_anonymous true\npersistence false\nuser root\nlog_dest none\n"
MESSAGES = "[mqtt]\nbroker = \"mqtt://127.0.0.1\"\nframes = true\n"

# Runs inside a namespace: starts camsim and the broker, runs mediagrabber, and prints the resource usage of all three.
RECORDING = textwrap.dedent("""
    import json, os, resource, signal, subprocess, sys
    build, directory, broker = sys.argv[1:4]
    others = [subprocess.Popen([build + "/bin/camsim", "--limits", "independent", "--pacing", "118", "--truth", directory + "/truth.jsonl", *sys.argv[4:]],
                               stdout=subprocess.PIPE, text=True)]
    assert others[0].stdout.readline().startswith("camsim: ready")
    if broker == "broker":
        others.append(subprocess.Popen(["/usr/sbin/mosquitto", "-c", directory + "/broker.conf"], stderr=subprocess.DEVNULL))
    recorder = subprocess.Popen([build + "/bin/mediagrabber", "run", "--plugin", build + "/lib/libmgjai.so", "--config",
                                 directory + "/run.toml", "--output", directory + "/frames"],
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(recorder.pid, 0)
    found = {"status": os.waitstatus_to_exitcode(status), "seconds": usage.ru_utime + usage.ru_stime,
             "resident": usage.ru_maxrss * 1024}
    for other, name in zip(others, ("camsim", "broker")):
        other.send_signal(signal.SIGTERM)
        _, _, usage = os.wait4(other.pid, 0)
        found[name] = usage.ru_utime + usage.ru_stime
    print(json.dumps(found))
""")


def start(directory, options, files, messages):
    """Starts one camera and one recording. \\return their process"""
    directory.mkdir()
    write_configuration(directory, options, files, MESSAGES if messages else "")
    (directory / "broker.conf").write_text(BROKER)
    return subprocess.Popen(["unshare", "--net", "sh", "-c", 'ip link set lo up && exec "$0" "$@"', "python3", "-c", RECORDING,
                             str(BUILD), str(directory), "broker" if messages else "none",
                             *loss_options(directory, options.inject_loss)],
                            stdout=subprocess.PIPE, text=True)


def measure(options, files, messages):
    """\\return resource usage, frames and bytes on disk of each recording"""
    with tempfile.TemporaryDirectory(dir=options.scratch) as scratch:
        directories = [pathlib.Path(scratch) / str(i) for i in range(options.cameras)]
        recordings = [start(directory, options, files, messages) for directory in directories]
        found = [json.loads(recording.communicate()[0]) for recording in recordings]
        for one, directory in zip(found, directories):
            one["account"], _ = account_of(directory)
            one["bytes"] = sum(path.stat().st_size for path in (directory / "frames").iterdir())
        return found


def row(options, name, found):
    count = len(found)
    mean = lambda key: sum(one.get(key, 0.0) for one in found) / count
    frames = lambda key: sum(getattr(one["account"], key) for one in found)
    expected = options.rate * options.seconds
    percent = lambda seconds: f"{100 * seconds / options.seconds:.1f} %"
    return [name, f"{frames('received')} of {expected * count}", frames("lost"), frames("left_out"),
            sum(one["status"] != 0 for one in found), percent(mean("seconds")), percent(max(one["seconds"] for one in found)),
            percent(mean("camsim")), percent(mean("broker")) if "broker" in found[0] else "", f"{mean('resident') / 1e6:.0f} MB",
            f"{mean('bytes') / options.seconds / 1e6:.2f} MB/s"]


def main():
    options = parser("cameras", __doc__)
    options.add_argument("--cameras", type=int, default=8, help="simultaneous recordings (8)")
    add_recording_options(options, rate=25, width=640, height=480)
    options.add_argument("--quick", action="store_true", help="two cameras for two seconds at 5 frames/s, to try the programs")
    measurement = Measurement("cameras", options)
    chosen = measurement.options
    if chosen.quick:
        chosen.cameras, chosen.seconds, chosen.rate = 2, 2, 5
    rows, problems = [], []
    for name, files, messages in (("no files", "none", False), ("TIFF files", "tiff", False), ("no files, frame messages", "none", True)):
        found = measurement.steady(measure, chosen, files, messages)
        rows.append(row(chosen, name, found))
        for number, one in enumerate(found):
            problems += [f"{name}, camera {number}: {problem}" for problem in one["account"].problems(chosen.rate * chosen.seconds)]
    head = ["recording", "frames recorded", "lost", "left out by the camera", "failed recordings",
            "mediagrabber CPU, % of a core: mean", "maximum", "camsim", "broker", "peak resident memory", "written to disk"]
    measurement.finish(f"{chosen.cameras} cameras, {chosen.width} x {chosen.height} pixels of 8 bits, {chosen.rate} frames/s, "
                       f"{chosen.seconds} s; CPU time, memory and disk per camera:\n\n" + table(head, rows))
    return report_problems(problems)


if __name__ == "__main__":
    sys.exit(main())
