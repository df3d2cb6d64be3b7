# SPDX-License-Identifier: MIT
"""Packets on the loopback interface, decoded by Wireshark."""

import pathlib
import signal
import socket
import subprocess

from camera_process import DEADLINE_SECONDS, run, wait_for

# Display filter: what Wireshark objects to. The system may choose a port for an application that traceroute uses as well.
OBJECTIONS = "((_ws.expert and not udp.possible_traceroute) or _ws.malformed)"


class Capture:
    """Captures the loopback interface while its context is active."""

    def __init__(self, directory):
        self.path = pathlib.Path(directory) / "capture.pcapng"

    def __enter__(self):
        self.process = subprocess.Popen(["dumpcap", "-q", "-i", "lo", "-B", "64", "-w", str(self.path)],
                                        stderr=subprocess.PIPE, text=True)
        wait_for(lambda: self.path.exists() and self.path.stat().st_size > 0, "dumpcap")
        return self

    def __exit__(self, *_):
        self._wait_for_sent_packets()
        self.process.send_signal(signal.SIGINT)
        _, report = self.process.communicate(timeout=DEADLINE_SECONDS)
        assert self.process.returncode == 0, report

    def _wait_for_sent_packets(self):
        """dumpcap drops packets that it has not read when it ends, so this waits until it has read one that is sent last."""
        last = b"the last packet of this capture"
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            sender.sendto(last, ("127.0.0.1", 9))
        wait_for(lambda: last in self.path.read_bytes(), "the last packet in the capture")

    def fields(self, stream_port, display_filter, *names):
        """\\return fields of each packet that passes the filter; packets of `stream_port` are decoded as GVSP"""
        wanted = [word for name in names for word in ("-e", name)]
        output = run("tshark", "-r", str(self.path), "-d", f"udp.port=={stream_port},gvsp", "-Y", display_filter,
                     "-T", "fields", *wanted)
        return [line.split("\t") for line in output.splitlines()]
