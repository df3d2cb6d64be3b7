# SPDX-License-Identifier: MIT
"""Input from hostile cameras and from other machines on their network: no crash, no endless wait, no forged value."""

import contextlib
import io
import select
import signal
import socket
import struct
import subprocess
import threading
import time
import unittest
import zipfile

from gvcp import CCP, PENDING_ACK, READMEM, READREG
from hostile_camera import (DISCOVERY, OPERAND, PROBE, SERIAL, STREAM_SOURCE_PORT, WIDTH, XML, XML_ADDRESS, Flood,
                            HostileCamera, ack, discovery_payload, probe)
from recorder import Recording
from waiting import wait_for


class HostileTest(unittest.TestCase):
    def check_refused(self, outcome, *texts, seconds=3):
        """The connection is refused in time, with an error that names the reason, and the process ends by itself."""
        self.assertEqual(outcome.status, 0, outcome.errors)
        self.assertEqual(outcome.code("connect"), "GENERIC_ERROR", outcome.output)
        self.assertLess(outcome.milliseconds("connect"), seconds * 1000)
        for text in texts:
            self.assertIn(text, outcome.description("connect"))

    def check_reads(self, outcome, value="640"):
        self.assertEqual(outcome.status, 0, outcome.errors)
        self.assertEqual(outcome.code("connect"), "OK", outcome.output)
        self.assertEqual(outcome.values.get("Width"), value, outcome.output)


class HonestCamera(HostileTest):
    def test_is_connected_and_read(self):
        with HostileCamera():
            self.check_reads(probe("read", "Width"))


