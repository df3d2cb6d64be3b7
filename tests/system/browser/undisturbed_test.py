"""The page as a process has it: a recording does not notice who looks, and a page that can't be had is refused."""

import http.client
import json
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

from camera_process import Camera
from recorder import MGJAI, Recording
from recording_process import MEDIAGRABBER

# A megabyte a frame, 100 frames a second.
CONFIGURATION = """
[image]
width = 1024
height = 1024
[timing]
frame_rate = 100.0
[web]
address = "127.0.0.1:0"
[output]
format = "none"
"""

FRAMES = 800
PAGES = 3


class Poller(threading.Thread):
    """Asks for pictures and figures as a page does, until the recording is over."""

    def __init__(self, port):
        super().__init__()
        self.port = port
        self.pictures = 0
        self.start()

    def get(self, path):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=20)
        try:
            connection.request("GET", path)
            response = connection.getresponse()
            return response, response.read()
        finally:
            connection.close()

    def run(self):
        frame = 0
        try:
            while True:
                response, picture = self.get(f"/frame.jpg?after={frame}")
                if response.status == 200:
                    assert picture.startswith(b"\xff\xd8")
                    frame = int(response.getheader("X-Frame"))
                    self.pictures += 1
                for path in ("/status.json", "/history.json"):
                    response, text = self.get(path)
                    json.loads(text)
        except (OSError, http.client.HTTPException):
            pass  # the recording is over


class Undisturbed(unittest.TestCase):
    def test_no_frame_is_lost_while_three_pages_are_open(self):
        with Camera(), Recording(CONFIGURATION, "--frames", FRAMES) as recording:
            recording.wait_for_log("the page is at ")
            port = int(re.search(r"the page is at http://127.0.0.1:(\d+)/", recording.log).group(1))
            pollers = [Poller(port) for _ in range(PAGES)]
            self.assertEqual(recording.finish(), 0, recording.log)
            for poller in pollers:
                poller.join()
                self.assertGreater(poller.pictures, 5)
            self.assertIn("lost: 0 overrun, 0 not written", recording.log)
            self.assertEqual(len(recording.journal()), FRAMES)
            print([poller.pictures for poller in pollers], "pictures were looked at meanwhile")


class Beginning(unittest.TestCase):
    """Nothing of it needs a camera: it ends before one is looked for."""

    def refusal(self, *arguments):
        with tempfile.TemporaryDirectory() as directory:
            configuration = pathlib.Path(directory) / "run.toml"
            configuration.write_text("")
            output = pathlib.Path(directory) / "frames"
            done = subprocess.run([MEDIAGRABBER, "run", "--plugin", MGJAI, "--config", str(configuration), "--output",
                                   str(output), *arguments], capture_output=True, text=True, timeout=60)
            self.assertEqual(done.returncode, 2, done.stderr)
            self.assertFalse(output.exists(), "a refused start leaves a directory behind")
            return done.stderr

    def test_an_address_that_others_reach_needs_a_token(self):
        words = self.refusal("--web", "0.0.0.0:8080")
        self.assertIn("0.0.0.0:8080 is reached by other machines, expected web.token_file", words)
        self.assertIn("make one: (umask 077; head -c 24 /dev/urandom", words)

    def test_a_token_that_others_read_is_refused(self):
        with tempfile.NamedTemporaryFile("w") as token:
            token.write("0123456789abcdef0123")
            token.flush()
            pathlib.Path(token.name).chmod(0o644)
            self.assertIn("chmod o-rw", self.refusal("--web", "0.0.0.0:8080", "--web-token", token.name))

    def test_a_port_that_is_taken_is_refused(self):
        with socket.create_server(("127.0.0.1", 0)) as other:
            words = self.refusal("--web", f"127.0.0.1:{other.getsockname()[1]}")
            self.assertIn("another program is there, expected another port", words)

    def test_what_is_no_address_is_refused(self):
        self.assertIn("expected ADDRESS:PORT", self.refusal("--web", "8080"))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
