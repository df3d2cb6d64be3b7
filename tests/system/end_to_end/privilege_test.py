# SPDX-License-Identifier: MIT
"""camsim and mediagrabber need no capabilities, use one network only, and create files according to the umask.

The tests run without any capability, in a network namespace with a second network.
"""

import os
import pathlib
import re
import stat
import subprocess
import sys
import unittest

from camera_process import Camera
from recorder import Recording

CONFIGURATION = """
[image]
width = 320
height = 240
[transport]
packet_size_bytes = 1400
[timing]
frame_rate_hz = 100.0
[memory]
export_buffers = 200
"""
OTHER_NETWORK = "10.77.0.1"


def restart_without_privileges():
    """Creates a second network, drops all capabilities and executes this script again."""
    for command in ("link add other type veth peer name other_end", f"addr add {OTHER_NETWORK}/24 dev other",
                  "link set other up", "link set other_end up"):
        subprocess.run(["ip", *command.split()], check=True)
    os.execvp("setpriv", ["setpriv", "--no-new-privs", "--bounding-set=-all", "--inh-caps=-all", "--ambient-caps=-all",
                          sys.executable, *sys.argv])


def capabilities(process="self"):
    status = pathlib.Path(f"/proc/{process}/status").read_text()
    return int(re.search(r"^CapEff:\s*([0-9a-f]+)$", status, re.MULTILINE)[1], 16)


def addresses(process):
    """The local addresses of the UDP sockets of a process."""
    inodes = set()
    for descriptor in pathlib.Path(f"/proc/{process}/fd").iterdir():
        try:
            target = os.readlink(descriptor)
        except FileNotFoundError:
            continue  # closed meanwhile
        inodes.update(re.findall(r"^socket:\[(\d+)\]$", target))
    found = set()
    for line in pathlib.Path("/proc/net/udp").read_text().splitlines()[1:]:
        fields = line.split()
        if fields[9] in inodes:
            value = int(fields[1].split(":")[0], 16)
            found.add(".".join(str(value >> shift & 0xFF) for shift in (0, 8, 16, 24)))
    return found


class Capabilities(unittest.TestCase):
    def test_none_is_needed(self):
        self.assertEqual(capabilities(), 0)
        with Camera() as camera, Recording(CONFIGURATION, "--frames", "20") as recording:
            recording.wait_for_frames(1)
            self.assertEqual(capabilities(camera.process.pid), 0)
            self.assertEqual(recording.finish(), 0, recording.log)


class SocketBinding(unittest.TestCase):
    def test_is_limited_to_the_cameras_network(self):
        with Camera() as camera, Recording(CONFIGURATION) as recording:
            recording.wait_for_frames(5)
            self.assertEqual(addresses(recording.process.pid), {"127.0.0.1"})
            # The last two receive broadcasts, but not those of another network.
            self.assertEqual(addresses(camera.process.pid), {"127.0.0.1", "127.255.255.255", "255.255.255.255"})
            self.assertEqual(recording.stop(), 0, recording.log)


class FileModes(unittest.TestCase):
    def modes(self, umask):
        before = os.umask(umask)
        try:
            with Camera() as camera, Recording(CONFIGURATION, "--frames", "3") as recording:
                self.assertEqual(recording.finish(), 0, recording.log)
                files = [*recording.output.iterdir(), camera.truth_path]
                self.assertGreaterEqual(len(files), 5)
                return (stat.S_IMODE(recording.output.stat().st_mode),
                        {stat.S_IMODE(path.stat().st_mode) for path in files})
        finally:
            os.umask(before)

    def test_follow_the_umask(self):
        self.assertEqual(self.modes(0o022), (0o755, {0o644}))
        self.assertEqual(self.modes(0o007), (0o770, {0o660}))
        self.assertEqual(self.modes(0o077), (0o700, {0o600}))


if __name__ == "__main__":
    if capabilities() != 0:
        restart_without_privileges()
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
