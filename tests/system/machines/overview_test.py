# SPDX-License-Identifier: MIT
"""`mediagrabber overview`: recordings of this machine and of another one, and one machine that does not respond."""

import json
import pathlib
import ssl
import subprocess
import sys
import tempfile
import unittest

from camera_process import Camera
from overview_process import AnotherMachine, Overview, ScriptedPage
from recorder import Recording
from recording_process import MEDIAGRABBER
from waiting import wait_for

CONFIGURATION = """
camera.name = "{name}"
[image]
width = 160
height = 120
[timing]
frame_rate_hz = 20.0
[output]
format = "none"
[web]
address = "{address}"
"""
TOKEN = "a-token-of-the-tests-0123456789"


class Recordings(unittest.TestCase):
    def setUp(self):
        self.directory = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.runtime = self.directory / "runtime"
        self.runtime.mkdir()

    def token_file(self):
        path = self.directory / "token"
        path.touch(mode=0o600)
        path.write_text(TOKEN + "\n")
        return path

    def local(self, name, *arguments):
        text = CONFIGURATION.format(name=name, address="127.0.0.1:0")
        return Recording(text, *arguments, environment={"XDG_RUNTIME_DIR": str(self.runtime)})

    def test_of_two_machines_are_shown_and_one_does_not_respond(self):
        machine = self.enterContext(AnotherMachine())
        remote = CONFIGURATION.format(name="right", address=f"{machine.address}:8080")
        self.enterContext(Camera())
        self.enterContext(machine.camera())
        left = self.enterContext(self.local("left"))
        right = self.enterContext(machine.recording(remote, "--web-token", self.token_file()))
        left.wait_for_frames(3)
        right.wait_for_frames(3)
        file = self.directory / "machines.toml"
        file.write_text(f'[[machine]]\npage = "http://{machine.address}:8080"\nname = "cell 2"\ntoken_file = "token"\n')
        dead = f"http://{machine.unused_address}:8080"
        with Overview(self.runtime, dead, "--machines", file) as overview:
            complete = lambda: overview.images_of() == {"left", "right"}
            wait_for(complete, "images of both recordings")
            one = {recording["place"]: recording for recording in overview.recordings()}["cell 2"]
            self.assertEqual((one["summary"]["name"], one["summary"]["state"]), ("right", "recording"))
            self.assertEqual(one["link"], f"http://{machine.address}:8080/")
            wait_for(lambda: overview.by_link(dead)["error"], "the error of the machine that does not respond")
            self.assertRegex(overview.by_link(dead)["error"], "no complete answer within 3 s|No route to host")
            self.assertEqual(overview.images_of(), {"left", "right"})
            image = overview.get(f"/image.jpg?id={one['id']}")[1]
            self.assertTrue(image.startswith(b"\xff\xd8\xff"))
            self.assertEqual(right.stop(), 0, right.log)
            wait_for(lambda: "Connection refused" in overview.by_link(one["link"])["error"], "the end of the other recording")
            self.assertEqual(left.stop(), 0, left.log)
            wait_for(lambda: len(overview.recordings()) == 2, "the end of the recording of this machine")
            self.assertEqual(overview.stop(), 0, overview.log)


class Https(unittest.TestCase):
    STATUS = {"name": "cell", "state": "recording", "waiting_reason": None, "uptime_s": 1, "rates": {"frames_per_s": None},
              "counts": dict.fromkeys(("saved", "wanted", "dropped_queue_full", "dropped_write_error", "packets_lost", "empty_fetches"), 0)}

    def certificate(self, directory):
        """\\return a context with a certificate for 127.0.0.1, and the certificate's file"""
        key, file = directory / "key.pem", directory / "certificate.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "1",
                        "-subj", "/CN=test", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", file],
                       check=True, capture_output=True)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(file, key)
        return context, file

    def test_needs_a_certificate_of_an_authority_of_the_system(self):
        directory = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        tls, file = self.certificate(directory)
        answers = {"/status.json": ("application/json", json.dumps(self.STATUS).encode()), "/frame.jpg": ("image/jpeg", b"\xff\xd8\xff")}
        with ScriptedPage(answers, tls) as page:
            with Overview(directory, page.url) as overview:
                wait_for(lambda: "certificate" in overview.recordings()[0]["error"], "the refusal of the certificate")
                self.assertIsNone(overview.recordings()[0]["summary"])
            authorities = "/etc/ssl/certs/ca-certificates.crt"
            subprocess.run(["mount", "--bind", file, authorities], check=True)
            self.addCleanup(subprocess.run, ["umount", authorities], check=True)
            with Overview(directory, page.url) as overview:
                complete = lambda: overview.images_of() == {"cell"} or overview.recordings()[0]["error"]
                wait_for(complete, "an image or an error")
                self.assertEqual(overview.recordings()[0]["error"], "")


class CommandLine(unittest.TestCase):
    def error_of(self, *arguments, status=2):
        done = subprocess.run([MEDIAGRABBER, "overview", *arguments], capture_output=True, text=True, timeout=60)
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stderr

    def test_refuses_what_it_cannot_serve_or_ask(self):
        self.assertIn("--web 0.0.0.0:8090 is reachable from other machines and needs", self.error_of("--web", "0.0.0.0:8090"))
        self.assertIn("expected ADDRESS:PORT", self.error_of("--web", "8090"))
        self.assertIn("expected http://HOST[:PORT]", self.error_of("file:///etc/passwd"))
        self.assertIn("/none.toml: cannot be opened", self.error_of("--machines", "/none.toml"))
        self.assertIn("http://a/ is given twice", self.error_of("http://a", "http://a/"))
        self.assertIn("/none: No such file", self.error_of("--web-token", "/none", status=11))

    def test_needs_an_address_that_is_free(self):
        with Overview(tempfile.gettempdir()) as overview:
            self.assertIn("another program uses it", self.error_of("--web", f"127.0.0.1:{overview.port}", status=11))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
