"""Several recordings side by side, each from a simulated camera in a network namespace of its own: what does one cost?

Run by `scripts/bench cameras`. Each pair of camsim and mediagrabber records for a while, first without files, then with TIFF files,
then without files and with a message for each frame to a broker of its own (Debian's mosquitto). Processor time is that of a whole
process, start-up included, as the system accounts for it. Writes cameras.tables.md into the output directory.
"""

import argparse
import json
import os
import pathlib
import subprocess
import tempfile
import textwrap

from bench_tools import BUILD, table

CONFIGURATION = """
[image]
width = {width}
height = {height}
[timing]
frame_rate = {rate}.0
[exposure]
mode = "manual"
time_us = 2000
[memory]
export_buffers = 64
[run]
frames = {frames}
[output]
format = "{files}"
"""
BROKER = "listener 1883 127.0.0.1\nallow_anonymous true\npersistence false\nuser root\nlog_dest none\n"
MESSAGES = "[mqtt]\nbroker = \"mqtt://127.0.0.1\"\nframes = true\n"

# Inside a namespace: starts what is there beside mediagrabber, runs that, and prints what it took.
PAIR = textwrap.dedent("""
    import json, os, resource, signal, subprocess, sys
    build, directory, broker = sys.argv[1:4]
    others = [subprocess.Popen([build + "/bin/camsim", "--pacing", "118"], stdout=subprocess.PIPE, text=True)]
    assert others[0].stdout.readline().startswith("camsim: ready")
    if broker == "broker":
        others.append(subprocess.Popen(["/usr/sbin/mosquitto", "-c", directory + "/broker.conf"], stderr=subprocess.DEVNULL))
    recorder = subprocess.Popen([build + "/bin/mediagrabber", "run", "--config", directory + "/run.toml",
                                 "--output", directory + "/frames"],
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
    directory.mkdir()
    configuration = CONFIGURATION.format(width=options.width, height=options.height, rate=options.rate, files=files,
                                         frames=options.rate * options.seconds)
    (directory / "run.toml").write_text(configuration + (MESSAGES if messages else ""))
    (directory / "broker.conf").write_text(BROKER)
    return subprocess.Popen(["unshare", "--net", "sh", "-c", 'ip link set lo up && exec "$0" "$@"', "python3", "-c", PAIR,
                             str(BUILD), str(directory), "broker" if messages else "none"],
                            stdout=subprocess.PIPE, text=True)


def measure(options, files, messages):
    """\\return what each pair took, and what is on disk then"""
    with tempfile.TemporaryDirectory(dir=options.scratch) as scratch:
        directories = [pathlib.Path(scratch) / str(i) for i in range(options.cameras)]
        pairs = [start(directory, options, files, messages) for directory in directories]
        found = [json.loads(pair.communicate()[0]) for pair in pairs]
        for one, directory in zip(found, directories):
            journal = directory / "frames/frames.jsonl"
            one["frames"] = len(journal.read_text().splitlines())
            one["bytes"] = sum(path.stat().st_size for path in (directory / "frames").iterdir())
        return found


def row(options, name, found):
    count = len(found)
    mean = lambda key: sum(one.get(key, 0.0) for one in found) / count
    wanted = options.rate * options.seconds
    percent = lambda seconds: f"{100 * seconds / options.seconds:.1f} %"
    return [name, f"{sum(one['frames'] for one in found)} of {wanted * count}",
            str(sum(one["status"] != 0 for one in found)), percent(mean("seconds")),
            percent(max(one["seconds"] for one in found)), percent(mean("camsim")),
            percent(mean("broker")) if "broker" in found[0] else "", f"{mean('resident') / 1e6:.0f} MB",
            f"{mean('bytes') / options.seconds / 1e6:.2f} MB/s"]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--cameras", type=int, default=8)
    parser.add_argument("--seconds", type=int, default=20)
    parser.add_argument("--rate", type=int, default=25)
    parser.add_argument("--width", type=int, default=640)
    parser.add_argument("--height", type=int, default=480)
    parser.add_argument("--scratch", help="where frames are written for the time being")
    parser.add_argument("--output", type=pathlib.Path, default=pathlib.Path("docs/measurements"))
    options = parser.parse_args()
    cases = (("no files", "none", False), ("TIFF files", "tiff", False), ("no files, a message a frame", "none", True))
    rows = [row(options, name, measure(options, files, messages)) for name, files, messages in cases]
    head = ["recording", "frames on disk", "recordings that failed", "mediagrabber, of one processor: mean", "most", "camsim",
            "broker", "most resident", "to disk"]
    text = f"{options.cameras} cameras, {options.width} x {options.height} pixels of 8 bits, {options.rate} frames/s, " \
           f"{options.seconds} s; a camera:\n\n" + table(head, rows)
    (options.output / "cameras.tables.md").write_text(text + "\n")
    print(text)


if __name__ == "__main__":
    main()
