# SPDX-License-Identifier: MIT
"""The live page behind nginx, with the configuration in examples/nginx."""

import http.client
import os
import pathlib
import re
import socket
import ssl
import subprocess
import sys
import tempfile
import unittest
import urllib.parse

from host_process import Recording
from waiting import DEADLINE_SECONDS, wait_for

SUCCESS = 0
TOKEN = "0123456789abcdef0123"
NAME = "camera.example"
PORT = 8443
ORIGIN = f"https://{NAME}:{PORT}"
FORM = "application/x-www-form-urlencoded"
SERVER = """
user root;
daemon off;
pid {directory}/pid;
error_log stderr;
events {{}}
http {{
    access_log off;
    client_body_temp_path {directory}/body;
    proxy_temp_path {directory}/proxy;
    fastcgi_temp_path {directory}/fastcgi;
    uwsgi_temp_path {directory}/uwsgi;
    scgi_temp_path {directory}/scgi;
    include {directory}/example.conf;
}}
"""


class Connection(http.client.HTTPSConnection):
    """Connects to this machine under the name of the certificate."""

    def connect(self):
        self.sock = self._context.wrap_socket(socket.create_connection(("127.0.0.1", PORT)), server_hostname=NAME)


class Proxy:
    """nginx with a certificate of its own, in front of a page."""

    def __init__(self, page_port):
        self.directory = tempfile.TemporaryDirectory()
        root = pathlib.Path(self.directory.name)
        self.certificate, key = root / "certificate.pem", root / "key.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", str(key), "-out", str(self.certificate),
                        "-subj", f"/CN={NAME}", "-addext", f"subjectAltName=DNS:{NAME}"], check=True, capture_output=True)
        example = pathlib.Path(os.environ["NGINX_EXAMPLE"]).read_text()
        for old, new in (("listen 443", f"listen {PORT}"), ("127.0.0.1:8080;", f"127.0.0.1:{page_port};"),
                         ("/etc/ssl/certs/camera.example.pem", str(self.certificate)),
                         ("/etc/ssl/private/camera.example.key", str(key))):
            assert old in example, old
            example = example.replace(old, new)
        (root / "example.conf").write_text(example)
        (root / "nginx.conf").write_text(SERVER.format(directory=root))
        self.process = subprocess.Popen([os.environ["NGINX"], "-c", str(root / "nginx.conf"), "-p", str(root)])

    def __enter__(self):
        wait_for(self.listens, "nginx")
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        self.directory.cleanup()

    def listens(self):
        assert self.process.poll() is None, "nginx has ended"
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", PORT)) == 0

    def request(self, method, path, body=None, **headers):
        """\\return the response of the page as a browser gets it"""
        context = ssl.create_default_context(cafile=str(self.certificate))
        connection = Connection(NAME, PORT, context=context, timeout=DEADLINE_SECONDS)
        connection.request(method, path, body, {name.replace("_", "-"): value for name, value in headers.items()})
        response = connection.getresponse()
        response.read()
        connection.close()
        return response


class BehindNginx(unittest.TestCase):
    def recording(self, directory, values):
        token = pathlib.Path(directory) / "token"
        token.touch(0o600)
        token.write_text(TOKEN)
        return Recording("grab", configuration=f'web.address = "127.0.0.1:0"\nweb.token_file = "{token}"\n{values}')

    def port_of(self, recording):
        recording.wait_for_log("live page: ")
        return int(re.search(r"live page: http://127.0.0.1:(\d+)/", recording.log).group(1))

    def test_logs_in_and_stops_the_recording(self):
        with tempfile.TemporaryDirectory() as directory:
            with self.recording(directory, f'web.public_origin = "{ORIGIN}"\n') as recording, Proxy(self.port_of(recording)) as proxy:
                recording.wait_for_frames(3)
                self.assertEqual(proxy.request("GET", "/login").status, 200)
                self.assertEqual(proxy.request("GET", "/status.json").status, 401)
                form = urllib.parse.urlencode({"token": TOKEN})
                login = proxy.request("POST", "/login", form, Origin=ORIGIN, Content_Type=FORM, Sec_Fetch_Site="same-origin")
                self.assertEqual((login.status, login.getheader("Location")), (303, "/"))
                cookie = login.getheader("Set-Cookie")
                self.assertIn("; Secure", cookie)
                session = cookie.split(";")[0]
                self.assertEqual(proxy.request("GET", "/status.json", Cookie=session).status, 200)
                for origin, status in (("https://evil.example", 403), (ORIGIN, 200)):
                    stop = proxy.request("POST", "/control/stop", "{}", Cookie=session, Origin=origin, Content_Type="application/json")
                    self.assertEqual(stop.status, status)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)

    def test_is_refused_without_a_public_origin(self):
        with tempfile.TemporaryDirectory() as directory:
            with self.recording(directory, "") as recording, Proxy(self.port_of(recording)) as proxy:
                self.assertEqual(proxy.request("GET", "/login").status, 403)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
