# SPDX-License-Identifier: MIT
"""Completion of commands, options, features and entries in Bash."""

import os
import subprocess
import unittest

from camera_process import Camera
from gevctl import GEVCTL

COMPLETION = os.environ["GEVCTL_COMPLETION"]


class Completion(unittest.TestCase):
    def complete(self, *words):
        """The completions of the last word."""
        script = ("source /usr/share/bash-completion/bash_completion; source \"$1\"; shift; COMP_WORDS=(\"$@\");"
                  " COMP_LINE=\"$*\"; COMP_POINT=${#COMP_LINE}; COMP_CWORD=$(($# - 1)); compopt() { :; };"
                  " _gevctl \"$1\" \"${@: -1}\" \"${@: -2:1}\"; printf '%s\\n' \"${COMPREPLY[@]}\"")
        done = subprocess.run(["bash", "-c", script, "bash", COMPLETION, GEVCTL, *words], capture_output=True, text=True,
                              timeout=60)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout.split()

    def test_offers_commands_and_options(self):
        self.assertEqual(self.complete("forc"), ["force-ip"])
        self.assertIn("clock", self.complete(""))
        self.assertEqual(self.complete("apply", "--dr"), ["--dry-run"])
        self.assertEqual(self.complete("features", "--visibility", "e"), ["expert"])

    def test_offers_features_of_the_camera(self):
        with Camera():
            self.assertEqual(self.complete("get", "127.0.0.1", "PixelF"), ["PixelFormat"])
            self.assertEqual(self.complete("get", "WidthM"), ["WidthMax"])
            self.assertEqual(self.complete("get", "Height", "WidthM"), ["WidthMax"])
            self.assertEqual(self.complete("set", "127.0.0.1", "PixelF"), ["PixelFormat="])

    def test_offers_entries_that_are_available(self):
        with Camera("--missing-entry", "PixelFormat=Mono12"):
            self.assertEqual(self.complete("set", "127.0.0.1", "PixelFormat=Mono1"), ["Mono12Packed"])
            self.assertEqual(self.complete("user-set", "127.0.0.1", "UserSet1"), ["UserSet1"])

    def test_offers_nothing_without_a_camera(self):
        self.assertEqual(self.complete("get", "PixelF"), [])


if __name__ == "__main__":
    unittest.main()
