# SPDX-License-Identifier: MIT
"""The product is configured on a machine without the packages of the tests.

The source directory is in the environment variable MG_SOURCE_DIR.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

TEST_PACKAGES = ("GTest", "rapidcheck", "benchmark", "Python3")
TEST_MODULES = ("cpp-httplib",)


class Configure(unittest.TestCase):
    def configure(self, *options):
        """Configures the project with a CMake and a pkg-config that do not find the packages of the tests."""
        with tempfile.TemporaryDirectory() as directory:
            wrapper = pathlib.Path(directory) / "pkg-config"
            refused = "|".join(f"*{module}*" for module in TEST_MODULES)
            wrapper.write_text(f"#!/bin/sh\ncase \"$*\" in {refused}) exit 1 ;; esac\nexec {shutil.which('pkg-config')} \"$@\"\n")
            wrapper.chmod(0o755)
            return subprocess.run(
                ["cmake", "-G", "Ninja", "-S", os.environ["MG_SOURCE_DIR"], "-B", f"{directory}/build",
                 f"-DPKG_CONFIG_EXECUTABLE={wrapper}", *(f"-DCMAKE_DISABLE_FIND_PACKAGE_{name}=ON" for name in TEST_PACKAGES),
                 *options], capture_output=True, text=True, timeout=240)

    def test_without_tests_needs_none_of_their_packages(self):
        done = self.configure("-DMG_TESTS=OFF")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_with_tests_needs_them(self):
        """Proves that the other test hides the packages."""
        done = self.configure("-DMG_TESTS=ON")
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("GTest", done.stderr)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
