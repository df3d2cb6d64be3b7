# SPDX-License-Identifier: MIT
"""Runs camsim as a child process, and programs that use it.

Paths come from the environment: CAMSIM, CAMSIM_STREAM_PROBE and CAMSIM_ARAVIS_CHUNKS. Tests run inside a network namespace of their own.
"""

import functools
import json
import os
import pathlib
import select
import signal
import socket
import subprocess
import tempfile
import tomllib

import waiting

CAMSIM = os.environ["CAMSIM"]
PROBE = os.environ["CAMSIM_STREAM_PROBE"]
ARAVIS_CHUNKS = os.environ["CAMSIM_ARAVIS_CHUNKS"]
DEADLINE_SECONDS = 20
wait_for = functools.partial(waiting.wait_for, seconds=DEADLINE_SECONDS)


class Camera:
    """A camsim process. It is ready when the context is entered; leaving fails unless it ends with status 0 and no errors.

    The plug-in sets a region only in a camera whose limits of size and offset are independent, so this one has such limits. A
    StandardCamera has the defaults of camsim.
    """

    limits_options = ("--limits", "independent")

    def __init__(self, *arguments, end_signal=signal.SIGTERM, prefix=()):
        """\\param prefix  of the command, for example one that enters another network namespace"""
        self.prefix = prefix
        self.arguments = (*self.limits_options, *arguments)
        self.end_signal = end_signal
        self.lost = False
        self.directory = tempfile.TemporaryDirectory()
        self.truth_path = pathlib.Path(self.directory.name) / "truth.jsonl"

    def __enter__(self):
        command = [*self.prefix, CAMSIM, "--truth", str(self.truth_path), *self.arguments]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        ready, _, _ = select.select([self.process.stdout], [], [], DEADLINE_SECONDS)
        self.ready_line = self.process.stdout.readline() if ready else ""
        if not self.ready_line.startswith("camsim: ready, "):
            self.process.kill()
            raise AssertionError(f"camsim did not become ready: {self.process.communicate()[1]}")
        return self

    def lose(self):
        """Kills the camera, as unplugging it does."""
        self.lost = True
        self.process.kill()
        self.process.wait()

    def __exit__(self, kind, value, traceback):
        self.process.send_signal(self.end_signal)
        try:
            _, errors = self.process.communicate(timeout=DEADLINE_SECONDS)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise AssertionError("camsim did not end after the signal")
        self._read_truth()
        self.directory.cleanup()
        if kind is None and not self.lost and (self.process.returncode != 0 or errors):
            raise AssertionError(f"camsim ended with {self.process.returncode}: {errors}")

    def _read_truth(self):
        lines = self.truth_path.read_text().splitlines()
        self.truth_header, *self.truth_frames = [json.loads(line) for line in lines]

    def description(self):
        """\\return the GenICam XML of a camera with the same options"""
        return run(CAMSIM, *self.arguments, "--print-xml")

    def frames_so_far(self):
        """\\return the frames in the truth file so far; after the end of the camera, all"""
        if self.process.returncode is not None and not self.truth_path.exists():
            return self.truth_frames
        lines = self.truth_path.read_text().split("\n")[1:-1]
        return [json.loads(line) for line in lines]


class StandardCamera(Camera):
    """A camera with the defaults of camsim, which are those of the standards."""

    limits_options = ()


class Cameras(Camera):
    """Several cameras in one camsim process, at 127.0.0.2 and the following addresses."""

    def __init__(self, count, *arguments):
        super().__init__("--count", str(count), *arguments)
        self.addresses = [f"127.0.0.{2 + index}" for index in range(count)]
        self.truth_paths = [self.truth_path.with_name(f"{self.truth_path.name}.{address}") for address in self.addresses]

    def __enter__(self):
        super().__enter__()
        self.ready_lines = [self.ready_line, *(self.process.stdout.readline() for _ in self.addresses[1:])]
        return self

    def _read_truth(self):
        """Each camera has a truth file of its own, which tests read while the cameras run."""


class FaultyCamera(Camera):
    """A camera with a control socket, which starts and stops faults."""

    def __init__(self, *arguments, **options):
        super().__init__(*arguments, **options)
        self.control_path = str(pathlib.Path(self.directory.name) / "control")
        self.arguments += ("--control", self.control_path)

    def __enter__(self):
        super().__enter__()
        self.control = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.control.settimeout(DEADLINE_SECONDS)
        self.control.connect(self.control_path)  # it accepts connections before the camera is ready
        return self

    def __exit__(self, *exception):
        self.control.close()
        super().__exit__(*exception)

    def request(self, line):
        """Sends a request on the control socket, a line of TOML. \\return the response"""
        self.control.sendall(line.encode() + b"\n")
        answer = b""
        while not answer.endswith(b"\n"):
            part = self.control.recv(65536)
            assert part, "the control socket was closed"
            answer += part
        return tomllib.loads(answer.decode())

    def start_fault(self, kind, **parameters):
        """Starts a fault. \\return its number"""
        values = {"kind": kind, **parameters}
        return self.request(f"start = {{ {', '.join(f'{name} = {json.dumps(value)}' for name, value in values.items())} }}")["fault"]

    def stop_fault(self, number):
        """Stops a fault. \\return how often it was applied"""
        return self.request(f"stop = {json.dumps(number)}")["hits"]

    def hits(self, number):
        """\\return how often a fault has been applied so far"""
        return next(one["hits"] for one in self.request("list = true")["faults"] if one["fault"] == number)


class StandardFaultyCamera(FaultyCamera):
    """A FaultyCamera with the defaults of camsim."""

    limits_options = ()


def undisturbed_frames(truth, frames=10):
    """The exposed frames before which the camera dropped none for some frames. The chart moves on while a frame is dropped, so the next
    frames differ from those that automatic exposure and gain have measured."""
    dropped = {frame["frame"] for frame in truth if frame["outcome"] == "dropped"}
    return [frame for frame in truth
            if frame["outcome"] != "dropped" and dropped.isdisjoint(range(frame["frame"] - frames, frame["frame"]))]


def run(*command, timeout=60):
    """Runs a program, which must succeed. \\return its standard output"""
    done = subprocess.run(command, capture_output=True, text=True, timeout=timeout)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}: {done.stdout}{done.stderr}")
    return done.stdout


def arv_tool(*arguments):
    return run("arv-tool-0.8", *arguments)


def arv_control(*assignments):
    """\\return the output of `arv-tool control` without the first line, which names the camera"""
    return arv_tool("control", *assignments).splitlines()[1:]


def features(*names):
    """\\return the values of features, by name, as Aravis prints them, without units and limits"""
    lines = arv_control(*names)
    return {name: line.removeprefix(f"{name} = ").split(" ")[0] for name, line in zip(names, lines, strict=True)}


def feature(name):
    return features(name)[name]


def arv_grab(seconds, packet_size):
    """Grabs with Aravis. \\return its statistics, by name"""
    output = run("arv-camera-test-0.8", "-a", "--no-packet-socket", "-j", "never", "-i", str(packet_size),
                 f"--duration={seconds}")
    pairs = (line.split("=") for line in output.splitlines() if line.startswith("n_"))
    return {name.strip(): int(value) for name, value in pairs}
