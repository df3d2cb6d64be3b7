# SPDX-License-Identifier: MIT
"""Signals and `mediagrabber signal`: their requests to the plug-in, and the time that a stop may take."""

import os
import signal
import subprocess
import sys
import unittest

from host_process import FAKE_PLUGIN, MEDIAGRABBER, Recording, command
from waiting import wait_for

SUCCESS, USAGE, CUT_SHORT, NO_RECORDING = 0, 2, 5, 6
CODES = {signal.SIGTERM: 1, signal.SIGHUP: 2, signal.SIGUSR1: 3, signal.SIGUSR2: 4, signal.SIGINT: 5}


class Signals(unittest.TestCase):
    def test_become_requests_to_the_plugin(self):
        for number, code in CODES.items():
            with self.subTest(number), Recording("grab") as recording:
                recording.wait_for_frames(3)
                recording.signal(number)
                recording.wait_for_log(f"signal {code}\n")
                if code not in (1, 5):
                    recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                self.assertEqual(recording.log.count(f"signal {code}\n"), 1, recording.log)

    def test_are_latched_until_the_plugin_polls_them(self):
        for number, code in CODES.items():
            with self.subTest(number), Recording("frames 3; await GATE; grab") as recording:
                recording.wait_for_frames(2)
                recording.signal(number)
                recording.open_gate()
                recording.wait_for_log(f"signal {code}\n")
                if code not in (1, 5):
                    recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)

    def test_of_several_kinds_at_once_are_all_processed(self):
        with Recording("grab") as recording:
            recording.wait_for_frames(3)
            for number in (signal.SIGUSR2, signal.SIGUSR1, signal.SIGHUP):
                recording.signal(number)
            for code in (2, 3, 4):
                recording.wait_for_log(f"signal {code}\n")
            recording.signal(signal.SIGINT)
            self.assertEqual(recording.finish(), SUCCESS, recording.log)


class SignalCommand(unittest.TestCase):
    def test_sends_the_signal_of_each_request(self):
        with Recording("grab") as recording:
            recording.wait_for_frames(3)
            for word, code in (("reload", 2), ("lut", 3), ("lut12", 4), ("stop", 1)):
                self.assertEqual(command("signal", recording.process.pid, word).returncode, SUCCESS)
                recording.wait_for_log(f"signal {code}\n")
            self.assertEqual(recording.finish(), SUCCESS, recording.log)

    def test_does_not_signal_other_programs(self):
        with subprocess.Popen(["sleep", "600"]) as other:
            try:
                for word in ("stop", "reload", "lut", "lut12", "trigger"):
                    done = command("signal", other.pid, word)
                    self.assertEqual(done.returncode, NO_RECORDING)
                    self.assertEqual(done.stderr, f"mediagrabber: process {other.pid} is not a mediagrabber\n")
                self.assertIsNone(other.poll())
            finally:
                other.kill()

    def test_does_not_signal_a_mediagrabber_that_is_not_recording(self):
        with subprocess.Popen([MEDIAGRABBER, "--plugin", FAKE_PLUGIN, "cameras"], stdout=subprocess.DEVNULL,
                              env={**os.environ, "FAKE_PLUGIN_SCRIPT": "hang"}) as other:
            try:
                wait_for(lambda: os.readlink(f"/proc/{other.pid}/exe").endswith("mediagrabber"), "the program")
                done = command("signal", other.pid, "reload")
                self.assertEqual(done.returncode, NO_RECORDING)
                self.assertIn("is a mediagrabber, but not recording", done.stderr)
                self.assertIsNone(other.poll())
            finally:
                other.kill()

    def test_refuses_invalid_processes_and_requests(self):
        self.assertEqual(command("signal", 4194305, "stop").returncode, NO_RECORDING)
        for arguments in (["0", "stop"], ["-1", "stop"], ["x", "stop"], ["99999999999999", "stop"], ["1"], ["1", "kill"]):
            with self.subTest(arguments):
                self.assertEqual(command("signal", *arguments).returncode, USAGE)


class StopSignals(unittest.TestCase):
    def test_leave_every_frame_on_disk(self):
        with Recording("grab") as recording:
            recording.wait_for_frames(10)
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            frames = recording.frame_index()
            self.assertIn(f"{len(frames)} frames saved", recording.log)
            self.assertEqual(recording.files(), {frame["file"] for frame in frames} | {"frames.jsonl"})

    def test_end_the_wait_after_a_failure(self):
        with Recording("exit 2", configuration="run.give_up_after = \"never\"\nrun.retry_interval_s = 86400") as recording:
            recording.wait_for_log("no camera was found")
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), SUCCESS, recording.log)

    def test_end_the_process_after_the_grace_time(self):
        for script in ("frames 5; hang", "frames 5; idle"):
            with self.subTest(script), Recording(script, configuration="run.grace_time_s = 0.2") as recording:
                recording.wait_for_log(f"\n{script.split()[-1]}\n")
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), CUT_SHORT, recording.log)
                self.assertIn("the plug-in did not stop within the grace time: exiting without it", recording.log)
                frames = recording.frame_index()
                self.assertEqual(len(frames), 4)
                self.assertEqual(recording.files(), {frame["file"] for frame in frames} | {"frames.jsonl"})

    def test_end_the_process_at_once_when_repeated(self):
        with Recording("frames 5; hang", configuration="run.grace_time_s = 86400") as recording:
            recording.wait_for_log("\nhang\n")
            recording.signal(signal.SIGINT)
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), CUT_SHORT, recording.log)
            self.assertIn("stop requested twice: exiting without it", recording.log)
            self.assertEqual(len(recording.frame_index()), 4)

    def test_wait_for_the_plugin_while_frames_arrive(self):
        # The plug-in stops slowly, but each frame restarts the grace time: it is shorter than 100 frames and longer than one,
        # even on a busy machine.
        with Recording("frames 5; frames 100 30", configuration="run.grace_time_s = 2") as recording:
            recording.wait_for_frames(4)
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertEqual(len(recording.frame_index()), 104)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
