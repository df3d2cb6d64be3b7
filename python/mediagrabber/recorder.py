# SPDX-License-Identifier: MIT
"""A recording as a child process."""

import dataclasses
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import tempfile
import threading
import time
import types
from collections.abc import Mapping, Sequence
from typing import Any

from ._configuration import Configuration, flattened, toml_text, toml_value
from .errors import RecorderError

EXIT_STATUSES = {
    0: "everything requested was recorded",
    1: "frames were lost: the plug-in exported frames that were not saved, or fewer frames than requested",
    2: "could not start: the command line or the configuration is invalid",
    3: "the plug-in found no camera, or not the configured one",
    4: "the plug-in failed",
    5: "the plug-in did not return in time after a stop; the frames received until then are on disk",
    6: "no running mediagrabber was found",
    7: "the value cannot be changed while recording",
    8: "the value was not applied in time",
    9: "the value was applied, but the camera reports another one",
    11: "the machine refuses something at present: the plug-in, the output directory or a socket; a later attempt may succeed",
}
_POLL_SECONDS = 0.02
_ANSWER_SECONDS = 5.0  # for a response, beyond the time limit of a change
_MAX_REASON_LINES = 10
_SENDER = r"(?m)^mediagrabber(?:\[.*?\])?: "  # with camera.name
_CONTROL_SOCKET = re.compile(_SENDER + r"info: control socket for `mediagrabber set`: (.*)$")
_DIRECTORY = re.compile(_SENDER + r"info: recording (?:.*? )?to (.*) with plug-in ")
_SUMMARY = re.compile(r"(\d+) frames (?:saved|buffered, (\d+) of them saved).*, ([\d.]+) s, ")
_DROPPED = re.compile(r"dropped: (\d+) \(queue full\), (\d+) \(write errors\)")


def meaning_of(status: int) -> str:
    """What an exit status of mediagrabber says."""
    if status < 0:
        return f"it was ended by {signal.Signals(-status).name}"
    return EXIT_STATUSES.get(status, "unknown exit status")


@dataclasses.dataclass(frozen=True)
class Summary:
    """How a recording ended. Counts are None if the program ended without them."""

    status: int  # exit status
    meaning: str  # of the status
    saved: int | None  # frames
    dropped_queue_full: int | None  # frames
    dropped_write_error: int | None  # frames
    text: str  # of the program

    @property
    def is_complete(self) -> bool:
        """Whether everything requested was recorded."""
        return self.status == 0


