# SPDX-License-Identifier: MIT
"""A GVCP application and GVSP receiver in Python, written from the packet layouts of the standard and independent of camsim's encoders."""

import socket
import struct

DEADLINE_SECONDS = 20  # for packets that must arrive
NO_ACKNOWLEDGE_SECONDS = 2  # hundreds of round trips
MANY_SECONDS = 60  # a heartbeat timeout that a busy machine does not exceed
PORT = 3956
READREG, WRITEREG, READMEM, WRITEMEM, PACKETRESEND = 0x0080, 0x0082, 0x0084, 0x0086, 0x0040
PENDING_ACK = 0x0089
FORCEIP, ACTION = 0x0004, 0x0100

SUCCESS, ACCESS_DENIED, INVALID_HEADER = 0x0000, 0x8006, 0x800E
NOT_IMPLEMENTED, INVALID_PARAMETER, INVALID_ADDRESS, WRITE_PROTECT, BAD_ALIGNMENT = 0x8001, 0x8002, 0x8003, 0x8004, 0x8005
PACKET_RESEND, PACKET_UNAVAILABLE = 0x0100, 0x800C

GVCP_CAPABILITY, HEARTBEAT_TIMEOUT, GVCP_CONFIGURATION, GVSP_CONFIGURATION = 0x0934, 0x0938, 0x0954, 0x0960
CCP, PRIMARY_PORT, PRIMARY_ADDRESS = 0x0A00, 0x0A04, 0x0A14
HOST_PORT, PACKET_SIZE, PACKET_DELAY = 0x0D00, 0x0D04, 0x0D08
DESTINATION, SOURCE_PORT, STREAM_CAPABILITY, STREAM_CONFIGURATION = 0x0D18, 0x0D1C, 0x0D20, 0x0D24
ACTION_DEVICE_KEY, ACTION_GROUP_KEY, ACTION_GROUP_MASK = 0x090C, 0x9800, 0x9804
EXCLUSIVE, CONTROL = 1, 2

LEADER, TRAILER, PAYLOAD = 1, 2, 3


class Application:
    """The control channel of one application."""

    def __init__(self, camera="127.0.0.1"):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.settimeout(DEADLINE_SECONDS)
        self.socket.connect((camera, PORT))
        self.next_id = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, command, payload, flags=1):
        self.next_id = self.next_id % 0xFFFF + 1
        self.socket.send(struct.pack(">BBHHH", 0x42, flags, command, len(payload), self.next_id) + payload)

    def receive(self):
        """\\return status, acknowledge number, ID and payload of the next acknowledge"""
        datagram = self.socket.recv(2048)
        status, number, length, identifier = struct.unpack(">HHHH", datagram[:8])
        assert length == len(datagram) - 8
        return status, number, identifier, datagram[8:]

    def execute(self, command, payload):
        """Sends a command and skips PENDING_ACKs. \\return status and payload of its acknowledge"""
        self.send(command, payload)
        status, number, identifier, data = self.receive()
        while number == PENDING_ACK:
            status, number, identifier, data = self.receive()
        assert (number, identifier) == (command + 1, self.next_id)
        return status, data

    def read(self, *addresses):
        status, data = self.execute(READREG, struct.pack(f">{len(addresses)}I", *addresses))
        return status, struct.unpack(f">{len(data) // 4}I", data)

    def write(self, address, value):
        return self.execute(WRITEREG, struct.pack(">II", address, value))[0]

    def gets_no_acknowledge(self):
        """Whether a read is not acknowledged for many round trips."""
        self.socket.settimeout(NO_ACKNOWLEDGE_SECONDS)
        try:
            self.read(CCP)
            return False
        except TimeoutError:
            return True
        finally:
            self.socket.settimeout(DEADLINE_SECONDS)

    def take_control(self, privilege=CONTROL):
        """Takes control with a long heartbeat timeout. \\return the status of the first write"""
        status = self.write(CCP, privilege)
        if status == SUCCESS:
            assert self.write(HEARTBEAT_TIMEOUT, MANY_SECONDS * 1000) == SUCCESS
        return status

    def request_resend(self, block, first, last, extended=False):
        if extended:
            self.send(PACKETRESEND, struct.pack(">HHIIQ", 0, 0, first, last, block), flags=0x10)
        else:
            self.send(PACKETRESEND, struct.pack(">HHII", 0, block, first, last), flags=0)


class Stream:
    """Receives a stream channel."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 24)
        self.socket.bind(("127.0.0.1", 0))
        self.socket.settimeout(DEADLINE_SECONDS)
        self.port = self.socket.getsockname()[1]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def open(self, application):
        assert application.write(DESTINATION, 0x7F000001) == SUCCESS
        assert application.write(HOST_PORT, self.port) == SUCCESS

    def packet(self):
        """\\return header (a dictionary) and payload of the next packet"""
        data = self.socket.recv(65536)
        status, block, word = struct.unpack(">HHI", data[:8])
        header = {"status": status, "block": block, "format": word >> 24 & 0xF, "packet": word & 0xFFFFFF, "flags": 0}
        if not word >> 31:
            return header, data[8:]
        header["flags"] = block
        header["block"], header["packet"] = struct.unpack(">QI", data[8:20])
        return header, data[20:]

    def block(self):
        """\\return ID and packets, by packet ID, of the block that starts with the next leader"""
        header, payload = self.packet()
        while header["format"] != LEADER:
            header, payload = self.packet()
        number, packets = header["block"], {0: (header, payload)}
        while header["format"] != TRAILER:
            header, payload = self.packet()
            assert header["block"] == number
            packets[header["packet"]] = (header, payload)
        assert sorted(packets) == list(range(len(packets)))
        return number, packets

    def drain(self):
        """Drops all packets that have arrived."""
        self.socket.setblocking(False)
        try:
            while True:
                self.socket.recv(65536)
        except BlockingIOError:
            self.socket.settimeout(DEADLINE_SECONDS)

    def is_silent(self):
        """Whether no packet arrives for 0.5 s, many frame periods."""
        self.socket.settimeout(0.5)
        try:
            self.socket.recv(65536)
            return False
        except TimeoutError:
            return True
        finally:
            self.socket.settimeout(DEADLINE_SECONDS)


def timestamp(packets):
    """\\return the timestamp of a block, in ticks, from its leader"""
    return struct.unpack_from(">Q", packets[0][1], 4)[0]


def feature_addresses(genicam_xml):
    """\\return the register addresses of features, by name"""
    import xml.etree.ElementTree as tree
    space = "{http://www.genicam.org/GenApi/Version_1_1}"
    root = tree.fromstring(genicam_xml)
    nodes = {node.get("Name"): node for node in root}
    addresses = {}
    for name, node in nodes.items():
        value = node.find(space + "pValue")
        target = nodes.get(value.text) if value is not None else None
        if target is not None and target.find(space + "Address") is not None:
            addresses[name] = int(target.find(space + "Address").text, 0)
    return addresses
