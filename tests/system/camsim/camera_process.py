"""camsim as a child process, and the other programs that a test runs against it.

Paths come from the environment: CAMSIM, CAMSIM_STREAM_PROBE and CAMSIM_ARAVIS_CHUNKS. Tests run inside a network namespace of their own.
"""

import json
import os
import pathlib
import select
import signal
import socket
import subprocess
import tempfile
import time
import tomllib

CAMSIM = os.environ["CAMSIM"]
PROBE = os.environ["CAMSIM_STREAM_PROBE"]
ARAVIS_CHUNKS = os.environ["CAMSIM_ARAVIS_CHUNKS"]
DEADLINE_SECONDS = 20


class Camera:
    """Runs camsim from its ready line to SIGTERM; leaving the context fails when it does not end in good order."""

    def __init__(self, *arguments, end_signal=signal.SIGTERM):
        self.arguments = arguments
        self.end_signal = end_signal
        self.lost = False
        self.directory = tempfile.TemporaryDirectory()
        self.truth_path = pathlib.Path(self.directory.name) / "truth.jsonl"

    def __enter__(self):
        command = [CAMSIM, "--truth", str(self.truth_path), *self.arguments]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        ready, _, _ = select.select([self.process.stdout], [], [], DEADLINE_SECONDS)
        self.ready_line = self.process.stdout.readline() if ready else ""
        if not self.ready_line.startswith("camsim: ready, "):
            self.process.kill()
            raise AssertionError(f"camsim did not get ready: {self.process.communicate()[1]}")
        return self

    def lose(self):
        """Ends the camera without a word, as a pulled plug does."""
        self.lost = True
        self.process.kill()
        self.process.wait()

    def __exit__(self, kind, value, traceback):
        self.process.send_signal(self.end_signal)
        try:
            _, errors = self.process.communicate(timeout=DEADLINE_SECONDS)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise AssertionError("camsim did not end when asked to")
        lines = self.truth_path.read_text().splitlines()
        self.directory.cleanup()
        self.truth_header, *self.truth_frames = [json.loads(line) for line in lines]
        if kind is None and not self.lost and (self.process.returncode != 0 or errors):
            raise AssertionError(f"camsim ended with {self.process.returncode}: {errors}")

    def description(self):
        """The GenICam description of a camera with the same options."""
        return run(CAMSIM, *self.arguments, "--print-description")

    def frames_so_far(self):
        """The frames that the truth file tells of already."""
        lines = self.truth_path.read_text().split("\n")[1:-1]
        return [json.loads(line) for line in lines]


class FaultyCamera(Camera):
    """A camera whose faults are started and ended while it runs."""

    def __init__(self, *arguments, **options):
        super().__init__(*arguments, **options)
        self.control_path = str(pathlib.Path(self.directory.name) / "control")
        self.arguments += ("--control", self.control_path)

    def __enter__(self):
        super().__enter__()
        self.control = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.control.settimeout(DEADLINE_SECONDS)
        wait_for(lambda: self.control.connect_ex(self.control_path) == 0, "the control socket")
        return self

    def __exit__(self, *exception):
        self.control.close()
        super().__exit__(*exception)

    def ask(self, line):
        """The answer to a request, both a line of TOML."""
        self.control.sendall(line.encode() + b"\n")
        answer = b""
        while not answer.endswith(b"\n"):
            part = self.control.recv(65536)
            assert part, "the control socket was closed"
            answer += part
        return tomllib.loads(answer.decode())

    def start_fault(self, kind, **parameters):
        """Puts a fault into force. \\return its number"""
        values = {"kind": kind, **parameters}
        return self.ask(f"start = {{ {', '.join(f'{name} = {json.dumps(value)}' for name, value in values.items())} }}")["fault"]

    def stop_fault(self, number):
        """Ends a fault. \\return how often it struck"""
        return self.ask(f"stop = {json.dumps(number)}")["hits"]

    def hits(self, number):
        """How often a fault has struck so far."""
        return next(one["hits"] for one in self.ask("list = true")["faults"] if one["fault"] == number)


def wait_for(condition, what):
    """Waits until condition() holds and returns its value; fails when it does not come true."""
    deadline = time.monotonic() + DEADLINE_SECONDS
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(0.01)
    raise AssertionError(f"waited in vain for {what}")


def run(*command, timeout=60):
    """Standard output of a program that must succeed."""
    done = subprocess.run(command, capture_output=True, text=True, timeout=timeout)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}: {done.stdout}{done.stderr}")
    return done.stdout


def arv_tool(*arguments):
    return run("arv-tool-0.8", *arguments)


def arv_control(*assignments):
    """The answer lines of `arv-tool control`, without the one that names the camera."""
    return arv_tool("control", *assignments).splitlines()[1:]


def features(*names):
    """The values of features of the only camera, as Aravis prints them, without units and limits."""
    lines = arv_control(*names)
    return {name: line.removeprefix(f"{name} = ").split(" ")[0] for name, line in zip(names, lines, strict=True)}


def feature(name):
    return features(name)[name]


def arv_grab(seconds, packet_size):
    """Grabs with Aravis; its figures by name."""
    output = run("arv-camera-test-0.8", "-a", "--no-packet-socket", "-j", "never", "-i", str(packet_size),
                 f"--duration={seconds}")
    pairs = (line.split("=") for line in output.splitlines() if line.startswith("n_"))
    return {name.strip(): int(value) for name, value in pairs}
