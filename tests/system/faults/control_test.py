# SPDX-License-Identifier: MIT
"""Faults of the control channel and of camera features: frames continue, or the run ends with its exit code and restarts."""

import re
import subprocess
import sys
import tempfile
import unittest

from camera_process import FaultyCamera
from fault_recording import INTERRUPTED, FaultRecording, FrameBalance, configuration
from recorder import Recording
from recording_process import MEDIAGRABBER


class AckFaults(unittest.TestCase):
    """The plug-in sends four control commands for each frame, so slow acknowledges cost frames, but must not end the run."""

    def expect_no_restart(self, kind, seconds=3, **parameters):
        with FaultRecording(self, rate=20.0) as run:
            run.inject_for(seconds, kind, **parameters)
            run.recover()
            balance = run.finish()
        self.assertNotIn("exit code", balance.log)
        balance.check(self)
        self.assertLess(run.recovery, 10)
        return balance


class AckDelay(AckFaults):
    def test_costs_frames_that_are_reported(self):
        self.expect_no_restart("ack_delay", delay_ms=150)


class AckLoss(AckFaults):
    def test_makes_openpv_repeat_the_command(self):
        self.expect_no_restart("ack_loss", probability=0.1)


class AckDuplication(AckFaults):
    def test_costs_no_frame(self):
        balance = self.expect_no_restart("ack_duplication", probability=1)
        self.assertEqual(balance.missing, 0)


class AckError(unittest.TestCase):
    def test_ends_the_run_with_minus_10_and_restarts_until_a_run_succeeds(self):
        # The grabbing loop ends with an exception if it cannot read the exposure time.
        with FaultRecording(self, rate=20.0) as run:
            run.inject_for(4, "ack_error", probability=0.2, commands="reads")
            run.recover()
            balance = run.finish()
        self.assertIn("(exit code -10)", balance.log)
        self.assertLess(run.recovery, 10)
        balance.check(self, interrupted=INTERRUPTED)


class AckWrongId(AckFaults):
    def test_is_not_taken_as_the_answer_to_another_command(self):
        balance = self.expect_no_restart("ack_wrong_id", probability=0.1, commands="reads")
        self.assertTrue(all(line["gain_db"] in (0, None) for line in balance.frames))


class ControlUnresponsive(unittest.TestCase):
    def test_for_a_second_does_not_end_the_run(self):
        with FaultRecording(self) as run:
            run.inject_for(1, "freeze", control=True)
            run.recover()
            balance = run.finish()
        self.assertNotIn("exit code", balance.log)
        balance.check(self)

    def test_for_longer_ends_the_run_with_minus_10_and_restarts(self):
        with FaultRecording(self) as run:
            run.inject_for(6, "freeze", control=True)
            run.recover()
            balance = run.finish()
        self.assertIn("(exit code -10)", balance.log)
        self.assertLess(run.recovery, 10)
        balance.check(self, interrupted=INTERRUPTED)


class ControlDenied(unittest.TestCase):
    def test_is_reported_as_minus_5_until_control_is_granted(self):
        with FaultyCamera() as camera:
            fault = camera.start_fault("control_denied")
            with Recording(configuration()) as recording:
                recording.wait_for_log("the camera could not be opened, another application may be using it (exit code -5)")
                self.assertEqual(recording.frame_index(), [])
                camera.stop_fault(fault)
                recording.wait_for_frames(10)
                self.assertEqual(recording.stop(), 0, recording.log)
                FrameBalance(recording, camera).check(self)

    def test_is_a_failure_if_retries_are_disabled(self):
        with FaultyCamera() as camera:
            camera.start_fault("control_denied")
            with Recording("") as recording:
                self.assertEqual(recording.finish(), 4, recording.log)
                self.assertIn("(exit code -5)", recording.log)


class NoCamera(unittest.TestCase):
    def test_without_power_is_reported_as_2(self):
        with FaultyCamera() as camera:
            camera.start_fault("power_cycle")
            with Recording("") as recording:
                self.assertEqual(recording.finish(), 3, recording.log)
                self.assertIn("no camera was found (exit code 2)", recording.log)

    def test_but_another_one_is_reported_as_3(self):
        with FaultyCamera(), Recording('[camera]\nmodel = "GO-5000M-PGE"\n') as recording:
            self.assertEqual(recording.finish(), 3, recording.log)
            self.assertIn("the configured camera was not found (exit code 3)", recording.log)


