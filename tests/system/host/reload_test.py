"""SIGHUP: the file is read again, and what has changed comes into force."""

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

    def test_brings_a_value_into_force_while_frames_arrive(self):
        with Recording("grab", configuration="timing.frame_rate = 25") as recording:
            recording.wait_for_frames(3)
            self.reload(recording, "timing.frame_rate = 50")
            recording.wait_for_log("reconfigured 0 exit 0 width -1 rate 50.0\n")
            self.assertIn("reload: changed timing.frame_rate\n", recording.log)
            recording.wait_for_frames(len(recording.journal()) + 3)
            self.stop(recording)
            self.assertEqual(recording.log.count("run "), 1, recording.log)

    def test_brings_every_value_into_force_that_the_plugin_asks_for(self):
        with Recording("grab") as recording:
            recording.wait_for_frames(3)
            self.reload(recording, "[gain]\nmode = \"manual\"\ndb = 2\n[log]\nlevel = \"debug\"\n")
            recording.wait_for_log("reload: changed gain.mode gain.db log.level\n")
            recording.wait_for_log("reconfigured 0 exit 0")
            self.stop(recording)

    def test_begins_another_run_where_it_takes_one(self):
        for text, changed in (("image.format = \"mono12\"", "image.format"), ("image.width = 320", "image.width"),
                              ("memory.buffers = 5", "memory.buffers")):
            with self.subTest(changed), Recording("grab") as recording:
                recording.wait_for_frames(3)
                self.reload(recording, text)
                recording.wait_for_log("run 1 ")
                self.assertIn(f"reload: changed {changed}; another run begins with it\n", recording.log)
                self.assertIn("reconfigured 0 exit 1", recording.log)
                recording.wait_for_frames(len(recording.journal()) + 3)
                self.stop(recording)
                self.assertEqual([frame["frame"] for frame in recording.journal()],
                                 list(range(1, len(recording.journal()) + 1)))

    def test_of_a_faulty_file_tells_its_place_and_changes_nothing(self):
        with Recording("grab", configuration="timing.frame_rate = 25") as recording:
            recording.wait_for_frames(3)
            for text, complaint in (("timing.frame_rate = 0", ":2:21: timing.frame_rate: 0 is refused, expected "),
                                    ("timing.rate = 5", ":2:8: timing.rate: unknown, expected one of "),
                                    ("[timing", ":2:")):
                self.reload(recording, text)
                recording.wait_for_log(str(recording.configuration_path) + complaint)
            recording.configuration_path.unlink()
            recording.signal(signal.SIGHUP)
            recording.wait_for_log(f"{recording.configuration_path}: can't be opened: No such file or directory")
            recording.wait_for_log("reconfigured -1 exit 0 width -1 rate 25.0\n")
            self.assertIn("the configuration is not reloaded, the old one stays in force", recording.log)
            recording.wait_for_frames(len(recording.journal()) + 3)
            self.stop(recording)
            self.assertNotIn("run 1 ", recording.log)

    def test_says_what_has_to_wait_for_the_next_start(self):
        with Recording("grab") as recording:
            recording.wait_for_frames(3)
            self.reload(recording, "output.compression = \"lzw\"\nrun.grace_time_s = 1\n")
            recording.wait_for_log("these wait until mediagrabber is started again: run.grace_time_s output.compression\n")
            recording.wait_for_log("reconfigured 0 exit 0")
            self.stop(recording)

    def test_leaves_what_the_command_line_says(self):
        with Recording("grab 5", "--frames", 50) as recording:
            recording.wait_for_frames(3)
            self.reload(recording, "run.frames = 5\noutput.directory = \"elsewhere\"\n")
            recording.wait_for_log("reload: nothing has changed\n")
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertEqual(len(recording.journal()), 50)

    def test_remarks_upon_values_without_effect(self):
        with Recording("grab") as recording:
            recording.wait_for_frames(3)
            self.reload(recording, "gain.db = 3")
            recording.wait_for_log("gain.db has no effect: it needs gain.mode = \"manual\"\n")
            self.stop(recording)

    def test_ends_the_pause_after_a_failure(self):
        waiting = "run.give_up_after = \"never\"\nrun.retry_interval_s = 86400\n"
        with Recording("exit 3\ngrab", configuration=waiting) as recording:
            recording.wait_for_log("the configured camera was not found")
            self.reload(recording, waiting + "image.width = 32")
            recording.wait_for_log("buffers 16 width 32")
            recording.wait_for_frames(3)
            self.stop(recording)

    def test_that_the_camera_does_not_take_is_taken_back(self):
        with Recording("grab\nexit -2\ngrab", configuration="image.width = 64") as recording:
            recording.wait_for_frames(3)
            before = len(recording.journal())
            self.reload(recording, "image.width = 128")
            recording.wait_for_log("(exit code -2): going back to the configuration before the reload\n")
            recording.wait_for_frames(before + 10)
            self.stop(recording)
            self.assertEqual(recording.log.count("buffers 16 width 64 "), 2, recording.log)

    def test_is_taken_back_once_and_no_more(self):
        with Recording("grab\nexit -2") as recording:
            recording.wait_for_frames(3)
            self.reload(recording, "image.width = 128")
            self.assertEqual(recording.finish(), RUN_FAILED, recording.log)
            self.assertEqual(recording.log.count("going back"), 1, recording.log)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
