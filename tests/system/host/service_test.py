"""What mediagrabber tells systemd, as one of its services."""

import pathlib
import signal
import socket
import sys
import tempfile
import unittest

from host_process import Recording, wait_for

SUCCESS = 0


class ServiceManager:
    """The other end of what NOTIFY_SOCKET names."""

    def __init__(self, watchdog_us):
        self.directory = tempfile.TemporaryDirectory()
        path = pathlib.Path(self.directory.name) / "notify"
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(str(path))
        self.socket.setblocking(False)
        self.environment = {"NOTIFY_SOCKET": str(path), "WATCHDOG_USEC": str(watchdog_us)}
        self.heard = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()
        self.directory.cleanup()

    def hear(self):
        """All that was said so far, a line each."""
        try:
            while True:
                self.heard += self.socket.recv(4096).decode().splitlines()
        except BlockingIOError:
            return self.heard

    def wait_for(self, line):
        wait_for(lambda: line in self.hear(), f"{line} was said; what was said: {self.heard}")


class Service(unittest.TestCase):
    def test_is_ready_with_the_first_frame_and_alive_as_long_as_frames_come(self):
        with ServiceManager(watchdog_us=400_000) as manager:
            with Recording("grab", environment=manager.environment) as recording:
                manager.wait_for("READY=1")
                beats = manager.hear().count("WATCHDOG=1")
                wait_for(lambda: manager.hear().count("WATCHDOG=1") > beats + 3, "the watchdog was fed")
                wait_for(lambda: any(line.startswith("STATUS=") and "frames/s" in line for line in manager.hear()), "a status")
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
            manager.wait_for("STOPPING=1")

    def test_waits_for_a_camera_without_being_ready(self):
        with ServiceManager(watchdog_us=400_000) as manager:
            configuration = "run.give_up_after = \"never\"\nrun.retry_interval_s = 0.05"
            with Recording("exit 2", configuration=configuration, environment=manager.environment) as recording:
                manager.wait_for("STATUS=waiting for the camera")
                wait_for(lambda: recording.log.count("run ") > 5, "it has tried more than once")
                self.assertNotIn("READY=1", manager.hear())
                self.assertNotIn("WATCHDOG=1", manager.hear())


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
