"""mediagrabber as a child process, with the plug-in that follows a script.

Paths come from the environment: MEDIAGRABBER, and FAKE_PLUGIN with its two unusable brothers. What scripts are made of stands in
tests/support/fake_plugin.
"""

import os
import subprocess

from recording_process import DEADLINE_SECONDS, MEDIAGRABBER, RecordingProcess, wait_for

FAKE_PLUGIN = os.environ["FAKE_PLUGIN"]
INCOMPLETE = os.environ["FAKE_PLUGIN_INCOMPLETE"]
DEMANDING = os.environ["FAKE_PLUGIN_DEMANDING"]
# The first line of every configuration here: no frame is lost because the machine has other things to do.
PATIENCE = "memory.export_buffers = 512\n"


def command(*arguments, script="grab"):
    """Runs mediagrabber to its end. \\return the finished process, its output as text"""
    return subprocess.run([MEDIAGRABBER, *map(str, arguments)], capture_output=True, text=True, timeout=DEADLINE_SECONDS,
                          env={**os.environ, "FAKE_PLUGIN_SCRIPT": script})


class Recording(RecordingProcess):
    """With the scripted plug-in or another one."""

    def __init__(self, script, *arguments, configuration="", output=None, plugin=FAKE_PLUGIN, environment=None):
        super().__init__(plugin, PATIENCE + configuration, arguments, output,
                         {"FAKE_PLUGIN_SCRIPT": script, **(environment or {})})

    def configure(self, text):
        self.configuration_path.write_text(PATIENCE + text)

    def files(self):
        return {path.name for path in self.output.iterdir()}
