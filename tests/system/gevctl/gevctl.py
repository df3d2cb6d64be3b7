# SPDX-License-Identifier: MIT
"""Runs gevctl, and cameras that it finds."""

import contextlib
import json
import os
import socket
import struct
import subprocess
import threading

GEVCTL = os.environ["GEVCTL"]
SUCCESS, DIFFERS, USAGE, NO_CAMERA, CONTROLLED, REFUSED, LOST, INCOMPLETE, OUTPUT = range(9)


def gevctl(*arguments, status=SUCCESS, timeout=60):
    """Runs gevctl, which must end with the status. \\return its standard output, and with a failure also its standard error"""
    done = subprocess.run([GEVCTL, *map(str, arguments)], capture_output=True, text=True, timeout=timeout)
    if done.returncode != status:
        raise AssertionError(f"gevctl {arguments} ended with {done.returncode}: {done.stdout}{done.stderr}")
    return done.stdout + done.stderr if status else done.stdout


def gevctl_json(*arguments):
    return json.loads(gevctl(*arguments, "--json"))


def get(*names, camera="127.0.0.1"):
    """\\return the values as gevctl prints them"""
    lines = gevctl("get", camera, *names).splitlines()
    return [line.split("=", 1)[1] for line in lines]


DISCOVERY, DISCOVERY_ACK = 2, 3


def identity(mac, address, serial="X1", model="Stranger"):
    """The payload of a discovery acknowledge, written from the layout of the standard."""
    data = bytearray(248)
    struct.pack_into(">HH", data, 0, 2, 0)
    data[10:16] = mac.to_bytes(6, "big")
    struct.pack_into(">I", data, 20, 4)
    data[36:40] = socket.inet_aton(address)
    data[52:56] = socket.inet_aton("255.255.255.0")
    data[0x68:0x68 + len(model)] = model.encode()
    data[0xD8:0xD8 + len(serial)] = serial.encode()
    return bytes(data)


@contextlib.contextmanager
def discovery_responder(respond):
    """Calls respond(socket, request ID, flags, sender) for each discovery that is broadcast."""
    listener = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
    listener.bind(("255.255.255.255", 3956))
    listener.settimeout(0.05)
    sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sender.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
    ended = threading.Event()

    def run():
        while not ended.is_set():
            try:
                datagram, source = listener.recvfrom(2048)
            except TimeoutError:
                continue
            _, flags, command, _, identifier = struct.unpack(">BBHHH", datagram[:8])
            if command == DISCOVERY:
                respond(sender, identifier, flags, source)

    thread = threading.Thread(target=run)
    thread.start()
    try:
        yield
    finally:
        ended.set()
        thread.join()
        listener.close()
        sender.close()


def acknowledge(identifier, payload, status=0, number=DISCOVERY_ACK):
    return struct.pack(">HHHH", status, number, len(payload), identifier) + payload
