"""Faults of the control channel and of the camera's features: frames go on, or the run ends as it should and begins again."""

import re
import subprocess
import sys
import tempfile
import unittest

from camera_process import FaultyCamera
from faulty_grabbing import Grabbing, configuration
from recorder import Recording
from recording_process import MEDIAGRABBER


class Answers(unittest.TestCase):
    """The camera is asked four times for each frame, so answers that take their time cost frames, and no more."""

    def go_on(self, kind, seconds=3, **parameters):
        with Grabbing(self, rate=20.0) as run:
            run.strike_for(seconds, kind, **parameters)
            run.recover()
            account = run.finish()
        self.assertNotIn("exit code", account.log)
        account.check(self)
        self.assertLess(run.recovery, 10)
        return account


class AnswersLate(Answers):
    def test_cost_frames_that_are_counted(self):
        self.go_on("answer_delay", delay_ms=150)


class AnswersLost(Answers):
    def test_are_asked_for_again(self):
        self.go_on("answer_loss", share=0.1)


class AnswersDoubled(Answers):
    def test_cost_no_frame(self):
        account = self.go_on("answer_doubling", share=1)
        self.assertEqual(account.missing, 0)


class AnswersWithErrors(unittest.TestCase):
    def test_end_the_run_with_minus_10_and_others_begin_until_one_succeeds(self):
        # An exposure time that can't be read is an exception of the loop.
        with Grabbing(self, rate=20.0) as run:
            run.strike_for(4, "answer_error", share=0.2, to="reads")
            run.recover()
            account = run.finish()
        self.assertIn("(exit code -10)", account.log)
        self.assertLess(run.recovery, 10)


class AnswersWithWrongIds(Answers):
    def test_are_not_taken_for_others(self):
        account = self.go_on("answer_wrong_id", share=0.1, to="reads")
        self.assertTrue(all(line["gain_db"] in (0, None) for line in account.journal))


class DeafCamera(unittest.TestCase):
    def test_for_a_second_costs_no_run(self):
        with Grabbing(self) as run:
            run.strike_for(1, "freeze", control=True)
            run.recover()
            account = run.finish()
        self.assertNotIn("exit code", account.log)

    def test_for_longer_ends_the_run_with_minus_10_and_begins_another(self):
        with Grabbing(self) as run:
            run.strike_for(6, "freeze", control=True)
            run.recover()
            account = run.finish()
        self.assertIn("(exit code -10)", account.log)
        self.assertLess(run.recovery, 10)


class ControlDenied(unittest.TestCase):
    def test_is_told_as_minus_5_until_control_is_given(self):
        with FaultyCamera() as camera:
            fault = camera.start_fault("control_denied")
            with Recording(configuration()) as recording:
                recording.wait_for_log("the camera could not be opened, another application may have it (exit code -5)")
                self.assertEqual(recording.journal(), [])
                camera.stop_fault(fault)
                recording.wait_for_frames(10)
                self.assertEqual(recording.stop(), 0, recording.log)

    def test_is_a_failure_when_nobody_waits(self):
        with FaultyCamera() as camera:
            camera.start_fault("control_denied")
            with Recording("") as recording:
                self.assertEqual(recording.finish(), 4, recording.log)
                self.assertIn("(exit code -5)", recording.log)


class NoCamera(unittest.TestCase):
    def test_without_power_is_told_as_2(self):
        with FaultyCamera() as camera:
            camera.start_fault("power_cut")
            with Recording("") as recording:
                self.assertEqual(recording.finish(), 3, recording.log)
                self.assertIn("no camera was found (exit code 2)", recording.log)

    def test_but_another_one_is_told_as_3(self):
        with FaultyCamera(), Recording('[camera]\nmodel = "GO-5000M-PGE"\n') as recording:
            self.assertEqual(recording.finish(), 3, recording.log)
            self.assertIn("the configured camera was not found (exit code 3)", recording.log)


class TemperatureFailing(unittest.TestCase):
    def test_leaves_frames_without_a_temperature_and_costs_none(self):
        with Grabbing(self) as run:
            before = run.frames()
            run.strike("read_failure", hits=20)
            run.recover()
            account = run.finish()
        cold = [line for line in account.journal if line["temperature_c"] is None]
        self.assertGreaterEqual(len(cold), 15)
        self.assertTrue(all(line["temperature_c"] is not None for line in account.journal[:before - 5]))
        self.assertIsNotNone(account.journal[-1]["temperature_c"])
        account.check(self)


class WritesRefused(unittest.TestCase):
    def test_from_a_moment_on_are_told_and_end_no_recording(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        control = f"{directory.name}/set.sock"
        text = f'[exposure]\nmode = "manual"\ntime_us = 1000\n[control]\nsocket = "{control}"\n'
        with Grabbing(self, more=text) as run:
            def change(value):
                return subprocess.run([MEDIAGRABBER, "set", "--socket", control, "--timeout", "30",
                                       f"exposure.time_us={value}"], capture_output=True, text=True, timeout=60)
            self.assertEqual(change(500).returncode, 0)
            fault = run.camera.start_fault("write_refusal")
            refused = change(2000)
            self.assertNotEqual(refused.returncode, 0, refused.stdout + refused.stderr)
            run.wait_for_more(10)
            self.assertEqual(run.recording.journal()[-1]["exposure_us"], 500)
            self.assertGreater(run.camera.stop_fault(fault), 0)
            self.assertEqual(change(700).returncode, 0)
            run.recover()
            account = run.finish()
        account.check(self)

    def test_when_the_camera_has_come_back_are_tried_again(self):
        with Grabbing(self) as run:
            fault = run.camera.start_fault("write_refusal")
            run.strike_for(0.2, "power_cut")
            run.recording.wait_for_log("the camera could not be configured (exit code -2)")
            run.camera.stop_fault(fault)
            run.recover()
            run.finish()
        self.assertLess(run.recovery, 10)

    def test_from_the_beginning_are_a_failure_of_the_configuration(self):
        with FaultyCamera() as camera:
            camera.start_fault("write_refusal")
            with Recording(configuration()) as recording:
                self.assertEqual(recording.finish(), 4, recording.log)
                self.assertIn("the camera could not be configured (exit code -2)", recording.log)


class TimestampsJump(unittest.TestCase):
    def test_back_is_logged_and_followed(self):
        with Grabbing(self, camera=("--first-tick", "1000000000000")) as run:
            fault = run.camera.start_fault("timestamp_jump", by_s=-100)
            run.recording.wait_for_log("bTS wrap is detected")
            run.recover()
            run.camera.stop_fault(fault)
            run.recover()
            account = run.finish()
        account.check(self)
        self.assert_on_the_host_s_clock(account)

    def assert_on_the_host_s_clock(self, account):
        """Whatever the camera's clock did, frames are stamped when they were taken."""
        late = [line["handed_over_us"] - line["timestamp_us"] for line in account.journal[20:]]
        self.assertLess(max(map(abs, late)), 10e6)


class TimestampsWrap(unittest.TestCase):
    def test_is_logged_each_time_and_followed(self):
        with Grabbing(self) as run:
            fault = run.camera.start_fault("timestamp_wrap", bits=30)  # a bit more than a second
            run.recording.wait_while_running(lambda: run.recording.log.count("bTS wrap is detected") >= 4, "four wraps")
            run.camera.stop_fault(fault)
            run.recover()
            account = run.finish()
        account.check(self)
        wraps = re.findall(r"bTS wrap is detected: old (\d+)us, new (\d+)us", account.log)
        self.assertTrue(all(int(old) > int(new) for old, new in wraps))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
