"""`mediagrabber run` as a child process. The path of mediagrabber comes from the environment: MEDIAGRABBER."""

import json
import os
import pathlib
import subprocess
import tempfile
import threading
import time

MEDIAGRABBER = os.environ["MEDIAGRABBER"]
DEADLINE_SECONDS = 60


def wait_for(condition, what, seconds=DEADLINE_SECONDS):
    """Waits until condition() holds and returns its value; fails when it does not come true."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(0.005)
    raise AssertionError(f"waited in vain for {what}")


class RecordingProcess:
    """One recording, until it ends or the context is left. What it wrote is gone then, unless `output` is elsewhere."""

    def __init__(self, plugin, configuration, arguments, output=None, environment=None):
        self.plugin = plugin
        self.arguments = arguments
        self.environment = environment or {}
        self.directory = tempfile.TemporaryDirectory()
        root = pathlib.Path(self.directory.name)
        self.configuration_path = root / "run.toml"
        self.configuration_path.write_text(configuration)
        self.output = output or root / "frames"
        self.log = ""

    def __enter__(self):
        self.process = subprocess.Popen(
            [MEDIAGRABBER, "run", "--plugin", self.plugin, "--config", str(self.configuration_path), "--output",
             str(self.output), *map(str, self.arguments)],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, env={**os.environ, **self.environment})
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
        self.directory.cleanup()

    def signal(self, number):
        self.process.send_signal(number)

    def finish(self, seconds=DEADLINE_SECONDS):
        """Waits for the end that is mediagrabber's own. \\return its exit status"""
        status = self.process.wait(timeout=seconds)
        self.reader.join()
        return status

    def journal(self):
        """The frames that frames.jsonl tells of, so far."""
        path = self.output / "frames.jsonl"
        return [json.loads(line) for line in path.read_text().split("\n")[:-1]] if path.exists() else []

    def wait_while_running(self, condition, what, seconds=DEADLINE_SECONDS):
        """As wait_for; fails at once when the recording ended without it."""
        wait_for(lambda: condition() or self.process.poll() is not None, f"{what}; the log so far:\n{self.log}", seconds)
        if not condition():
            self.finish()
        if not condition():
            raise AssertionError(f"ended with {self.process.returncode} before {what}:\n{self.log}")

    def wait_for_log(self, text):
        self.wait_while_running(lambda: text in self.log, f"\"{text}\" was in the log")

    def wait_for_frames(self, count):
        self.wait_while_running(lambda: len(self.journal()) >= count, f"there were {count} frames")
