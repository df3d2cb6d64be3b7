# SPDX-License-Identifier: MIT
"""An MQTT broker on the loopback interface, subscribers, and certificates.

Paths are in the environment variables MOSQUITTO, MOSQUITTO_SUB and OPENSSL.
"""

import json
import os
import pathlib
import socket
import subprocess
import threading

from waiting import wait_for

MOSQUITTO = os.environ["MOSQUITTO"]
MOSQUITTO_SUB = os.environ["MOSQUITTO_SUB"]
OPENSSL = os.environ["OPENSSL"]
PORT = 1883


class Broker:
    """mosquitto. It may be stopped and started again; retained messages are not kept."""

    def __init__(self, directory, listener=f"listener {PORT} 127.0.0.1\nallow_anonymous true\n"):
        self.configuration = pathlib.Path(directory) / "mosquitto.conf"
        self.configuration.write_text(f"persistence false\nlog_dest stderr\nlog_type all\nuser root\n{listener}")
        self.log = ""

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()

    def start(self):
        self.process = subprocess.Popen([MOSQUITTO, "-c", str(self.configuration)], stderr=subprocess.PIPE, text=True)
        self.reader = threading.Thread(target=self._read)
        self.reader.start()
        wait_for(self._accepts_connections, "the broker")

    def _read(self):
        for line in self.process.stderr:
            self.log += line

    def _accepts_connections(self):
        assert self.process.poll() is None, self.log
        with socket.socket() as client:
            return client.connect_ex(("127.0.0.1", PORT)) == 0

    def stop(self):
        """Kills the broker."""
        self.process.kill()
        self.process.wait()
        self.reader.join()
        self.process.stderr.close()


class Subscriber:
    """Collects the messages of a topic from the time when the context is entered."""

    def __init__(self, topic, *options):
        self.topic = topic
        self.options = options
        self.messages = []  # pairs of topic and text

    def __enter__(self):
        self.process = subprocess.Popen(
            ["stdbuf", "-oL", MOSQUITTO_SUB, "-h", "127.0.0.1", "-p", str(PORT), "-q", "1", "-t", self.topic, "-d", "-F", "%t %p",
             *self.options], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.subscribed = False
        self.reader = threading.Thread(target=self._read)
        self.reader.start()
        wait_for(lambda: self.subscribed, "a subscription")
        return self

    def _read(self):
        prefix = self.topic.split("#")[0]
        for line in self.process.stdout:
            self.subscribed = self.subscribed or "Subscribed (" in line
            if line.startswith(prefix):
                self.messages.append(tuple(line.rstrip("\n").split(" ", 1)))

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.reader.join()
        self.process.stdout.close()

    def of(self, topic):
        """The messages of one topic, as text."""
        return [text for name, text in list(self.messages) if name == topic]

    def json_of(self, topic):
        """The messages of one topic, as objects."""
        return [json.loads(text) for text in self.of(topic)]


def openssl(*arguments):
    subprocess.run([OPENSSL, *map(str, arguments)], check=True, capture_output=True)


class Authority:
    """A certificate authority. Its certificates are valid for one day."""

    def __init__(self, directory, name):
        self.directory = pathlib.Path(directory)
        self.name = name
        self.certificate = self.directory / f"{name}.pem"
        self.key = self.directory / f"{name}.key"
        openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", 1,
                "-subj", f"/CN={name}", "-keyout", self.key, "-out", self.certificate)

    def issue(self, name, alternative):
        """\\return the paths of a certificate for `alternative`, for example "IP:127.0.0.1", and of its key"""
        key, request, certificate = (self.directory / f"{name}.{kind}" for kind in ("key", "csr", "pem"))
        extensions = self.directory / f"{name}.ext"
        extensions.write_text(f"subjectAltName={alternative}\n")
        openssl("req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                "-subj", f"/CN={name}", "-keyout", key, "-out", request)
        openssl("x509", "-req", "-days", 1, "-in", request, "-CA", self.certificate, "-CAkey", self.key,
                "-CAcreateserial", "-extfile", extensions, "-out", certificate)
        return certificate, key
