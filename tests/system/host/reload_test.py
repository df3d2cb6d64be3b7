# SPDX-License-Identifier: MIT
"""SIGHUP reads the configuration file again and applies the changes."""

import signal
import sys
import unittest

from host_process import Recording

SUCCESS, USAGE, RUN_FAILED = 0, 2, 4


class Reload(unittest.TestCase):
    def reload(self, recording, text):
        recording.configure(text)
        recording.signal(signal.SIGHUP)

    def stop(self, recording):
        recording.signal(signal.SIGTERM)
        self.assertEqual(recording.finish(), SUCCESS, recording.log)

    def test_applies_a_value_while_frames_arrive(self):
        with Recording("grab", configuration="timing.frame_rate_hz = 25") as recording:
            recording.wait_for_frames(3)
            self.reload(recording, "timing.frame_rate_hz = 50")
            recording.wait_for_log("reconfigured 0 exit 0 width -1 rate 50.0\n")
            recording.wait_for_log("reload: changed timing.frame_rate_hz\n")
            recording.wait_for_frames(len(recording.frame_index()) + 3)
            self.stop(recording)
            self.assertEqual(recording.log.count("run "), 1, recording.log)

    def test_applies_every_value_that_the_plugin_reads(self):
        with Recording("grab") as recording:
            recording.wait_for_frames(3)
            self.reload(recording, "[gain]\nauto = \"Off\"\ndb = 2\n[log]\nlevel = \"debug\"\n")
            recording.wait_for_log("reload: changed gain.auto gain.db log.level\n")
            recording.wait_for_log("reconfigured 0 exit 0")
            self.stop(recording)

    def test_restarts_the_acquisition_where_needed(self):
        for text, changed in (("image.format = \"Mono12\"", "image.format"), ("image.width = 320", "image.width"),
                              ("memory.buffers = 5", "memory.buffers")):
            with self.subTest(changed), Recording("grab") as recording:
                recording.wait_for_frames(3)
                self.reload(recording, text)
                recording.wait_for_log("run 1 ")
                recording.wait_for_log(f"reload: changed {changed}; restarting acquisition\n")
                recording.wait_for_log("reconfigured 0 exit 1")
                recording.wait_for_frames(len(recording.frame_index()) + 3)
                self.stop(recording)
                self.assertEqual([frame["frame"] for frame in recording.frame_index()],
                                 list(range(1, len(recording.frame_index()) + 1)))

    def test_of_an_invalid_file_reports_the_location_and_changes_nothing(self):
        with Recording("grab", configuration="timing.frame_rate_hz = 25") as recording:
            recording.wait_for_frames(3)
            for number, (text, complaint) in enumerate((
                    ("timing.frame_rate_hz = 0", ":2:24: timing.frame_rate_hz: 0 is not valid, expected "),
                    ("timing.rate = 5", ":2:8: timing.rate: unknown key, expected one of "),
                    ("[timing", ":2:"), (None, ": cannot be opened: No such file or directory")), 1):
                if text is None:
                    recording.configuration_path.unlink()
                    recording.signal(signal.SIGHUP)
                else:
                    self.reload(recording, text)
                recording.wait_for_log(str(recording.configuration_path) + complaint)
                recording.wait_for_log("configuration not reloaded; the previous one stays active", times=number)
                recording.wait_for_log("reconfigured -1 exit 0 width -1 rate 25.0\n", times=number)
            recording.wait_for_frames(len(recording.frame_index()) + 3)
            self.stop(recording)
            self.assertNotIn("run 1 ", recording.log)

    def test_of_invalid_values_of_page_broker_and_sockets_is_refused_as_a_whole(self):
        with Recording("grab", configuration="timing.frame_rate_hz = 25") as recording:
            recording.wait_for_frames(3)
            values = (("web.address = \"8080\"", ":2:15: web.address: \"8080\" is not valid"),
                      ("web.address = \"0.0.0.0:8080\"", ":2:15: web.address: 0.0.0.0:8080 is reachable from other machines"),
                      ("web.public_origin = \"x\"", ":2:21: web.public_origin: \"x\" is not an origin"),
                      ("mqtt.broker = \"x\"", ":2:15: mqtt.broker: "), ("mqtt.topic = \"a/#\"", ":2:14: mqtt.topic: "),
                      ("ring.socket = 5", ":2:15: ring.socket: 5 is not valid"),
                      ("ring.group = \"none such\"", ":2:14: ring.group: there is no group"),
                      ("control.group = \"none such\"", ":2:17: control.group: there is no group"))
            for number, (text, complaint) in enumerate(values, 1):
                self.reload(recording, text + "\ntiming.frame_rate_hz = 50\n")
                recording.wait_for_log(str(recording.configuration_path) + complaint)
                recording.wait_for_log("configuration not reloaded; the previous one stays active", times=number)
                recording.wait_for_log("reconfigured -1 exit 0 width -1 rate 25.0\n", times=number)
            recording.wait_for_frames(len(recording.frame_index()) + 3)
            self.stop(recording)

    def test_reports_values_that_need_a_new_start(self):
        with Recording("grab") as recording:
            recording.wait_for_frames(3)
            self.reload(recording, "output.compression = \"lzw\"\nrun.grace_time_s = 1\n")
            recording.wait_for_log("these keys take effect at the next start: run.grace_time_s output.compression\n")
            recording.wait_for_log("reconfigured 0 exit 0")
            self.stop(recording)

    def test_does_not_override_the_command_line(self):
        with Recording("frames 4; await GATE; frames 100", "--frames", 50) as recording:
            recording.wait_for_frames(3)
            self.reload(recording, "run.frames = 5\noutput.directory = \"elsewhere\"\n")
            recording.open_gate()
            recording.wait_for_log("reload: no changes\n")
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertEqual(len(recording.frame_index()), 50)

    def test_warns_about_values_without_effect(self):
        with Recording("grab") as recording:
            recording.wait_for_frames(3)
            self.reload(recording, "gain.db = 3")
            recording.wait_for_log("gain.db has no effect: it requires gain.auto = \"Off\"\n")
            self.stop(recording)

    def test_ends_the_wait_after_a_failure(self):
        waiting = "run.give_up_after = \"never\"\nrun.retry_interval_s = 86400\n"
        with Recording("exit 3\ngrab", configuration=waiting) as recording:
            recording.wait_for_log("the configured camera was not found")
            self.reload(recording, waiting + "image.width = 32")
            recording.wait_for_log("buffers 16 width 32")
            recording.wait_for_frames(3)
            self.stop(recording)

    def test_that_the_camera_refuses_is_rolled_back(self):
        with Recording("grab\nexit -2\ngrab", configuration="image.width = 64") as recording:
            recording.wait_for_frames(3)
            self.reload(recording, "image.width = 128")
            recording.wait_for_log("(exit code -2): rolling back to the configuration before the reload\n")
            recording.wait_for_log("buffers 16 width 64 ", times=2)
            recording.wait_for_frames(len(recording.frame_index()) + 10)
            self.stop(recording)
            self.assertEqual(recording.log.count("buffers 16 width 64 "), 2, recording.log)

    def test_is_rolled_back_only_once(self):
        with Recording("grab\nexit -2") as recording:
            recording.wait_for_frames(3)
            self.reload(recording, "image.width = 128")
            self.assertEqual(recording.finish(), RUN_FAILED, recording.log)
            self.assertEqual(recording.log.count("rolling back"), 1, recording.log)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
