# SPDX-License-Identifier: MIT
"""mediagrabber as a child process, and `mediagrabber run` with any plug-in.

The path of mediagrabber is in the environment variable MEDIAGRABBER.
"""

import json
import os
import pathlib
import subprocess
import tempfile
import threading

from waiting import DEADLINE_SECONDS, wait_for

MEDIAGRABBER = os.environ["MEDIAGRABBER"]


class MediagrabberProcess:
    """A command of mediagrabber. Leaving the context kills it if it still runs.

    `command` is the command line. `environment` is added to that of the test. `log` is the output so far.
    """

    def __init__(self, command, environment=None):
        self.command = list(map(str, command))
        self.environment = environment or {}
        self.log = ""

    def __enter__(self):
        self.process = subprocess.Popen(self.command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                        env={**os.environ, **self.environment})
        self.reader = threading.Thread(target=self._read)
        self.reader.start()
        return self

    def _read(self):
        for line in self.process.stdout:
            self.log += line

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self.reader.join()
        self.process.stdout.close()


class RecordingProcess(MediagrabberProcess):
    """One recording. Leaving the context kills a running process and deletes its files, except those in a given `output`.

    `prefix` is a command that runs mediagrabber, for example in another network namespace.
    `configuration_path` is the configuration file, which a test may overwrite before a reload.
    """

    def __init__(self, plugin, configuration, arguments, output=None, environment=None, prefix=()):
        self.directory = tempfile.TemporaryDirectory()
        root = pathlib.Path(self.directory.name)
        self.configuration_path = root / "run.toml"
        self.configuration_path.write_text(configuration)
        self.output = output or root / "frames"
        super().__init__([*prefix, MEDIAGRABBER, "run", "--plugin", plugin, "--config", self.configuration_path, "--output", self.output,
                          *arguments], environment)

    def __exit__(self, *arguments):
        super().__exit__(*arguments)
        self.directory.cleanup()

    def signal(self, number):
        self.process.send_signal(number)

    def finish(self, seconds=DEADLINE_SECONDS):
        """Waits until mediagrabber exits by itself. \\return its exit status"""
        status = self.process.wait(timeout=seconds)
        self.reader.join()
        return status

    def frame_index(self):
        """The complete lines of frames.jsonl so far, one object for each saved frame."""
        path = self.output / "frames.jsonl"
        return [json.loads(line) for line in path.read_text().split("\n")[:-1]] if path.exists() else []

    def wait_while_running(self, condition, what, seconds=DEADLINE_SECONDS):
        """Like wait_for(), but fails as soon as the process ends and the condition is false."""
        wait_for(lambda: condition() or self.process.poll() is not None, f"{what}; the log so far:\n{self.log}", seconds)
        if not condition():
            self.finish()
        if not condition():
            raise AssertionError(f"mediagrabber ended with {self.process.returncode} before {what}:\n{self.log}")

    def wait_for_log(self, text, times=1):
        """Waits until the text is in the log so often. Programs and threads write to it independently, so a test must wait for each
        text that it expects, and may check the order or the absence of texts only after finish()."""
        self.wait_while_running(lambda: self.log.count(text) >= times, f"\"{text}\" in the log, {times} time(s)")

    def wait_for_frames(self, count):
        self.wait_while_running(lambda: len(self.frame_index()) >= count, f"{count} saved frames")
