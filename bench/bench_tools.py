"""What the measurements share: the simulated camera as a process, its truth, figures and tables."""

import contextlib
import json
import os
import pathlib
import subprocess

BUILD = pathlib.Path(os.environ["BUILD"])


@contextlib.contextmanager
def camera(*options, inside=()):
    """Runs camsim; `inside` is a command that starts it somewhere else."""
    process = subprocess.Popen([*inside, BUILD / "bin/camsim", *options], stdout=subprocess.PIPE, text=True)
    try:
        ready = process.stdout.readline()
        if not ready.startswith("camsim: ready"):
            raise RuntimeError(f"camsim did not get ready: {ready}")
        yield
    finally:
        process.terminate()
        process.wait()


def read_truth(path):
    """The frames of a truth file, in their order."""
    _, *frames = (json.loads(line) for line in path.read_text().splitlines())
    return frames


def utc_us(frame, moment):
    """A moment of a frame of the truth, in microseconds of UTC."""
    return (frame[moment] + frame["utc_offset_ns"]) / 1000


def set_features(address, *assignments):
    subprocess.run(["arv-tool-0.8", "-a", address, "control", *assignments], check=True, capture_output=True)


def percentile(values, share):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(share * len(ordered)))]


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return "\n".join(lines + ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]) + "\n"
