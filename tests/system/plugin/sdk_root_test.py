"""The plug-in's sources against an installed SDK: headers and six libraries, here those of the scripted SDK."""

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
        (sdk / "lib").mkdir()
        for library in LIBRARIES:
            shutil.copy(library, sdk / "lib")
        self.assertTrue(SIX <= {path.name for path in (sdk / "lib").iterdir()})
        self.sdk = sdk
        self.build = self.root / "build"

    def cmake(self, *arguments):
        # Neither Aravis nor any library of the host or the simulator is to be found: no package file, no module.
        nowhere = dict(os.environ, PKG_CONFIG_LIBDIR="/nonexistent", PKG_CONFIG_PATH="")
        ended = subprocess.run(["cmake", *arguments], env=nowhere, capture_output=True, text=True)
        self.assertEqual(ended.returncode, 0, ended.stdout + ended.stderr)
        return ended.stdout

    def test_the_target_mgjai_is_built_with_nothing_else(self):
        self.cmake("-G", "Ninja", "-S", SOURCE, "-B", str(self.build), f"-DMG_SDK_ROOT={self.sdk}", "-DMG_WERROR=ON",
                   "-DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON", "-DCMAKE_DISABLE_FIND_PACKAGE_TIFF=ON")
        self.cmake("--build", str(self.build), "--target", "mgjai")
        plugin = self.build / "lib" / "libmgjai.so"
        needed = subprocess.run(["readelf", "--dynamic", plugin], check=True, capture_output=True, text=True).stdout
        for library in SIX:
            self.assertIn(f"[{library}]", needed)
        self.assertNotIn("aravis", needed)
        started = subprocess.run([plugin], capture_output=True, text=True, timeout=30)
        self.assertEqual(started.returncode, 0, started.stderr)
        self.assertRegex(started.stdout, r"^Version: 0\.37\.28-[0-9a-f]{40}\n$")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "--verbose"])
