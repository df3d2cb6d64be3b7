# SPDX-License-Identifier: MIT
"""Thousands of changes over the control socket need no more memory than some hundred."""

import json
import os
import pathlib
import signal
import socket
import sys
import unittest

from host_process import Recording

SUCCESS = 0
FIRST_CHANGES = 300  # until buffers, caches and the heap have their size
MORE_CHANGES = 1200
# A change that is never released costs 1 kB.
MAX_BYTES_PER_CHANGE = 200
CONFIGURATION = "gain.auto = \"Off\"\noutput.format = \"none\"\n"


class Changes(unittest.TestCase):
    def change(self, path, number):
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(30)
            connection.connect(str(path))
            connection.sendall(json.dumps({"set": [f"gain.db={number % 40 / 10}"], "timeout_s": 30}).encode() + b"\n")
            answer = json.loads(connection.makefile("rb").readline())
        self.assertEqual(answer["status"], SUCCESS, answer)

    def test_need_no_more_memory(self):
        path = pathlib.Path(os.environ["XDG_RUNTIME_DIR"]) / "control"
        with Recording("grab", configuration=f"control.socket = \"{path}\"\n" + CONFIGURATION) as recording:
            recording.wait_for_frames(1)
            statm = pathlib.Path(f"/proc/{recording.process.pid}/statm")
            resident = lambda: int(statm.read_text().split()[1]) * os.sysconf("SC_PAGE_SIZE")
            for number in range(FIRST_CHANGES):
                self.change(path, number)
            before = resident()
            for number in range(MORE_CHANGES):
                self.change(path, number)
            growth = (resident() - before) / MORE_CHANGES
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), SUCCESS, recording.log[-4000:])
        print(f"{growth:.0f} bytes per change", flush=True)
        self.assertLess(growth, MAX_BYTES_PER_CHANGE)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
