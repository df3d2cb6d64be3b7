# SPDX-License-Identifier: MIT
"""Commands on the network for 60 features, beside arv-tool."""

import pathlib
import random
import socket
import struct
import subprocess
import tempfile
import threading
import time
import unittest

from camera_process import Camera, arv_tool
from gevctl import GEVCTL, gevctl, gevctl_json

FEATURES = 60
READMEM, READREG, WRITEREG, WRITEMEM = 0x0084, 0x0080, 0x0082, 0x0086
XML_ADDRESS = 0x100000  # behind the registers of the features


class CommandCount:
    """Counts the commands to cameras on the loopback interface while the context is active, without those that read the GenICam XML."""

    def __enter__(self):
        self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x0800))
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 24)
        self.socket.bind(("lo", 0))
        self.socket.settimeout(0.05)
        self.reads = self.writes = 0
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self._run)
        self.thread.start()
        return self

    def __exit__(self, *_):
        time.sleep(0.1)  # packets that are in the socket
        self.ended.set()
        self.thread.join()
        self.socket.close()

    def _run(self):
        while not self.ended.is_set():
            try:
                frame, where = self.socket.recvfrom(2048)
            except TimeoutError:
                continue
            if where[2] != socket.PACKET_HOST or frame[23] != 17 or frame[36:38] != struct.pack(">H", 3956):
                continue
            command, address = struct.unpack(">HxxxxI", frame[44:54])
            self.reads += command in (READREG, READMEM) and address < XML_ADDRESS
            self.writes += command in (WRITEREG, WRITEMEM)


def timed(name, call):
    with CommandCount() as count:
        begin = time.monotonic()
        call()
        milliseconds = (time.monotonic() - begin) * 1000
    print(f"| {name} | {count.reads} | {count.writes} | {milliseconds:.0f} ms |")
    return count


class RoundTrips(unittest.TestCase):
    def test_are_bounded_for_60_features(self):
        with tempfile.TemporaryDirectory() as directory, Camera():
            readable = [one for one in gevctl_json("features", "127.0.0.1", "--visibility", "invisible") if "value" in one]
            names = [one["name"] for one in readable][:FEATURES]
            self.assertEqual(len(names), FEATURES)
            file = pathlib.Path(directory) / "camera.toml"
            lines = [line for line in gevctl("dump", "127.0.0.1", "--all").splitlines() if not line.startswith("#")]
            file.write_text("\n".join(lines))
            settings = sum(" = " in line for line in lines)
            print(f"\n{settings} settings in the file\n| | reads | writes | time |\n|---|---|---|---|")
            get = timed(f"`gevctl get`, {FEATURES} features", lambda: gevctl("get", "127.0.0.1", *names))
            timed(f"`arv-tool control`, {FEATURES} features", lambda: arv_tool("-a", "127.0.0.1", "control", *names))
            equal = timed("`gevctl apply`, nothing differs", lambda: gevctl("apply", "127.0.0.1", file))
            gevctl("user-set", "127.0.0.1", "load", "Default")
            writable = [one for one in readable if one["writable"] and one["type"] in ("integer", "boolean", "enumeration", "float")
                        and not one["name"].startswith(("GevSC", "GevCCP", "TLParams", "GevStream", "User")) and "selected_by" not in one]
            chosen = writable[:20]
            assignments = [f"{one['name']}={str(one['value']).lower() if one['type'] == 'boolean' else one['value']}" for one in chosen]
            written = timed(f"`gevctl set`, {len(chosen)} features", lambda: gevctl("set", "127.0.0.1", *assignments))
            timed(f"`arv-tool control`, {len(chosen)} features", lambda: arv_tool("-a", "127.0.0.1", "control", *assignments))
        # Control is taken and released for the tables of selectors.
        self.assertLess(equal.writes, 20)
        self.assertIn(get.reads, range(FEATURES, 2 * FEATURES))
        self.assertIn(equal.reads, range(settings, 5 * settings))
        self.assertIn(written.reads, range(len(chosen), 12 * len(chosen)))
        self.assertIn(written.writes, range(len(chosen), len(chosen) + 5))


if __name__ == "__main__":
    unittest.main()
