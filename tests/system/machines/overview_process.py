# SPDX-License-Identifier: MIT
"""`mediagrabber overview` as a child process, and another machine: a network namespace behind a pair of virtual interfaces."""

import http.server
import json
import os
import re
import signal
import subprocess
import threading

from camera_process import Camera
from recorder import Recording
from recording_process import MEDIAGRABBER, MediagrabberProcess
from waiting import wait_for
from web_client import get


class Overview(MediagrabberProcess):
    """A running overview."""

    def __init__(self, runtime, *arguments):
        super().__init__([MEDIAGRABBER, "overview", "--web", "127.0.0.1:0", *arguments], {"XDG_RUNTIME_DIR": str(runtime)})

    def __enter__(self):
        super().__enter__()
        wait_for(lambda: "overview: http://" in self.log or self.process.poll() is not None, "the overview")
        self.port = int(re.search(r"overview: http://127.0.0.1:(\d+)/", self.log)[1])
        self.page = f"http://127.0.0.1:{self.port}/"
        return self

    def stop(self):
        """\\return the exit status"""
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(60)

    def get(self, path):
        return get(self.port, path)

    def recordings(self):
        return json.loads(self.get("/overview.json")[1])["recordings"]

    def by_link(self, link):
        """\\return the recording whose live page has this address"""
        return next(one for one in self.recordings() if one["link"] and one["link"].rstrip("/") == link.rstrip("/"))

    def images_of(self):
        """\\return the names of the recordings that have an image"""
        return {one["summary"]["name"] for one in self.recordings() if one["image"] > 0}


class ScriptedPage:
    """An HTTP server at 127.0.0.1 instead of a live page.

    \\param answers  pairs of type and body by path, without the query
    \\param tls      context of an HTTPS server; null: HTTP
    """

    def __init__(self, answers, tls=None):
        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                kind, body = answers[self.path.split("?")[0]]
                self.send_response(200)
                self.send_header("Content-Type", kind)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            def log_message(self, *_):
                pass

        class Server(http.server.ThreadingHTTPServer):
            def handle_error(self, *_):
                """A client that refuses the certificate is no error of the test."""

        self.server = Server(("127.0.0.1", 0), Handler)
        if tls is not None:
            self.server.socket = tls.wrap_socket(self.server.socket, server_side=True)
        self.url = f"{'https' if tls else 'http'}://127.0.0.1:{self.server.server_port}"

    def __enter__(self):
        self.thread = threading.Thread(target=self.server.serve_forever)
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.server.shutdown()
        self.thread.join()
        self.server.server_close()


class AnotherMachine:
    """Its address, with cameras and recordings that run there. Nobody has the unused address."""

    address = "10.77.0.12"
    unused_address = "10.77.0.13"

    def __enter__(self):
        self.process = subprocess.Popen(["unshare", "--net", "sleep", "infinity"])
        own = os.readlink("/proc/self/ns/net")
        wait_for(lambda: os.readlink(f"/proc/{self.process.pid}/ns/net") != own, "the other machine")
        self.enter = ["nsenter", "--target", str(self.process.pid), "--net"]
        for command in (["ip", "link", "add", "other", "type", "veth", "peer", "name", "eth0", "netns", str(self.process.pid)],
                        ["ip", "address", "add", "10.77.0.1/24", "dev", "other"], ["ip", "link", "set", "other", "up"],
                        [*self.enter, "ip", "link", "set", "lo", "up"], [*self.enter, "ip", "link", "set", "eth0", "up"],
                        [*self.enter, "ip", "address", "add", f"{self.address}/24", "dev", "eth0"]):
            subprocess.run(command, check=True)
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()

    def camera(self, *arguments):
        return Camera(*arguments, prefix=self.enter)

    def recording(self, configuration, *arguments, **options):
        return Recording(configuration, *arguments, prefix=self.enter, **options)