class Recorder:
    """Runs `mediagrabber run`. As a context, it starts with the context and is stopped at its end:

        with Recorder({"output.format": "raw"}, output="recording") as recorder:
            recorder.set("gain.db", 6)
            recorder.status()["counts"]["saved"]
            summary = recorder.stop()

    Leaving the context without stop() or wait() raises RecorderError if the recording was not complete.
    """

    def __init__(self, configuration: Configuration | str | os.PathLike[str], *, output: str | os.PathLike[str] | None = None,
                 frames: int | None = None, arguments: Sequence[str] = (), program: str | os.PathLike[str] = "mediagrabber",
                 prefix: Sequence[str] = (), start_timeout: float = 30.0) -> None:
        """
        \\param configuration  values, nested or with the keys of the manual ({"gain.db": 6}), or the path of a file
        \\param output  directory of the recording, instead of output.directory
        \\param frames  after which the recording ends by itself
        \\param arguments  further ones of `mediagrabber run`
        \\param program  path or name of mediagrabber
        \\param prefix  command that runs the program, for example in a network namespace
        \\param start_timeout  seconds within which the first frame must arrive
        """
        self.configuration = configuration
        self.start_timeout = start_timeout
        self._command = [*prefix, os.fspath(program), "run", "--config", ""]
        self._config_at = len(self._command) - 1
        if output is not None:
            self._command += ["--output", os.fspath(output)]
        if frames is not None:
            self._command += ["--frames", str(frames)]
        self._command += arguments
        self._process: subprocess.Popen[str] | None = None
        self._is_reported = False  # its end, to the caller
        self._log = ""
        self._directory: pathlib.Path | None = None

    # ---- start and end

    def start(self) -> "Recorder":
        """Starts the recording and waits for its first frame.

        \\throws RecorderError with the program's message if it ends before, or no frame arrives within `start_timeout`
        """
        if self._process is not None:
            raise RecorderError("the recording was started already; make another Recorder")
        self._temporary = tempfile.TemporaryDirectory(prefix="mediagrabber-")
        self._command[self._config_at] = str(self._configuration_file(pathlib.Path(self._temporary.name)))
        try:
            self._process = subprocess.Popen(self._command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                             text=True, errors="replace")
        except OSError as error:
            self._temporary.cleanup()
            raise RecorderError(f"{self._command[0]} cannot be run: {error.strerror}; install mediagrabber, or name its path in"
                                " `program`") from error
        self._reader = threading.Thread(target=self._read_log, args=(self._process,), daemon=True)
        self._reader.start()
        try:
            self._wait_for_first_frame()
        except BaseException:
            self._kill()
            raise
        return self

    def stop(self, timeout: float = 60.0) -> Summary:
        """Stops the recording: the camera's chunk settings are restored, and frames that wait are written. Does nothing if it has
        ended.

        \\param timeout  seconds, after which the process is killed and RecorderError is raised
        """
        if self._started().poll() is None:
            self._started().send_signal(signal.SIGTERM)
        return self.wait(timeout)

    def wait(self, timeout: float | None = None) -> Summary:
        """Waits until the recording ends by itself, or is stopped by another program.

        \\throws RecorderError if it is still running after `timeout` seconds; it is killed then
        """
        process = self._started()
        try:
            process.wait(timeout)
        except subprocess.TimeoutExpired:
            self._kill()
            raise RecorderError(f"the recording did not end within {timeout} s and was killed; the frames until then are on disk",
                                None, self._log) from None
        self._reader.join()
        self._temporary.cleanup()
        self._is_reported = True
        return self._summary(process.returncode)

    def __enter__(self) -> "Recorder":
        return self.start()

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None, trace: types.TracebackType | None) -> None:
        if self._is_reported:
            return
        summary = self.stop()
        if kind is None and not summary.is_complete:
            raise self._failed("the recording was not complete", summary.status)

    # ---- while it runs

    @property
    def log(self) -> str:
        """What the program has printed so far."""
        return self._log

    @property
    def is_running(self) -> bool:
        return self._process is not None and self._process.poll() is None

    @property
    def process_id(self) -> int:
        return self._started().pid

    @property
    def directory(self) -> pathlib.Path:
        """Where the recording is; with segments, the first one."""
        if self._directory is None and (found := _DIRECTORY.search(self._log)):
            self._directory = pathlib.Path(found[1])
        if self._directory is None:
            raise RecorderError("the recording has not named its directory yet; call start() first", None, self._log)
        return self._directory

    @property
    def control_socket(self) -> pathlib.Path:
        """The socket on which the recording serves requests."""
        found = self._control_socket()
        if found is None:
            raise RecorderError("the recording has no control socket; remove control.socket from its configuration", None, self._log)
        return found

    def status(self) -> dict[str, Any]:
        """What the recording does, as `mediagrabber status --json` prints it: state, counts, rates, newest frame and more."""
        result = self._ask({"status": True}).get("result")
        if not isinstance(result, dict):
            raise RecorderError("the recording does not know its status; install packages of one release", None, self._log)
        return result

    def set(self, key: str, value: object, *, restart: bool = False, timeout: float = 5.0) -> None:
        """Changes a value, for example set("gain.db", 6). Returns when a frame has arrived with it.

        \\param restart  also accept keys that need a restart of the acquisition
        \\param timeout  seconds to wait for the camera
        \\throws RecorderError if it is refused, or the camera has another value
        """
        self.set_all({key: value}, restart=restart, timeout=timeout)

    def set_all(self, values: Configuration, *, restart: bool = False, timeout: float = 5.0) -> None:
        """Changes several values, all or none. See set()."""
        settings = [f"{key}={toml_value(value)}" for key, value in flattened(values).items()]
        self._ask({"set": settings, "timeout_s": timeout, "restart": restart}, timeout)

    def signal(self, request: str, event: str | None = None) -> None:
        """Sends a request of `mediagrabber signal`: "trigger", "reload", "lut" or "lut12".

        \\param event  of a trigger: time and name of the event, "20261121T173318.123Z-door", which becomes the directory's name
        """
        self._ask({"signal": request} | ({} if event is None else {"event": event}))

    # ---- details

    def _started(self) -> subprocess.Popen[str]:
        if self._process is None:
            raise RecorderError("the recording has not been started; call start()")
        return self._process

    def _configuration_file(self, directory: pathlib.Path) -> pathlib.Path:
        if not isinstance(self.configuration, Mapping):
            return pathlib.Path(self.configuration)
        values = flattened(self.configuration)
        # Several recordings of a program must not compete for the default path.
        values.setdefault("control.socket", str(directory / "control"))
        file = directory / "run.toml"
        file.write_text(toml_text(values))
        return file

    def _read_log(self, process: subprocess.Popen[str]) -> None:
        assert process.stdout is not None
        for line in process.stdout:
            self._log += line
        process.stdout.close()

    def _wait_for_first_frame(self) -> None:
        process = self._started()
        deadline = time.monotonic() + self.start_timeout
        while not self._has_frame():
            if process.poll() is not None:
                self._reader.join()
                if self._summary(process.returncode).saved:
                    return  # it was shorter than a look at its status
                raise self._failed("the recording could not start", process.returncode)
            if time.monotonic() > deadline:
                what = "no frame arrived" if self._control_socket() else "the recording had no control socket (control.socket)"
                raise self._failed(f"{what} within {self.start_timeout} s", None)
            time.sleep(_POLL_SECONDS)

    def _has_frame(self) -> bool:
        if self._control_socket() is None:
            return False
        try:
            status = self.status()
        except RecorderError as error:
            if error.status is not None:  # an answer: a request that the program does not know
                raise
            return False
        self._directory = pathlib.Path(status["directory"])
        return status["newest"] is not None

    def _control_socket(self) -> pathlib.Path | None:
        found = _CONTROL_SOCKET.search(self._log)
        return pathlib.Path(found[1]) if found else None

    def _ask(self, request: dict[str, Any], timeout: float = 0.0) -> dict[str, Any]:
        """Sends a request on the control socket. \\return the answer, of status 0"""
        path = self.control_socket
        try:
            with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
                connection.settimeout(_ANSWER_SECONDS + timeout)
                connection.connect(str(path))
                connection.sendall(json.dumps(request).encode() + b"\n")
                with connection.makefile("rb") as answers:
                    line = answers.readline()
        except OSError as error:
            raise RecorderError(f"{path}: the recording does not answer ({error}); see its log", None, self._log) from error
        if not line:
            raise RecorderError(f"{path}: the recording does not answer: it has ended, or serves another user; see its log", None,
                                self._log)
        answer: dict[str, Any] = json.loads(line)
        if answer["status"] != 0:
            raise RecorderError(f"{meaning_of(answer['status'])}: {'; '.join(answer['lines'])}", answer["status"], self._log)
        return answer

    def _kill(self) -> None:
        process = self._started()
        process.kill()
        process.wait()
        self._reader.join()
        self._temporary.cleanup()

    def _failed(self, what: str, status: int | None) -> RecorderError:
        """With the program's own message: its lines that are no information."""
        lines = re.sub(_SENDER + "(?:info: .*\n)?", "", self._log).splitlines()
        ending = "" if status is None else f" (status {status}: {meaning_of(status)})"
        reason = "\n".join(lines[-_MAX_REASON_LINES:]) or "the program printed no message"
        return RecorderError(f"{what}{ending}: {reason}", status, self._log)

    def _summary(self, status: int) -> Summary:
        counts = [*_SUMMARY.finditer(self._log)][-1:]
        dropped = [*_DROPPED.finditer(self._log)][-1:]
        lines = [line for line in self._log.splitlines() if counts and counts[0][0] in line or dropped and dropped[0][0] in line]
        return Summary(
            status=status, meaning=meaning_of(status),
            saved=int(counts[0][2] or counts[0][1]) if counts else None,
            dropped_queue_full=int(dropped[0][1]) if dropped else None,
            dropped_write_error=int(dropped[0][2]) if dropped else None,
            text=re.sub(_SENDER + "info: ", "", "\n".join(lines)))
