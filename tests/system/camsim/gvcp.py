"""A GVCP application in Python, written from the layout of the standard and independent of camsim's own encoders."""

import socket
import struct

PORT = 3956
READREG, WRITEREG, READMEM, WRITEMEM, PACKETRESEND = 0x0080, 0x0082, 0x0084, 0x0086, 0x0040
PENDING_ACK = 0x0089

SUCCESS, ACCESS_DENIED, INVALID_HEADER = 0x0000, 0x8006, 0x800E
NOT_IMPLEMENTED, INVALID_ADDRESS, WRITE_PROTECT, BAD_ALIGNMENT = 0x8001, 0x8003, 0x8004, 0x8005
PACKET_RESEND, PACKET_UNAVAILABLE = 0x0100, 0x800C

HEARTBEAT_TIMEOUT, GVCP_CONFIGURATION, GVSP_CONFIGURATION = 0x0938, 0x0954, 0x0960
CCP, PRIMARY_PORT, PRIMARY_ADDRESS = 0x0A00, 0x0A04, 0x0A14
HOST_PORT, PACKET_SIZE, PACKET_DELAY = 0x0D00, 0x0D04, 0x0D08
DESTINATION, STREAM_CONFIGURATION = 0x0D18, 0x0D24
EXCLUSIVE, CONTROL = 1, 2

LEADER, TRAILER, PAYLOAD = 1, 2, 3


class Application:
    """One application's control channel."""

    def __init__(self, camera="127.0.0.1"):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.settimeout(2)
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
        """Status, acknowledge number, ID and payload of the next acknowledge."""
        datagram = self.socket.recv(2048)
        status, number, length, identifier = struct.unpack(">HHHH", datagram[:8])
        assert length == len(datagram) - 8
        return status, number, identifier, datagram[8:]

    def ask(self, command, payload):
        """Status and payload of the acknowledge to a command, however often it is announced as pending."""
        self.send(command, payload)
        status, number, identifier, answer = self.receive()
        while number == PENDING_ACK:
            status, number, identifier, answer = self.receive()
        assert (number, identifier) == (command + 1, self.next_id)
        return status, answer

    def read(self, *addresses):
        status, answer = self.ask(READREG, struct.pack(f">{len(addresses)}I", *addresses))
        return status, struct.unpack(f">{len(answer) // 4}I", answer)

    def write(self, address, value):
        return self.ask(WRITEREG, struct.pack(">II", address, value))[0]

    def take_control(self, privilege=CONTROL):
        return self.write(CCP, privilege)

    def ask_again(self, block, first, last, extended=False):
        if extended:
            self.send(PACKETRESEND, struct.pack(">HHIIQ", 0, 0, first, last, block), flags=0x10)
        else:
            self.send(PACKETRESEND, struct.pack(">HHII", 0, block, first, last), flags=0)


class Stream:
    """The receiving end of a stream channel."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 24)
        self.socket.bind(("127.0.0.1", 0))
        self.socket.settimeout(2)
        self.port = self.socket.getsockname()[1]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def open(self, application):
        assert application.write(DESTINATION, 0x7F000001) == SUCCESS
        assert application.write(HOST_PORT, self.port) == SUCCESS

    def packet(self):
        """The next packet: a dictionary of its header, and its payload."""
        data = self.socket.recv(65536)
        status, block, word = struct.unpack(">HHI", data[:8])
        header = {"status": status, "block": block, "format": word >> 24 & 0xF, "packet": word & 0xFFFFFF, "flags": 0}
        if not word >> 31:
            return header, data[8:]
        header["flags"] = block
        header["block"], header["packet"] = struct.unpack(">QI", data[8:20])
        return header, data[20:]

    def block(self):
        """The packets of one whole block, by packet ID, beginning with the next leader."""
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
        """Drops what has arrived already."""
        self.socket.setblocking(False)
        try:
            while True:
                self.socket.recv(65536)
        except BlockingIOError:
            self.socket.settimeout(2)

    def is_silent(self):
        """Whether nothing is there, and nothing comes for a while that is long against the frame period."""
        self.socket.settimeout(0.5)
        try:
            self.socket.recv(65536)
            return False
        except TimeoutError:
            return True
        finally:
            self.socket.settimeout(2)


def feature_addresses(camsim_description):
    """Addresses of features' registers, from the description's text."""
    import xml.etree.ElementTree as tree
    space = "{http://www.genicam.org/GenApi/Version_1_1}"
    root = tree.fromstring(camsim_description)
    nodes = {node.get("Name"): node for node in root}
    addresses = {}
    for name, node in nodes.items():
        value = node.find(space + "pValue")
        target = nodes.get(value.text) if value is not None else None
        if target is not None and target.find(space + "Address") is not None:
            addresses[name] = int(target.find(space + "Address").text, 0)
    return addresses