class DescriptionAddress(HostileTest):
    def test_with_a_wild_length_is_refused(self):
        with HostileCamera(url="Local:x.xml;100000;7FFFFFFFFFFFFFFF"):
            self.check_refused(probe("read"), "Local:x.xml;100000;7FFFFFFFFFFFFFFF", "16 MiB")

    def test_of_one_gibibyte_is_refused(self):
        with HostileCamera(url="Local:x.xml;100000;40000000"):
            self.check_refused(probe("read"), "16 MiB")

    def test_that_names_a_file_of_the_host_is_not_followed(self):
        for url in ("File:///dev/zero", "File:///etc/passwd", "/dev/zero", "file:camera.xml"):
            with self.subTest(url), HostileCamera(url=url):
                self.check_refused(probe("read"), url, "only \"Local:\"")

    def test_that_names_a_server_is_not_followed(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            with HostileCamera(url=f"http://127.0.0.1:{server.getsockname()[1]}/camera.xml"):
                self.check_refused(probe("read"), "only \"Local:\"")
            ready, _, _ = select.select([server], [], [], 0)
            self.assertEqual(ready, [], "the process connected to a server of the camera's choosing")

    def test_at_the_second_register_replaces_one_that_is_refused(self):
        content = XML.format(nodes="").encode()
        with HostileCamera(url="File:///dev/zero", second_url=f"Local:camera.xml;{XML_ADDRESS:X};{len(content):X}"):
            outcome = probe("read", "Width")
            self.check_reads(outcome)
            self.assertIn(b"File:///dev/zero", outcome.errors, "the reason is logged")

    def test_does_not_end_the_search_of_a_recording(self):
        configuration = "[run]\nretry_interval_s = 0.2\ngive_up_after = \"never\"\n[log]\nlevel = \"info\"\n"
        with HostileCamera(url="File:///dev/zero") as camera, Recording(configuration) as recording:
            recording.wait_while_running(lambda: len(camera.requests(DISCOVERY)) >= 6, "three searches")
            recording.signal(signal.SIGTERM)
            recording.finish()
            self.assertEqual(recording.process.returncode, 0, recording.log)
            self.assertIn("only \"Local:\"", recording.log)


class SlowDescription(HostileTest):
    def test_ends_after_ten_seconds_and_reports_progress(self):
        def delay(number, *_):
            if number == READMEM:
                time.sleep(0.02)
            return False
        with HostileCamera(url=f"Local:x.xml;{XML_ADDRESS:X};1000000", on_command=delay):
            outcome = probe("read")
            self.check_refused(outcome, "longer than 10 s", seconds=12)
            self.assertGreaterEqual(outcome.errors.count(b"reading the GenICam XML: "), 3)


def archive(**entries):
    memory = io.BytesIO()
    with zipfile.ZipFile(memory, "w", zipfile.ZIP_DEFLATED) as made:
        for name, content in entries.items():
            made.writestr(name.replace("_", "."), content)
    return bytearray(memory.getvalue())


class CompressedDescription(HostileTest):
    def camera(self, content):
        return HostileCamera(xml=bytes(content), url=f"Local:camera.zip;{XML_ADDRESS:X};{len(content):X}")

    def test_is_unpacked(self):
        with self.camera(archive(camera_xml=XML.format(nodes=""))):
            self.check_reads(probe("read", "Width"))

    def test_with_a_wild_offset_is_refused(self):
        for offset in (0x7FFFFFFF, 0xFFFFFFF0, 0x80000000):
            content = archive(camera_xml="<a/>")
            directory = content.index(b"PK\1\2")
            content[directory + 42:directory + 46] = struct.pack("<I", offset)  # of the local header
            with self.subTest(offset), self.camera(content):
                self.check_refused(probe("read"), "GenICam XML")

    def test_with_a_wild_directory_is_refused(self):
        content = archive(camera_xml="<a/>")
        end = content.index(b"PK\5\6")
        content[end + 16:end + 20] = struct.pack("<I", 0x7FFFFFFF)
        with self.camera(content):
            self.check_refused(probe("read"), "damaged")

    def test_that_announces_four_gigabytes_is_refused(self):
        content = archive(camera_xml="<a/>")
        directory = content.index(b"PK\1\2")
        content[22:26] = content[directory + 24:directory + 28] = struct.pack("<I", 0xFFFFFFF0)
        with self.camera(content):
            self.check_refused(probe("read"), "16 MiB")

    def test_that_expands_without_bound_is_refused(self):
        with self.camera(archive(camera_xml=b" " * (15 << 20))):
            self.check_refused(probe("read"), "ratio")

    def test_with_many_entries_is_refused(self):
        with self.camera(archive(**{f"a{i}_xml": "<a/>" for i in range(17)})):
            self.check_refused(probe("read"), "17 entries")


FORMULAS = {
    "Quotient": "(1&lt;&lt;63)/(0-1)",
    "Remainder": "(1&lt;&lt;63)%(0-1)",
    "ByZero": "1/0",
    "RemainderByZero": "1%0",
    "ShiftLeft": "1&lt;&lt;64",
    "ShiftNegative": "1&lt;&lt;(0-1)",
    "ShiftRight": "1&gt;&gt;1000",
    "Power": "2**100000",
    "PowerOfPower": "9**9**9**9",
    "RegisterQuotient": "(1&lt;&lt;63)/X",
    "RegisterRemainder": "(1&lt;&lt;63)%X",
    "RegisterShift": "1&lt;&lt;X",
    "RegisterPower": "X**X",
}


def formula_node(name, formula):
    return f"<IntSwissKnife Name=\"{name}\"><pVariable Name=\"X\">Operand</pVariable><Formula>{formula}</Formula></IntSwissKnife>"


class Formula(HostileTest):
    def test_has_a_result_or_an_error_whatever_it_calculates(self):
        nodes = "\n".join(formula_node(name, formula) for name, formula in FORMULAS.items())
        for operand in (-1, 0, 1, -2**63, 2**63 - 1):
            with self.subTest(operand), HostileCamera(nodes) as camera:
                camera.put(OPERAND, struct.pack(">q", operand))
                outcome = probe("read", *FORMULAS, "Width")
                self.assertEqual(outcome.status, 0, f"ended by a signal after {list(outcome.results)[-1]}: {outcome.errors}")
                self.check_reads(outcome)
                for name in FORMULAS:
                    self.assertIn(name, outcome.results)


class ForgedAcknowledge(HostileTest):
    def setUp(self):
        self.port = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.port.bind(("127.0.0.1", 0))
        self.address = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.address.bind(("127.0.0.2", 0))
        self.addCleanup(self.port.close)
        self.addCleanup(self.address.close)

    def forge(self, number, request, payload, sender, _):
        """Sends a forged value before the camera sends the true one, with the right request ID and with all others."""
        if number in (READREG, READMEM) and payload[:4] == struct.pack(">I", WIDTH):
            forged = struct.pack(">I", 666) if number == READREG else payload[:4] + struct.pack(">I", 666)
            for neighbour in (self.port, self.address):
                neighbour.sendto(ack(0, number + 1, request, forged), sender)
                for guess in range(request - 20, request + 20):
                    neighbour.sendto(ack(0, number + 1, guess & 0xFFFF, forged), sender)
        return False

    def test_from_another_address_or_port_is_dropped(self):
        with HostileCamera(on_command=self.forge):
            self.check_reads(probe("read", "Width"))

    def test_cannot_guess_the_first_request_id(self):
        first = set()
        for _ in range(5):
            with HostileCamera() as camera:
                self.check_reads(probe("read", "Width"))
                first.add(camera.requests(READREG)[0])
        self.assertGreater(len(first), 3, first)

    def test_of_no_request_or_another_request_is_dropped(self):
        def reply(number, request, payload, sender, answer):
            if number in (READREG, READMEM) and payload[:4] == struct.pack(">I", WIDTH):
                forged = struct.pack(">I", 666) if number == READREG else payload[:4] + struct.pack(">I", 666)
                for wrong in (request - 1, request + 1, request ^ 0x8000):
                    camera.socket.sendto(ack(0, number + 1, wrong & 0xFFFF, forged), sender)
            return False
        with HostileCamera(on_command=reply) as camera:
            self.check_reads(probe("read", "Width"))

    def test_that_waited_before_the_question_is_dropped(self):
        # Half a second before each heartbeat, an acknowledge for it arrives: control is lost.
        def reply(number, request, payload, sender, answer):
            if number != READREG or payload != struct.pack(">I", CCP):
                return False
            camera.socket.sendto(answer, sender)
            for ahead in (1, 2):
                camera.socket.sendto(ack(0, READREG + 1, (request + ahead) & 0xFFFF, bytes(4)), sender)
            heartbeats.append(request)
            return True
        heartbeats = []
        with HostileCamera(on_command=reply) as camera:
            with subprocess.Popen([PROBE, "stream"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL) as process:
                try:
                    wait_for(lambda: len(heartbeats) >= 5, "heartbeats: the connection is kept", seconds=15)
                finally:
                    process.communicate(b"", timeout=20)


class DiscoveryFlood(HostileTest):
    def search(self, *addresses):
        """\\return the number of cameras that a search finds while each address sends acknowledges"""
        target = []

        def remember(number, request, payload, sender, answer):
            if number == DISCOVERY:
                target.append((sender, request))
            return False

        def make(i):
            return ack(0, DISCOVERY + 1, target[-1][1], discovery_payload(i, "FLOOD", str(i)))

        with HostileCamera(on_command=remember):
            with Flood(make, lambda: target[-1][0] if target else None, addresses) as flood:
                outcome = probe("search")
        self.assertEqual(outcome.status, 0)
        self.assertEqual(outcome.code("search"), "OK")
        self.assertLess(outcome.milliseconds("search"), 1500)
        self.assertGreater(flood.sent, 1000)
        return outcome.output.decode().count("\ncamera: ")

    def test_of_one_sender_leaves_room_for_others(self):
        self.assertEqual(self.search("127.0.1.1"), 8 + 1)  # and the camera

    def test_of_many_senders_ends_in_time_with_a_bounded_list(self):
        self.assertEqual(self.search(*(f"127.0.1.{number}" for number in range(1, 65))), 256)


class PendingAck(HostileTest):
    def test_for_ever_ends_an_access_after_five_seconds(self):
        def postpone(number, request, payload, sender, answer):
            if number in (READREG, READMEM) and payload[:4] == struct.pack(">I", WIDTH):
                def announce():
                    while not ended.wait(0.2):
                        camera.socket.sendto(ack(0, PENDING_ACK, request, struct.pack(">HH", 0, 1000)), sender)
                announcements.append(threading.Thread(target=announce))
                announcements[-1].start()
                return True
            return False
        announcements, ended = [], threading.Event()
        with HostileCamera(on_command=postpone) as camera:
            outcome = probe("read", "Width", "DeviceSerialNumber")
            ended.set()
            for each in announcements:
                each.join()
            self.assertEqual(outcome.status, 0)
            self.assertEqual(outcome.code("Width"), "TIMEOUT", outcome.output)
            self.assertIn("PENDING_ACK", outcome.description("Width"))
            self.assertLess(outcome.milliseconds("Width"), 5500)
            self.assertGreater(outcome.milliseconds("Width"), 4000)
            self.assertEqual(outcome.values["DeviceSerialNumber"], "SERIAL", "the connection stays usable")


class StreamSocket(HostileTest):
    """The kernel has no socket for packets of others: it returns "port unreachable"."""

    @contextlib.contextmanager
    def open_stream(self, known_port):
        """Yields the camera's stream socket and the port of the process, and stops the process."""
        with HostileCamera() as camera, socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as stream:
            stream.bind(("127.0.0.1", 0))
            stream.setblocking(False)
            camera.put(STREAM_SOURCE_PORT, struct.pack(">I", stream.getsockname()[1] if known_port else 0))
            with subprocess.Popen([PROBE, "stream"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as process:
                lines = [process.stdout.readline()]
                while lines[-1] and not lines[-1].startswith("port: "):
                    lines.append(process.stdout.readline())
                self.assertTrue(lines[-1], lines)
                port = int(lines[-1].split()[1])
                stream.connect(("127.0.0.1", port))
                yield stream, port
                process.communicate("", timeout=20)

    def is_refused(self, port, address):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as neighbour:
            neighbour.bind((address, 0))
            neighbour.settimeout(0.2)
            neighbour.connect(("127.0.0.1", port))
            neighbour.send(b"x" * 1400)
            try:
                neighbour.recv(1)
            except ConnectionRefusedError:
                return True
            except TimeoutError:
                return False
        return False

    def test_does_not_take_packets_of_others(self):
        with self.open_stream(known_port=True) as (stream, port):
            self.assertTrue(self.is_refused(port, "127.0.0.1"))
            self.assertTrue(self.is_refused(port, "127.0.0.2"))
            stream.send(b"x" * 1400)
            with self.assertRaises(BlockingIOError, msg="packets of the camera are received"):
                stream.recv(1)

    def test_does_not_take_packets_of_others_after_the_first_of_a_camera_that_does_not_report_its_port(self):
        with self.open_stream(known_port=False) as (stream, port):
            self.assertFalse(self.is_refused(port, "127.0.0.2"), "it is not connected yet")
            stream.send(b"x" * 1400)
            wait_for(lambda: self.is_refused(port, "127.0.0.1"), "the connection of the socket")


class ControlCharacters(HostileTest):
    def check_printable(self, outcome):
        self.assertEqual(outcome.status, 0, outcome.errors)
        for name, text in (("output", outcome.output), ("errors", outcome.errors)):
            for line in text.split(b"\n"):
                self.assertTrue(line.decode().isprintable(), f"{name}: {line!r}")

    def test_of_the_identity_are_replaced(self):
        with HostileCamera(identity=b"GO\x1b[2J\n\x9b31m"):
            outcome = probe("search")
            self.check_printable(outcome)
            self.assertIn(b"GO?[2J??31m", outcome.output)

    def test_of_a_string_feature_are_replaced(self):
        with HostileCamera() as camera:
            camera.put(SERIAL, b"S\x1b[2J\nfake: OK\0")
            outcome = probe("read", "DeviceSerialNumber")
            self.check_printable(outcome)
            self.assertEqual(outcome.values["DeviceSerialNumber"], "S?[2J?fake: OK")

    def test_of_the_address_are_replaced(self):
        with HostileCamera(url="\x1b]0;x\x07\nopenpv: fake"):
            outcome = probe("read")
            self.check_printable(outcome)
            self.check_refused(outcome, "?]0;x??openpv: fake")

    def test_of_the_xml_are_replaced(self):
        node = ("<Enumeration Name=\"Mode\"><EnumEntry Name=\"A&#10;&#x9B;31m&#x1B;[2J\"><Value>0</Value></EnumEntry>"
                "<Value>0</Value></Enumeration><Integer Name=\"Broken\"><pValue>No\x1bSuch\nNode\u202e</pValue></Integer>")
        with HostileCamera(node):
            outcome = probe("read", "Mode", "Broken", "Width")
            self.check_printable(outcome)
            self.check_reads(outcome)
            self.assertEqual(outcome.code("Mode"), "OK")


if __name__ == "__main__":
    unittest.main()
