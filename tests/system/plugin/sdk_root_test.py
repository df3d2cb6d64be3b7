# SPDX-License-Identifier: MIT
"""Builds the plug-in with an installed SDK, which has headers and six libraries. Here they are those of the scripted SDK."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.environ["MG_SOURCE_DIR"]
HEADERS = os.environ["MG_SDK_HEADERS"]
LIBRARIES = os.environ["MG_SDK_LIBRARIES"].split(":")
SIX = {"libPvBase.so", "libPvDevice.so", "libPvBuffer.so", "libPvGenICam.so", "libPvStream.so", "libPvSystem.so"}


class InstalledSdk(unittest.TestCase):
    def setUp(self):
        self.root = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.root)
        sdk = self.root / "sdk"
        shutil.copytree(HEADERS, sdk / "include")
        # An SDK promises its class headers; where it defines its enumerations is its own matter.
        (sdk / "include" / "PvTypes.h").rename(sdk / "include" / "AnotherName.h")
        for header in (sdk / "include").iterdir():
            header.write_text(header.read_text().replace("<PvTypes.h>", "<AnotherName.h>"))
        (sdk / "lib").mkdir()
        for library in LIBRARIES:
            shutil.copy(library, sdk / "lib")
        self.assertTrue(SIX <= {path.name for path in (sdk / "lib").iterdir()})
        self.sdk = sdk
        self.build = self.root / "build"

    def cmake(self, *arguments):
        # Without pkg-config files CMake finds neither Aravis nor the libraries of the host and the simulator.
        environment = dict(os.environ, PKG_CONFIG_LIBDIR="/nonexistent", PKG_CONFIG_PATH="")
        done = subprocess.run(["cmake", *arguments], env=environment, capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return done.stdout

    def test_the_target_mgjai_needs_only_the_sdk(self):
        self.cmake("-G", "Ninja", "-S", SOURCE, "-B", str(self.build), f"-DMG_SDK_ROOT={self.sdk}", "-DMG_WERROR=ON",
                   "-DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON", "-DCMAKE_DISABLE_FIND_PACKAGE_TIFF=ON")
        self.cmake("--build", str(self.build), "--target", "mgjai")
        plugin = self.build / "lib" / "libmgjai.so"
        needed = subprocess.run(["readelf", "--dynamic", plugin], check=True, capture_output=True, text=True).stdout
        for library in SIX:
            self.assertIn(f"[{library}]", needed)
        self.assertNotIn("aravis", needed)
        # The system log keeps a pointer into the plug-in, so it must stay loaded, with any SDK.
        self.assertRegex(needed, r"\(FLAGS_1\).*NODELETE")
        started = subprocess.run([plugin], capture_output=True, text=True, timeout=30)
        self.assertEqual(started.returncode, 0, started.stderr)
        self.assertRegex(started.stdout, r"^Version: 0\.37\.28-[0-9a-f]{40}\n$")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "--verbose"])
