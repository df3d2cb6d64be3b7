# SPDX-License-Identifier: MIT
"""Exceptions of this package. Each message names what is wrong, where, and what to do."""

import os
import pathlib


class MediagrabberError(Exception):
    """Base of all exceptions that this package raises by itself."""


class RecordingError(MediagrabberError):
    """A recording or one of its frames cannot be read.

    `path` is the file or directory, `problem` what is wrong with it, and `advice` what to do.
    """

    def __init__(self, path: str | os.PathLike[str], problem: str, advice: str) -> None:
        super().__init__(f"{os.fspath(path)}: {problem}; {advice}")
        self.path = pathlib.Path(path)
        self.problem = problem
        self.advice = advice

    def __reduce__(self) -> tuple[type["RecordingError"], tuple[str, str, str]]:
        """Makes the exception travel between processes."""
        return type(self), (str(self.path), self.problem, self.advice)


class RingError(MediagrabberError):
    """Frames in shared memory cannot be read."""


class ProgramError(MediagrabberError):
    """A program could not be started or failed. `status` is its exit status, None without one; `log` is its output."""

    def __init__(self, message: str, status: int | None = None, log: str = "") -> None:
        super().__init__(message)
        self.status = status
        self.log = log


class RecorderError(ProgramError):
    """`mediagrabber run` could not start, ended unexpectedly, or refused a request."""


class CamsimError(ProgramError):
    """The simulated camera or its network namespace could not be started, or failed."""
