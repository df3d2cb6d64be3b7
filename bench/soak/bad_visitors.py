# SPDX-License-Identifier: MIT
"""Clients and neighbours that misbehave, each kind in a thread of its own, while a recording runs.

They come from addresses of their own (127.0.1.1 and up), as strangers on a network do, so that limits per address are theirs. A visit
that is refused or cut off is a visit; what the recording must not do is stop, grow, lose frames silently, or keep others waiting.
"""

import array
import collections
import contextlib
import json
import os
import pathlib
import random
import socket
import struct
import threading
import time

PATIENCE_SECONDS = 5  # of a visitor that waits for something that does not come
PAUSE_SECONDS = 0.2   # between the visits of one visitor
GVCP_PORT = 3956
READ_REGISTER, WRITE_REGISTER, DISCOVERY = 0x0080, 0x0082, 0x0002
CONTROL_PRIVILEGE = 0x0A00


class BadVisitors:
    """`visits` counts by kind, `slowest_answer` is the longest time in seconds that a request on the control socket waited."""

    def __init__(self, page_port, control_path, ring_path, seed):
        self.page = ("127.0.0.1", page_port)
        self.control_path = str(control_path)
        self.ring_path = str(ring_path)
        self.visits = collections.Counter()
        self.errors = []
        self.slowest_answer = 0.0
        self._ended = threading.Event()
        kinds = (self.one_byte, self.slow_headers, self.reads_nothing, self.other_origin, self.random_bytes, self.large_header,
                 self.large_body, self.reset, self.silent_control, self.control_nonsense, self.control_refused, self.control_crowd,
                 self.ring_idler, self.ring_writer, self.stray_packets, self.second_controller)
        self._threads = [threading.Thread(target=self._visit, daemon=True, args=(kind, f"127.0.1.{number + 1}", random.Random(seed + number)))
                         for number, kind in enumerate(kinds)]
        self._threads.append(threading.Thread(target=self._ask, daemon=True))
        for thread in self._threads:
            thread.start()

    def end(self):
        self._ended.set()
        for thread in self._threads:
            thread.join()

    def _visit(self, kind, address, generator):
        os.sched_setscheduler(0, os.SCHED_IDLE, os.sched_param(0))  # they use other machines
        while not self._ended.is_set():
            try:
                kind(address, generator)
            except OSError:  # refused or cut off
                pass
            except Exception as error:  # reported by the soak test
                self.errors.append(f"{kind.__name__}: {error!r}")
                return
            self.visits[kind.__name__.replace("_", " ")] += 1
            self._ended.wait(PAUSE_SECONDS)

    def _ask(self):
        """Asks for the status as an operator does, once a second."""
        while not self._ended.is_set():
            begin = time.monotonic()
            try:
                with self._control(2 * PATIENCE_SECONDS) as client:
                    client.sendall(b'{"status": true}\n')
                    answer = client.makefile().readline()
                if json.loads(answer)["status"] != 0:
                    self.errors.append(f"status: {answer}")
            except (OSError, ValueError, KeyError) as error:
                if not self._ended.is_set():
                    self.errors.append(f"status: {error!r}")
            self.slowest_answer = max(self.slowest_answer, time.monotonic() - begin)
            self._ended.wait(1)

    # ---- Page

    def _client(self, address):
        return socket.create_connection(self.page, timeout=PATIENCE_SECONDS, source_address=(address, 0))

    def _request(self, address, request):
        with self._client(address) as client:
            client.sendall(request)
            return client.recv(65536)

    def one_byte(self, address, _):
        self._request(address, b"G")

    def slow_headers(self, address, _):
        with self._client(address) as client:
            for byte in b"GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n":
                client.sendall(bytes([byte]))
                if self._ended.wait(0.3):
                    return

    def reads_nothing(self, address, _):
        with socket.socket() as client:
            client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            client.settimeout(PATIENCE_SECONDS)
            client.bind((address, 0))
            client.connect(self.page)
            client.sendall(b"GET /frame.jpg HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n" * 50)
            self._ended.wait(PATIENCE_SECONDS)

    def other_origin(self, address, _):
        answer = self._request(address, b"POST /control/stop HTTP/1.1\r\nHost: 127.0.0.1\r\nOrigin: http://evil.example\r\n"
                                        b"Content-Type: application/json\r\nContent-Length: 2\r\n\r\n{}")
        if answer.startswith(b"HTTP/1.1 2"):
            raise RuntimeError("a stop from another origin was obeyed")

    def random_bytes(self, address, generator):
        self._request(address, generator.randbytes(generator.randint(1, 3000)) + b"\r\n\r\n")

    def large_header(self, address, _):
        self._request(address, b"GET / HTTP/1.1\r\nX: " + b"x" * 200_000 + b"\r\n\r\n")

    def large_body(self, address, _):
        self._request(address, b"POST /control/set HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 9999999999\r\n\r\n" + b"{" * 100_000)

    def reset(self, address, _):
        with self._client(address) as client:
            client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            client.sendall(b"GET /frame.jpg HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")

    # ---- Control socket

    def _control(self, seconds=PATIENCE_SECONDS):
        deadline = time.monotonic() + seconds
        while True:
            client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            client.settimeout(seconds)
            try:
                client.connect(self.control_path)
                return client
            except BlockingIOError:  # too many clients wait: the next ones are refused at once
                client.close()
                if time.monotonic() > deadline:
                    raise
                self._ended.wait(0.01)

    def silent_control(self, *_):
        with self._control():
            self._ended.wait(PATIENCE_SECONDS)

    def control_nonsense(self, _, generator):
        with self._control() as client:
            client.sendall(generator.randbytes(generator.randint(1, 300)) + b"\n" + b"[" * 10_000 + b"\n")
            client.recv(65536)

    def control_refused(self, _, generator):
        assignment = generator.choice(("gain.db = 1e9", "gain.dc = 1", "image.width = 1", "exposure.auto = 'Sometimes'", "= =", "\0"))
        with self._control() as client:
            client.sendall(json.dumps({"set": [assignment], "timeout_s": 1}).encode() + b"\n")
            client.recv(65536)

    def control_crowd(self, *_):
        with contextlib.ExitStack() as stack:
            for _ in range(20):
                stack.enter_context(self._control())

    # ---- Frame ring

    def _ring(self):
        client = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        client.settimeout(PATIENCE_SECONDS)
        client.connect(self.ring_path)
        return client

    def ring_idler(self, *_):
        with self._ring():
            self._ended.wait(PATIENCE_SECONDS)

    def ring_writer(self, *_):
        """Reopens the descriptors that it gets for writing, and makes the memory shorter."""
        with self._ring() as client:
            room = socket.CMSG_SPACE(16 * array.array("i").itemsize)
            _, ancillary, _, _ = client.recvmsg(4096, room)
            for _, _, data in ancillary:
                found = array.array("i")
                found.frombytes(data[:len(data) - len(data) % found.itemsize])
                for descriptor in found:
                    with contextlib.suppress(OSError):
                        again = os.open(f"/proc/self/fd/{descriptor}", os.O_RDWR)
                        with contextlib.suppress(OSError):
                            os.ftruncate(again, 0)
                        os.close(again)
                    os.close(descriptor)

    # ---- Camera network

    def stray_packets(self, address, generator):
        """Sends random packets, and acknowledges without a request, to each UDP port of this namespace but the camera's."""
        lines = pathlib.Path("/proc/net/udp").read_text().splitlines()[1:]
        ports = {int(line.split()[1].split(":")[1], 16) for line in lines} - {GVCP_PORT}
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
            client.bind((address, 0))
            for port in ports:
                for _ in range(20):
                    acknowledge = struct.pack(">HHHHI", 0, READ_REGISTER + 1, 4, generator.randrange(65536), 0x42F60000)
                    for packet in (acknowledge, generator.randbytes(generator.randint(1, 1400))):
                        with contextlib.suppress(OSError):  # a socket that was connected meanwhile refuses it
                            client.sendto(packet, ("127.0.0.1", port))

    def second_controller(self, address, generator):
        """Takes control of the camera that the recording controls. Between two runs of the plug-in it succeeds, and gives control back."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
            client.settimeout(1)
            client.bind((address, 0))
            for command, payload in ((DISCOVERY, b""), (WRITE_REGISTER, struct.pack(">II", CONTROL_PRIVILEGE, 2)),
                                     (WRITE_REGISTER, generator.randbytes(8 * generator.randint(1, 50))),
                                     (WRITE_REGISTER, struct.pack(">II", CONTROL_PRIVILEGE, 0))):
                client.sendto(struct.pack(">BBHHH", 0x42, 1, command, len(payload), generator.randrange(1, 65536)) + payload,
                              ("127.0.0.1", GVCP_PORT))
                client.recv(2048)
