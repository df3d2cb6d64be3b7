# SPDX-License-Identifier: MIT
"""mediagrabber as a child process, with a plug-in that follows a script.

Paths are in the environment variables MEDIAGRABBER, FAKE_PLUGIN, FAKE_PLUGIN_INCOMPLETE (without a required function) and
FAKE_PLUGIN_DEMANDING (needs a function that hosts do not have). The script language is documented in tests/support/fake_plugin.
"""

import os
import pathlib
import subprocess

from recording_process import MEDIAGRABBER, RecordingProcess
from waiting import DEADLINE_SECONDS

FAKE_PLUGIN = os.environ["FAKE_PLUGIN"]
INCOMPLETE = os.environ["FAKE_PLUGIN_INCOMPLETE"]
DEMANDING = os.environ["FAKE_PLUGIN_DEMANDING"]
# The first line of each configuration, so that no frame is dropped while the machine is busy.
LARGE_QUEUE = "memory.export_buffers = 512\n"


def command(*arguments, script="grab"):
    """Runs mediagrabber until it exits. \\return the finished process with its output as text"""
    return subprocess.run([MEDIAGRABBER, *map(str, arguments)], capture_output=True, text=True, timeout=DEADLINE_SECONDS,
                          env={**os.environ, "FAKE_PLUGIN_SCRIPT": script})


class Recording(RecordingProcess):
    """A recording with the scripted plug-in unless another one is given.

    `await GATE` in the script suspends frames until open_gate(), so that a test can act between two frames.
    """

    def __init__(self, script, *arguments, configuration="", output=None, plugin=FAKE_PLUGIN, environment=None):
        super().__init__(plugin, LARGE_QUEUE + configuration, arguments, output, environment)
        self.gate = pathlib.Path(self.directory.name) / "gate"
        self.environment = {"FAKE_PLUGIN_SCRIPT": script.replace("GATE", str(self.gate)), **self.environment}

    def open_gate(self):
        self.gate.touch()

    def configure(self, text):
        """Overwrites the configuration file. A reload signal must follow."""
        self.configuration_path.write_text(LARGE_QUEUE + text)

    def files(self):
        return {path.name for path in self.output.iterdir()}
