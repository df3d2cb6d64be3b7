"""Signals: which requests they become, and how long a stop may take."""

import os
import signal
import subprocess
import sys
import unittest

from host_process import FAKE_PLUGIN, MEDIAGRABBER, Recording, command, wait_for

SUCCESS, USAGE, CUT_SHORT, NOBODY_THERE = 0, 2, 5, 6
CODES = {signal.SIGTERM: 1, signal.SIGHUP: 2, signal.SIGUSR1: 3, signal.SIGUSR2: 4, signal.SIGINT: 5}


class Signals(unittest.TestCase):
    def test_become_the_requests_that_the_plugin_knows(self):
        for number, code in CODES.items():
            with self.subTest(number), Recording("grab") as recording:
                recording.wait_for_frames(3)
                recording.signal(number)
                recording.wait_for_log(f"signal {code}\n")
                if code not in (1, 5):
                    recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                self.assertEqual(recording.log.count(f"signal {code}\n"), 1, recording.log)

    def test_wait_until_a_frame_carries_them_to_the_plugin(self):
        for number, code in CODES.items():
            # The fetches come between the signal and the frames: the signal is sent while the first of them are under way.
            with self.subTest(number), Recording("frames 3; fetches 200 5; grab") as recording:
                recording.wait_for_frames(2)
                recording.signal(number)
                recording.wait_for_log(f"signal {code}\n")
                if code not in (1, 5):
                    recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)

    def test_of_every_kind_at_once_are_all_answered(self):
        with Recording("grab") as recording:
            recording.wait_for_frames(3)
            for number in (signal.SIGUSR2, signal.SIGUSR1, signal.SIGHUP):
                recording.signal(number)
            for code in (2, 3, 4):
                recording.wait_for_log(f"signal {code}\n")
            recording.signal(signal.SIGINT)
            self.assertEqual(recording.finish(), SUCCESS, recording.log)


class SignalCommand(unittest.TestCase):
    def test_sends_what_its_words_mean(self):
        with Recording("grab") as recording:
            recording.wait_for_frames(3)
            for word, code in (("reload", 2), ("lut", 3), ("lut12", 4), ("stop", 1)):
                self.assertEqual(command("signal", recording.process.pid, word).returncode, SUCCESS)
                recording.wait_for_log(f"signal {code}\n")
            self.assertEqual(recording.finish(), SUCCESS, recording.log)

    def test_spares_a_process_that_is_no_mediagrabber(self):
        with subprocess.Popen(["sleep", "600"]) as other:
            try:
                for word in ("stop", "reload", "lut", "lut12", "keep"):
                    done = command("signal", other.pid, word)
                    self.assertEqual(done.returncode, NOBODY_THERE)
                    self.assertEqual(done.stderr, f"mediagrabber: process {other.pid} is no mediagrabber\n")
                self.assertIsNone(other.poll())
            finally:
                other.kill()

    def test_spares_a_mediagrabber_that_does_not_record(self):
        with subprocess.Popen([MEDIAGRABBER, "--plugin", FAKE_PLUGIN, "cameras"], stdout=subprocess.DEVNULL,
                              env={**os.environ, "FAKE_PLUGIN_SCRIPT": "hang"}) as other:
            try:
                wait_for(lambda: os.readlink(f"/proc/{other.pid}/exe").endswith("mediagrabber"), "the program")
                done = command("signal", other.pid, "reload")
                self.assertEqual(done.returncode, NOBODY_THERE)
                self.assertIn("is a mediagrabber, but is not recording", done.stderr)
                self.assertIsNone(other.poll())
            finally:
                other.kill()

    def test_refuses_what_is_no_process_or_no_request(self):
        self.assertEqual(command("signal", 4194305, "stop").returncode, NOBODY_THERE)
        for arguments in (["0", "stop"], ["-1", "stop"], ["x", "stop"], ["99999999999999", "stop"], ["1"], ["1", "kill"]):
            with self.subTest(arguments):
                self.assertEqual(command("signal", *arguments).returncode, USAGE)


class Stops(unittest.TestCase):
    def test_leave_every_frame_on_disk(self):
        with Recording("grab") as recording:
            recording.wait_for_frames(10)
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            frames = recording.journal()
            self.assertIn(f"{len(frames)} frames on disk", recording.log)
            self.assertEqual(recording.files(), {frame["file"] for frame in frames} | {"frames.jsonl"})

    def test_during_the_pause_after_a_failure_end_it_at_once(self):
        with Recording("exit 2", configuration="run.give_up_after = \"never\"\nrun.retry_interval_s = 86400") as recording:
            recording.wait_for_log("no camera was found")
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), SUCCESS, recording.log)

    def test_that_the_plugin_does_not_answer_end_it_after_the_grace_time(self):
        for script in ("frames 5; hang", "frames 5; idle"):
            with self.subTest(script), Recording(script, configuration="run.grace_time_s = 0.2") as recording:
                recording.wait_for_log(script.split()[-1])
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), CUT_SHORT, recording.log)
                self.assertIn("the plug-in did not stop within the grace time: ending without it", recording.log)
                frames = recording.journal()
                self.assertEqual(len(frames), 4)
                self.assertEqual(recording.files(), {frame["file"] for frame in frames} | {"frames.jsonl"})

    def test_that_come_a_second_time_end_it_without_the_plugin(self):
        with Recording("frames 5; hang", configuration="run.grace_time_s = 86400") as recording:
            recording.wait_for_log("hang")
            recording.signal(signal.SIGINT)
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), CUT_SHORT, recording.log)
            self.assertIn("a stop was asked for twice: ending without it", recording.log)
            self.assertEqual(len(recording.journal()), 4)

    def test_are_not_cut_short_while_frames_arrive(self):
        # The plug-in takes its time to stop, but it works: each frame begins the grace time anew.
        with Recording("frames 5; frames 100 20", configuration="run.grace_time_s = 0.5") as recording:
            recording.wait_for_frames(4)
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertEqual(len(recording.journal()), 104)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
