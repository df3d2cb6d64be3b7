"""mediagrabber with the plug-in, as a child process that records from camsim.

Paths come from the environment: MEDIAGRABBER, MGJAI and VERIFY_RECORDING.
"""

import os
import signal
import struct
import subprocess

from recording_process import RecordingProcess

MGJAI = os.environ["MGJAI"]
VERIFY_RECORDING = os.environ["VERIFY_RECORDING"]


class Recording(RecordingProcess):
    """With libmgjai.so."""

    def __init__(self, configuration, *arguments, **where):
        super().__init__(MGJAI, configuration, arguments, **where)

    def stop(self):
        """Ends the run as an operator does. \return the exit status"""
        self.signal(signal.SIGTERM)
        return self.finish()

    def pixels(self, line):
        """The pixels of a frame of 8 bits, by its line in the journal."""
        data = (self.output / line["file"]).read_bytes()
        directory, = struct.unpack_from("<I", data, 4)
        count, = struct.unpack_from("<H", data, directory)
        entries = (struct.unpack_from("<HHII", data, directory + 2 + 12 * i) for i in range(count))
        tags = {tag: value & 0xFFFF if kind == 3 else value for tag, kind, values, value in entries if values == 1}
        begin, size = tags[273], tags[279]  # the only strip's place and bytes
        assert size == line["width"] * line["height"], "not one strip of 8-bit pixels"
        return data[begin:begin + size]

    def compare(self, truth_path, *options):
        """What the judge says of the recording: its exit status and its words."""
        judged = subprocess.run([VERIFY_RECORDING, *options, str(self.output), str(truth_path)],
                                capture_output=True, text=True, timeout=120)
        return judged.returncode, judged.stdout + judged.stderr
