# SPDX-License-Identifier: MIT
"""A simulated camera in a network namespace of its own, which has only a loopback interface."""

import json
import os
import pathlib
import select
import subprocess
import tempfile
import types
from collections.abc import Sequence
from typing import Any

from ._configuration import Configuration
from .errors import CamsimError
from .recorder import Recorder

_DEADLINE_SECONDS = 30.0
_READY = "camsim: ready, "
_LIMITS = "--limits"


class Camsim:
    """Runs `camsim`. Cameras in different namespaces neither see each other nor the machine's network, so tests may run in parallel.

        with Camsim() as camera:
            with camera.recorder({"image.width": 640}, output="recording", frames=100) as recorder:
                recorder.wait()

    The kernel must permit user namespaces, or the program must run as root.
    """

    def __init__(self, *options: str, program: str | os.PathLike[str] = "camsim") -> None:
        """
        \\param options  of camsim. Without `--limits`, the limits of size and offset are independent, since mediagrabber sets a region
                         only in such a camera
        \\param program  path or name of camsim
        """
        self.options = [*options] if _LIMITS in options else [_LIMITS, "independent", *options]
        self.program = os.fspath(program)
        self._process: subprocess.Popen[str] | None = None
        self._namespaces: dict[str, int] = {}

    def start(self) -> "Camsim":
        """Starts the camera and waits until it is ready; in the same namespace, if it has run before.

        \\throws CamsimError
        """
        if self._process is not None:
            raise CamsimError("the camera is running already; stop it first")
        if not self._namespaces:
            self._temporary = tempfile.TemporaryDirectory(prefix="camsim-")
        self._errors = open(pathlib.Path(self._temporary.name) / "errors", "w+")
        camera = [self.program, "--truth", str(self.truth_path), *self.options]
        command = self.command(*camera) if self._namespaces else [
            "unshare", "--map-root-user", "--net", "sh", "-c", "ip link set lo up && exec \"$0\" \"$@\"", *camera]
        try:
            self._process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=self._errors, text=True)
        except OSError as error:
            self._errors.close()
            raise CamsimError(f"{command[0]} cannot be run: {error.strerror}; install the package util-linux") from error
        try:
            self._wait_until_ready(self._process)
            for kind in ("user", "net") if not self._namespaces else ():
                self._namespaces[kind] = os.open(f"/proc/{self._process.pid}/ns/{kind}", os.O_RDONLY | os.O_CLOEXEC)
        except BaseException:
            self.kill()
            raise
        return self

    def stop(self) -> None:
        """Stops the camera; it can be started again. \\throws CamsimError if it had failed"""
        process = self._running()
        process.terminate()
        try:
            process.wait(_DEADLINE_SECONDS)
        except subprocess.TimeoutExpired:
            self.kill()
            raise CamsimError(f"the camera did not end within {_DEADLINE_SECONDS} s and was killed") from None
        errors = self._ended()
        if process.returncode != 0:
            raise CamsimError(f"the camera ended with status {process.returncode}: {errors}", process.returncode, errors)

    def kill(self) -> None:
        """Ends the camera as unplugging it does; it can be started again."""
        process = self._running()
        process.kill()
        process.wait()
        self._ended()

    def close(self) -> None:
        """Ends the namespace and deletes the truth file."""
        for descriptor in self._namespaces.values():
            os.close(descriptor)
        self._namespaces = {}
        self._temporary.cleanup()

    def __enter__(self) -> "Camsim":
        return self.start()

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None, trace: types.TracebackType | None) -> None:
        try:
            if self._process is not None:
                self.stop()
        finally:
            self.close()

    @property
    def truth_path(self) -> pathlib.Path:
        return pathlib.Path(self._temporary.name) / "truth.jsonl"

    def truth(self) -> list[dict[str, Any]]:
        """The frames that the camera has exposed so far, as the manual's page on the truth file describes them."""
        lines = self.truth_path.read_text().split("\n")[1:-1]  # without the header and an incomplete line
        return [json.loads(line) for line in lines]

    def command(self, *arguments: str) -> list[str]:
        """The command that runs a program in the camera's namespace, for subprocess.run()."""
        if not self._namespaces:
            raise CamsimError("the camera has no namespace yet; start it first")
        paths = {kind: f"/proc/{os.getpid()}/fd/{descriptor}" for kind, descriptor in self._namespaces.items()}
        return ["nsenter", f"--user={paths['user']}", f"--net={paths['net']}", "--preserve-credentials", "--", *arguments]

    def recorder(self, configuration: Configuration | str | os.PathLike[str], *, output: str | os.PathLike[str] | None = None,
                 frames: int | None = None, arguments: Sequence[str] = (), program: str | os.PathLike[str] = "mediagrabber",
                 start_timeout: float = 30.0) -> Recorder:
        """A Recorder in the camera's namespace, with the same parameters. It is not started yet."""
        return Recorder(configuration, output=output, frames=frames, arguments=arguments, program=program, prefix=self.command(),
                        start_timeout=start_timeout)

    def _running(self) -> subprocess.Popen[str]:
        if self._process is None:
            raise CamsimError("the camera is not running; call start()")
        return self._process

    def _wait_until_ready(self, process: subprocess.Popen[str]) -> None:
        assert process.stdout is not None
        ready, _, _ = select.select([process.stdout], [], [], _DEADLINE_SECONDS)
        line = process.stdout.readline() if ready else ""
        if line.startswith(_READY):
            return
        if not line and ready:
            process.wait()  # it has closed its output, so it ends
        self._errors.seek(0)
        errors = self._errors.read().strip()
        advice = "; permit user namespaces (sysctl kernel.unprivileged_userns_clone=1), or run as root" if "unshare failed" in errors else \
            f"; install {self.program}, or name its path in `program`" if "not found" in errors else ""
        raise CamsimError(f"the camera did not become ready: {errors or line or 'no message'}{advice}", process.poll(), errors)

    def _ended(self) -> str:
        """\\return the messages of the process that has ended"""
        process = self._running()
        self._process = None
        assert process.stdout is not None
        process.stdout.close()
        self._errors.seek(0)
        errors = self._errors.read().strip()
        self._errors.close()
        return errors
