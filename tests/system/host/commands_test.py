"""What mediagrabber's commands print, and what they end with."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

from host_process import DEMANDING, FAKE_PLUGIN, INCOMPLETE, command

USAGE = 2
UNFIT = 10


class CommandLine(unittest.TestCase):
    def test_that_asks_for_nothing_gets_help_and_the_usage_status(self):
        done = command()
        self.assertEqual(done.returncode, USAGE)
        self.assertIn("Exit status:", done.stderr)

    def test_that_asks_for_help_succeeds(self):
        for arguments in (["--help"], ["run", "--help"], ["check", "--help"], ["cameras", "--help"]):
            with self.subTest(arguments):
                self.assertEqual(command(*arguments).returncode, 0)

    def test_that_is_wrong_is_refused_with_the_usage_status(self):
        for arguments in (["record"], ["run"], ["run", "--config"], ["check"], ["--frames", "5"], ["cameras", "x"],
                          ["run", "--config", "x", "--frames", "-1"], ["run", "--config", "x", "--frames", "4294967295"],
                          ["run", "--config", "x", "--frames", "ten"]):
            with self.subTest(arguments):
                done = command(*arguments)
                self.assertEqual(done.returncode, USAGE, done.stdout + done.stderr)
                self.assertNotEqual(done.stderr, "")

    def test_that_asks_for_the_version_gets_that_of_the_plugin_too(self):
        done = command("--version", "--plugin", FAKE_PLUGIN)
        self.assertEqual(done.returncode, 0)
        self.assertRegex(done.stdout, r"\Amediagrabber [0-9.]+\nplug-in fake 1\.0 \(.*\)\n\Z")

    def test_that_asks_for_the_keys_gets_the_table_of_them(self):
        done = command("keys")
        self.assertEqual(done.returncode, 0)
        self.assertIn("\n| `image.width` | an integer from 1 to 65535 | pixels | as the camera has it |", done.stdout)


class Check(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.file = pathlib.Path(self.directory.name) / "run.toml"

    def tearDown(self):
        self.directory.cleanup()

    def check(self, text):
        self.file.write_text(text)
        return command("check", self.file)

    def test_shows_the_values_in_force_and_where_they_come_from(self):
        done = self.check("[image]\nwidth = 640\n")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertRegex(done.stdout, rf"(?m)^image\.width = 640 +# {self.file}:2:9, pixels$")
        self.assertRegex(done.stdout, r"(?m)^memory\.buffers = 16 +# default, frames$")
        self.assertRegex(done.stdout, r"(?m)^# image\.height +# not configured: as the camera has it$")

    def test_refuses_a_bad_file_with_every_place(self):
        done = self.check("[image]\nwidth = 0\nheigth = 480\n")
        self.assertEqual(done.returncode, USAGE)
        self.assertEqual(done.stdout, "")
        self.assertIn(f"{self.file}:2:9: image.width: 0 is refused, expected an integer from 1 to 65535 (pixels)\n",
                      done.stderr)
        self.assertIn(f"{self.file}:3:1: image.heigth: unknown, expected one of ", done.stderr)

    def test_refuses_what_is_no_toml(self):
        done = self.check("[image\n")
        self.assertEqual(done.returncode, USAGE)
        self.assertRegex(done.stderr, rf"{self.file}:1:\d+: ")

    def test_refuses_what_is_no_readable_file(self):
        fifo = pathlib.Path(self.directory.name) / "fifo"
        os.mkfifo(fifo)
        for file, why in ((self.file, "No such file or directory"), (fifo, "is not a regular file"),
                          (self.directory.name, "is not a regular file")):
            with self.subTest(file):
                done = command("check", file)
                self.assertEqual(done.returncode, USAGE)
                self.assertIn(f"{file}: ", done.stderr)
                self.assertIn(why, done.stderr)


class Cameras(unittest.TestCase):
    def test_are_listed_as_the_plugin_reports_them(self):
        done = command("--plugin", FAKE_PLUGIN, "cameras", script="devices 2; exit 3")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(done.stdout, "camera 0\n  DeviceModel: Fake 0\n  DeviceSerial: F000\n"
                                      "camera 1\n  DeviceModel: Fake 1\n  DeviceSerial: F001\n")

    def test_that_are_not_there_have_a_status_of_their_own(self):
        done = command("--plugin", FAKE_PLUGIN, "cameras", script="exit 2")
        self.assertEqual(done.returncode, 3)
        self.assertEqual(done.stdout, "no camera found\n")

    def test_of_a_plugin_that_reports_something_else_are_a_failure(self):
        for script in ("devices 2; exit -5", "exit 3", "devices 1; exit 0"):
            with self.subTest(script):
                done = command("--plugin", FAKE_PLUGIN, "cameras", script=script)
                self.assertEqual(done.returncode, 4)
                self.assertIn("is not understood", done.stdout)


class Plugin(unittest.TestCase):
    def test_that_cant_be_used_is_refused_with_the_reason(self):
        with tempfile.NamedTemporaryFile(mode="w", suffix=".so") as text, tempfile.TemporaryDirectory() as directory:
            text.write("this is no library\n")
            text.flush()
            configuration = pathlib.Path(directory) / "run.toml"
            configuration.write_text("")
            for file, why in (("/nowhere/libplugin.so", "/nowhere/libplugin.so: cannot open shared object file"),
                              (text.name, f"the plug-in can't be loaded: {text.name}"),
                              (INCOMPLETE, "is no plug-in for mediagrabber: it has no MgLibGetVer"),
                              (DEMANDING, "undefined symbol: MgGi__UnheardOf")):
                for arguments in (["cameras"], ["--version"],
                                  ["run", "--config", configuration, "--output", pathlib.Path(directory) / "frames"]):
                    with self.subTest(file=file, arguments=arguments):
                        done = command("--plugin", file, *arguments)
                        self.assertEqual(done.returncode, USAGE, done.stdout + done.stderr)
                        self.assertIn(why, done.stderr)
            self.assertFalse((pathlib.Path(directory) / "frames").exists())



class Doctor(unittest.TestCase):
    def test_says_what_would_lose_frames_and_how_it_is_mended(self):
        subprocess.run(["ip", "link", "set", "lo", "mtu", "1000"], check=True)
        with tempfile.TemporaryDirectory() as place:
            file = pathlib.Path(place) / "run.toml"
            file.write_text("transport.packet_size = 1400\n")
            found = command("doctor", "--config", file, "--output", pathlib.Path(place) / "frames")
            self.assertEqual(found.returncode, UNFIT, found.stdout + found.stderr)
            self.assertIn("BAD      lo: packet size (MTU): 1000 bytes\n", found.stdout)
            self.assertIn("         ip link set dev lo mtu 1400\n", found.stdout)
            self.assertRegex(found.stdout, rf"disk of {place}: \d+ MB/s")
            self.assertEqual(list(pathlib.Path(place).iterdir()), [file])

    def test_measures_no_disk_that_no_frame_is_written_to(self):
        with tempfile.NamedTemporaryFile("w", suffix=".toml") as file:
            file.write('output.format = "none"\n')
            file.flush()
            self.assertNotIn("disk of", command("doctor", "--config", file.name).stdout)

    def test_refuses_an_interface_that_is_not_there(self):
        refused = command("doctor", "--interface", "eth9")
        self.assertEqual(refused.returncode, USAGE)
        self.assertIn("there is no network interface eth9 that is up and has an IPv4 address", refused.stderr)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
