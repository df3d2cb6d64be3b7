# SPDX-License-Identifier: MIT
"""Python imports this module at the start of each test. run_test.py describes why."""

import os
import pathlib
import subprocess
import uuid

SANITIZER_STATUS = 99
REPORTS = os.environ.get("SANITIZER_REPORTS")


UnwatchedPopen = subprocess.Popen


class WatchedPopen(subprocess.Popen):
    """A child process whose exit status is reported to run_test.py if a sanitizer set it."""

    _status = None

    @property
    def returncode(self):
        return self._status

    @returncode.setter
    def returncode(self, status):
        self._status = status
        if status == SANITIZER_STATUS:
            report = pathlib.Path(REPORTS) / f"status-{uuid.uuid4()}"
            report.write_text(f"a sanitizer ended this program with status {status}, see its standard error: {self.args}\n")


if REPORTS:
    subprocess.Popen = WatchedPopen