class ReadFailure(unittest.TestCase):
    def test_of_the_temperature_leaves_it_out_of_the_frames_and_costs_none(self):
        with FaultRecording(self) as run:
            before = run.frames()
            run.inject_until("read_failure", hits=20)
            run.recover()
            balance = run.finish()
        without_temperature = [line for line in balance.frames if line["temperature_c"] is None]
        self.assertGreaterEqual(len(without_temperature), 15)
        self.assertTrue(all(line["temperature_c"] is not None for line in balance.frames[:before - 5]))
        self.assertIsNotNone(balance.frames[-1]["temperature_c"])
        balance.check(self)


class WriteRefusal(unittest.TestCase):
    def test_during_a_recording_is_reported_and_does_not_end_it(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        control = f"{directory.name}/set.sock"
        text = f'[exposure]\nauto = "Off"\ntime_us = 1000\n[control]\nsocket = "{control}"\n'
        with FaultRecording(self, more=text) as run:
            def set_exposure(value):
                return subprocess.run([MEDIAGRABBER, "set", "--socket", control, "--timeout", "30",
                                       f"exposure.time_us={value}"], capture_output=True, text=True, timeout=60)
            self.assertEqual(set_exposure(500).returncode, 0)
            fault = run.camera.start_fault("write_refusal")
            refused = set_exposure(2000)
            self.assertNotEqual(refused.returncode, 0, refused.stdout + refused.stderr)
            run.wait_for_more(10)
            self.assertEqual(run.recording.frame_index()[-1]["exposure_us"], 500)
            self.assertGreater(run.camera.stop_fault(fault), 0)
            self.assertEqual(set_exposure(700).returncode, 0)
            run.recover()
            balance = run.finish()
        balance.check(self)

    def test_after_a_power_cycle_is_followed_by_another_attempt(self):
        with FaultRecording(self) as run:
            fault = run.camera.start_fault("write_refusal")
            run.inject_for(0.2, "power_cycle")
            run.recording.wait_for_log("the camera could not be configured (exit code -2)")
            run.camera.stop_fault(fault)
            run.recover()
            balance = run.finish()
        self.assertLess(run.recovery, 10)
        balance.check(self, interrupted=INTERRUPTED)

    def test_at_the_start_is_a_configuration_failure(self):
        with FaultyCamera() as camera:
            camera.start_fault("write_refusal")
            with Recording(configuration()) as recording:
                self.assertEqual(recording.finish(), 4, recording.log)
                self.assertIn("the camera could not be configured (exit code -2)", recording.log)


class TimestampJump(unittest.TestCase):
    def test_backwards_is_logged_and_followed(self):
        with FaultRecording(self, camera=("--first-tick", "1000000000000")) as run:
            fault = run.camera.start_fault("timestamp_jump", offset_s=-100)
            run.recording.wait_for_log("bTS wrap is detected")
            run.recover()
            run.camera.stop_fault(fault)
            run.recover()
            balance = run.finish()
        balance.check(self)
        self.assert_host_time(balance)

    def assert_host_time(self, balance):
        """The frames' timestamps are close to host time, regardless of changes of the camera's clock."""
        delays = [line["handed_over_us"] - line["timestamp_us"] for line in balance.frames[20:]]
        self.assertLess(max(map(abs, delays)), 10e6)


class TimestampWrap(unittest.TestCase):
    def test_is_logged_each_time_and_followed(self):
        with FaultRecording(self) as run:
            fault = run.camera.start_fault("timestamp_wrap", bits=30)  # wraps after a little more than a second
            run.recording.wait_while_running(lambda: run.recording.log.count("bTS wrap is detected") >= 4, "four wraps")
            run.camera.stop_fault(fault)
            run.recover()
            balance = run.finish()
        balance.check(self)
        wraps = re.findall(r"bTS wrap is detected: old (\d+)us, new (\d+)us", balance.log)
        self.assertTrue(all(int(old) > int(new) for old, new in wraps))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
