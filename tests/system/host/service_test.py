# SPDX-License-Identifier: MIT
"""Notifications of mediagrabber to systemd, as a service."""

import pathlib
import signal
import socket
import sys
import tempfile
import unittest

from host_process import Recording
from waiting import wait_for

SUCCESS = 0


class ServiceManager:
    """The receiving end of NOTIFY_SOCKET."""

    def __init__(self, watchdog_us):
        self.directory = tempfile.TemporaryDirectory()
        path = pathlib.Path(self.directory.name) / "notify"
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(str(path))
        self.socket.setblocking(False)
        self.environment = {"NOTIFY_SOCKET": str(path), "WATCHDOG_USEC": str(watchdog_us)}
        self.received = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()
        self.directory.cleanup()

    def notifications(self):
        """All notifications so far, one line each."""
        try:
            while True:
                self.received += self.socket.recv(4096).decode().splitlines()
        except BlockingIOError:
            return self.received

    def wait_for(self, line):
        wait_for(lambda: line in self.notifications(), f"{line}; received so far: {self.received}")


class Service(unittest.TestCase):
    def test_is_ready_with_the_first_frame_and_alive_while_frames_arrive(self):
        with ServiceManager(watchdog_us=400_000) as manager:
            with Recording("grab", environment=manager.environment) as recording:
                manager.wait_for("READY=1")
                beats = manager.notifications().count("WATCHDOG=1")
                wait_for(lambda: manager.notifications().count("WATCHDOG=1") > beats + 3, "watchdog notifications")
                wait_for(lambda: any(line.startswith("STATUS=") and "frames/s" in line for line in manager.notifications()), "a status")
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
            manager.wait_for("STOPPING=1")

    def test_is_not_ready_while_it_waits_for_a_camera(self):
        with ServiceManager(watchdog_us=400_000) as manager:
            configuration = "run.give_up_after = \"never\"\nrun.retry_interval_s = 0.05"
            with Recording("exit 2", configuration=configuration, environment=manager.environment) as recording:
                manager.wait_for("STATUS=waiting for the camera")
                wait_for(lambda: recording.log.count("run ") > 5, "more than one attempt")
                self.assertNotIn("READY=1", manager.notifications())
                self.assertNotIn("WATCHDOG=1", manager.notifications())

    def test_is_alive_while_it_waits_for_a_lost_camera(self):
        with ServiceManager(watchdog_us=400_000) as manager:
            configuration = "run.give_up_after = \"never\"\nrun.retry_interval_s = {}"
            for interval in (0.05, 86400):
                with self.subTest(interval), Recording("frames 5; exit -10\nexit 2", configuration=configuration.format(interval),
                                                       environment=manager.environment) as recording:
                    recording.wait_for_log("(exit code -10)")
                    manager.wait_for("READY=1")
                    beats = manager.notifications().count("WATCHDOG=1")
                    wait_for(lambda: manager.notifications().count("WATCHDOG=1") > beats + 5, "watchdog notifications")
                    self.assertIsNone(recording.process.poll())

    def test_is_not_alive_while_the_plugin_hangs(self):
        with ServiceManager(watchdog_us=400_000) as manager:
            configuration = "run.give_up_after = \"never\"\nrun.retry_interval_s = 0.05"
            with Recording("frames 5; exit -10\nhang", configuration=configuration, environment=manager.environment) as recording:
                manager.wait_for("READY=1")
                recording.wait_for_log("\nhang\n")
                # A status line follows every 5 s, each from a check that could have sent a keep-alive. The first check may still
                # belong to the wait before.
                statuses = self.statuses(manager)
                wait_for(lambda: self.statuses(manager) > statuses, "a status")
                beats = manager.notifications().count("WATCHDOG=1")
                wait_for(lambda: self.statuses(manager) > statuses + 1, "another status")
                self.assertEqual(manager.notifications().count("WATCHDOG=1"), beats)

    def statuses(self, manager):
        return sum(line.startswith("STATUS=") for line in manager.notifications())


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
