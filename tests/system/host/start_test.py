# SPDX-License-Identifier: MIT
"""What the machine refuses at the start: another attempt may succeed, so the exit status is not that of a wrong configuration."""

import os
import pathlib
import re
import socket
import struct
import subprocess
import sys
import tempfile
import unittest

from file_system import file_system
from host_process import FAKE_PLUGIN, Recording, command
from waiting import wait_for
from web_client import get

SUCCESS, USAGE, UNAVAILABLE = 0, 2, 11
TOKEN = "0123456789abcdef0123"


def without_memory(library, copy):
    """Copies a library whose data segment needs more memory than any process may have."""
    data = bytearray(pathlib.Path(library).read_bytes())
    table, = struct.unpack_from("<Q", data, 32)
    size, count = struct.unpack_from("<HH", data, 54)
    load, writable, memory_size_at = 1, 2, 40
    for header in range(table, table + size * count, size):
        kind, flags = struct.unpack_from("<II", data, header)
        if kind == load and flags & writable:
            struct.pack_into("<Q", data, header + memory_size_at, 1 << 47)
    copy.write_bytes(data)


class Unavailable(unittest.TestCase):
    def expect(self, output, *words, configuration="", plugin=FAKE_PLUGIN, status=UNAVAILABLE):
        with Recording("grab", "--frames", 5, configuration=configuration, output=output, plugin=plugin) as recording:
            self.assertEqual(recording.finish(), status, recording.log)
            for text in words:
                self.assertIn(text, recording.log)
            self.assertNotIn("run 0", recording.log)

    def test_is_a_full_output(self):
        with file_system("nr_inodes=2") as disk:  # the root directory and one more
            self.expect(disk / "frames", "No space left on device")
            self.assertEqual(list(disk.iterdir()), [], "an attempt leaves a directory behind")

    def test_is_a_read_only_output(self):
        with file_system("ro") as disk:
            self.expect(disk / "frames", "Read-only file system")
            self.expect(disk / "frames", "Read-only file system", configuration="pretrigger.seconds = 1")

    def test_is_a_plugin_without_memory(self):
        with tempfile.TemporaryDirectory() as directory:
            plugin = pathlib.Path(directory) / "libplugin.so"
            without_memory(FAKE_PLUGIN, plugin)
            self.expect(None, "the plug-in cannot be loaded", plugin=str(plugin))

    def test_is_a_file_of_the_configuration_that_cannot_be_read(self):
        self.expect(None, ":2:12: tone.lut: /nowhere/lut.csv: cannot be opened", configuration='tone.lut = "/nowhere/lut.csv"')

    def test_is_a_control_socket_in_use_and_leaves_no_recording(self):
        with tempfile.TemporaryDirectory() as directory, socket.socket(socket.AF_UNIX) as other:
            path = pathlib.Path(directory) / "control"
            other.bind(str(path))
            other.listen(1)
            output = pathlib.Path(directory) / "frames"
            self.expect(output, "another mediagrabber listens there", configuration=f'control.socket = "{path}"')
            self.assertFalse(output.exists())

    def test_is_not_a_wrong_configuration(self):
        for configuration in ("image.width = 0", "[image", 'web.address = "0.0.0.0:80"', 'output.pipeline = "nosuchelement"'):
            with self.subTest(configuration):
                self.expect(None, configuration=configuration, status=USAGE)
        self.assertEqual(command("run", "--config", "/nowhere/run.toml").returncode, USAGE)

    def test_is_retried_by_the_service(self):
        """The unit names the statuses that prevent a restart."""
        unit = pathlib.Path(os.environ["SERVICE_UNIT"]).read_text()
        self.assertEqual(re.findall(r"(?m)^RestartPreventExitStatus=(.*)$", unit), [str(USAGE)])
        self.assertEqual(re.findall(r"(?m)^Restart=(.*)$", unit), ["on-failure"])


class WithoutItsPage(unittest.TestCase):
    """A recording does not depend on its page: it records, warns, and tries again to listen."""

    def expect_page(self, recording, address, port):
        def answer():
            try:
                return get(port, "/status.json", address)[0].status
            except OSError:
                return None
        recording.wait_for_log(f"live page: http://{address}:{port}/\n")
        self.assertIn(wait_for(answer, "the page"), (200, 401))

    def test_records_while_its_port_is_in_use(self):
        with socket.create_server(("127.0.0.1", 0)) as other:
            port = other.getsockname()[1]
            with Recording("grab", "--web", f"127.0.0.1:{port}") as recording:
                recording.wait_for_log("another program uses it: choose another port")
                recording.wait_for_frames(5)
                other.close()
                self.expect_page(recording, "127.0.0.1", port)
                self.assertEqual(recording.log.count("no live page yet"), 1, recording.log)

    def test_records_while_its_address_is_not_there(self):
        with tempfile.NamedTemporaryFile("w") as token:
            token.write(TOKEN)
            token.flush()
            with Recording("grab", "--web", "192.0.2.7:8080", "--web-token", token.name) as recording:
                recording.wait_for_log("use an address of this machine")
                recording.wait_for_frames(5)
                subprocess.run(["ip", "address", "add", "192.0.2.7/32", "dev", "lo"], check=True)
                self.expect_page(recording, "192.0.2.7", 8080)

    def test_records_while_its_token_cannot_be_read(self):
        with tempfile.TemporaryDirectory() as directory:
            token = pathlib.Path(directory) / "token"
            with Recording("grab", "--web", "127.0.0.1:8081", "--web-token", token) as recording:
                recording.wait_for_log(f"no live page yet: {token}: No such file or directory")
                recording.wait_for_frames(5)
                token.touch(0o600)
                token.write_text(TOKEN)
                self.expect_page(recording, "127.0.0.1", 8081)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
