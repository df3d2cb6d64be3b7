# SPDX-License-Identifier: MIT
"""A GigE Vision camera in Python that does what a test lets it do, and the program that meets it."""

import contextlib
import os
import resource
import socket
import struct
import subprocess
import threading
import time

from gvcp import PORT, READMEM, READREG, WRITEMEM, WRITEREG

PROBE = os.environ["HOSTILE_PROBE"]
DISCOVERY = 0x0002
FIRST_URL, SECOND_URL = 0x0200, 0x0400
STREAM_SOURCE_PORT = 0x0D1C
XML_ADDRESS = 0x100000
WIDTH, SERIAL, OPERAND = 0x10000, 0x10010, 0x10040

XML = """<?xml version="1.0"?>
<RegisterDescription ModelName="m" VendorName="v" ToolTip="t" StandardNameSpace="None" SchemaMajorVersion="1"
 SchemaMinorVersion="1" SchemaSubMinorVersion="0" MajorVersion="1" MinorVersion="0" SubMinorVersion="0"
 ProductGuid="p" VersionGuid="v" xmlns="http://www.genicam.org/GenApi/Version_1_1">
<Category Name="Root"><pFeature>Width</pFeature></Category>
<Integer Name="Width"><pValue>WidthReg</pValue></Integer>
<IntReg Name="WidthReg"><Address>0x10000</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
 <Cachable>NoCache</Cachable><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>
<StringReg Name="DeviceSerialNumber"><Address>0x10010</Address><Length>16</Length><AccessMode>RO</AccessMode>
 <pPort>Device</pPort></StringReg>
<IntReg Name="Operand"><Address>0x10040</Address><Length>8</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
 <Cachable>NoCache</Cachable><Sign>Signed</Sign><Endianess>BigEndian</Endianess></IntReg>
{nodes}
<Port Name="Device"/>
</RegisterDescription>
"""


class HostileCamera:
    """Serves registers on 127.0.0.1. `on_command(number, request, payload, sender, answer)` may replace the answer: it returns
    False, or True after it has done what it wants. `answer` is the acknowledge that an honest camera would send.
    """

    def __init__(self, nodes="", xml=None, url=None, second_url="", on_command=None, identity="GO-5100M-PGE"):
        self.memory = {}
        self.lock = threading.Lock()
        self.commands = []
        self.on_command = on_command or (lambda *_: False)
        content = (xml if xml is not None else XML.format(nodes=nodes).encode())
        self.put(XML_ADDRESS, content)
        self.put(FIRST_URL, (url or f"Local:camera.xml;{XML_ADDRESS:X};{len(content):X}").encode().ljust(512, b"\0"))
        self.put(SECOND_URL, second_url.encode().ljust(512, b"\0"))
        self.put(0x0008, bytes.fromhex("0000001100112233"))
        self.put(0x0904, struct.pack(">I", 1))
        self.put(WIDTH, struct.pack(">I", 640))
        self.put(SERIAL, b"SERIAL".ljust(16, b"\0"))
        self.identity = identity

    def put(self, address, content):
        for offset, byte in enumerate(content):
            self.memory[address + offset] = byte

    def get(self, address, count):
        return bytes(self.memory.get(address + i, 0) for i in range(count))

    def __enter__(self):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind(("0.0.0.0", PORT))
        self.stopped = False
        self.thread = threading.Thread(target=self._serve)
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.stopped = True
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as wake:
            wake.sendto(b"", ("127.0.0.1", PORT))
        self.thread.join()
        self.socket.close()

    def _serve(self):
        while not self.stopped:
            datagram, sender = self.socket.recvfrom(2048)
            if len(datagram) < 8:
                continue
            _, _, number, _, request = struct.unpack(">BBHHH", datagram[:8])
            payload = datagram[8:]
            self.commands.append((number, request))
            answer = ack(0, number + 1, request, self.honest_payload(number, payload))
            if not self.on_command(number, request, payload, sender, answer):
                self.socket.sendto(answer, sender)

    def honest_payload(self, number, payload):
        if number == DISCOVERY:
            return discovery_payload(0x001100112233, self.identity)
        if number == READREG:
            return self.get(struct.unpack(">I", payload[:4])[0], 4)
        if number == READMEM:
            address, count = struct.unpack(">II", payload[:8])
            return payload[:4] + self.get(address, count & 0xFFFF)
        if number in (WRITEREG, WRITEMEM):
            self.put(struct.unpack(">I", payload[:4])[0], payload[4:])
            return struct.pack(">I", 1)
        return b""

    def requests(self, number=READREG):
        """\\return the request IDs of the commands so far"""
        return [request for code, request in self.commands if code == number]


def ack(status, number, request, payload=b""):
    return struct.pack(">HHHH", status, number, len(payload), request) + payload


def discovery_payload(mac, model, serial="S1"):
    def text(value, width):
        return (value if isinstance(value, bytes) else value.encode()).ljust(width, b"\0")[:width]
    payload = bytearray(248)
    payload[0x0A:0x10] = mac.to_bytes(6, "big")
    payload[0x48:0x68] = text("JAI Corporation", 32)
    payload[0x68:0x88] = text(model, 32)
    payload[0x88:0xA8] = text("1.0", 32)
    payload[0xD8:0xE8] = text(serial, 16)
    return bytes(payload)


class Outcome:
    """What the probe printed: `results` maps a name to (code, milliseconds, description), `values` a feature to its value."""

    def __init__(self, done):
        self.status = done.returncode
        self.output = done.stdout
        self.errors = done.stderr
        self.results, self.values = {}, {}
        for line in done.stdout.decode(errors="replace").split("\n"):
            name, _, rest = line.partition(": ")
            words = rest.split(" ", 4)
            if len(words) >= 4 and words[1] == "in" and words[3] == "ms":
                self.results[name] = (words[0], int(words[2]), words[4] if len(words) > 4 else "")
            elif " = " in line:
                name, _, value = line.partition(" = ")
                self.values[name] = value

    def code(self, name):
        return self.results[name][0]

    def milliseconds(self, name):
        return self.results[name][1]

    def description(self, name):
        return self.results[name][2]


MEMORY_LIMIT = None if os.environ["SANITIZE"] else 512 << 20  # sanitizers reserve terabytes of addresses


def probe(*arguments, timeout=60):
    """Runs the probe with a limit on its memory. \\return its Outcome; a negative status is the signal that ended it"""
    def limit_memory():
        if MEMORY_LIMIT is not None:
            resource.setrlimit(resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))
    return Outcome(subprocess.run([PROBE, *arguments], capture_output=True, timeout=timeout, preexec_fn=limit_memory))


class Flood:
    """Sends datagrams from a thread for as long as the context is active: those of `make(i)` to `target()`, in turn from `addresses`."""

    def __init__(self, make, target, addresses):
        self.make, self.target, self.addresses = make, target, addresses

    def __enter__(self):
        self.stopped = False
        self.sent = 0
        self.thread = threading.Thread(target=self._send)
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.stopped = True
        self.thread.join()

    def _send(self):
        with contextlib.ExitStack() as stack:
            senders = [stack.enter_context(socket.socket(socket.AF_INET, socket.SOCK_DGRAM)) for _ in self.addresses]
            for sender, address in zip(senders, self.addresses):
                sender.bind((address, 0))
            while not self.stopped:
                target = self.target()
                if target is None:
                    time.sleep(0.001)
                    continue
                senders[self.sent % len(senders)].sendto(self.make(self.sent), target)
                self.sent += 1
