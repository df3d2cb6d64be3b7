# SPDX-License-Identifier: MIT
"""Output and exit status of mediagrabber's commands."""

import json
import os
import pathlib
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest
from unittest import mock

from camera_process import Camera
from host_process import DEMANDING, FAKE_PLUGIN, INCOMPLETE, MEDIAGRABBER, command

USAGE = 2
UNFIT = 10
UNAVAILABLE = 11


class CommandLine(unittest.TestCase):
    def test_without_arguments_prints_the_help_and_is_a_usage_error(self):
        done = command()
        self.assertEqual(done.returncode, USAGE)
        self.assertIn("Exit status:", done.stderr)

    def test_with_help_option_succeeds(self):
        for arguments in (["--help"], ["run", "--help"], ["check", "--help"], ["cameras", "--help"]):
            with self.subTest(arguments):
                self.assertEqual(command(*arguments).returncode, 0)

    def test_that_is_invalid_is_a_usage_error(self):
        for arguments in (["record"], ["run"], ["run", "--config"], ["check"], ["--frames", "5"], ["cameras", "x"],
                          ["run", "--config", "x", "--frames", "-1"], ["run", "--config", "x", "--frames", "4294967295"],
                          ["run", "--config", "x", "--frames", "ten"]):
            with self.subTest(arguments):
                done = command(*arguments)
                self.assertEqual(done.returncode, USAGE, done.stdout + done.stderr)
                self.assertNotEqual(done.stderr, "")

    def test_prints_the_versions_of_program_and_plugin(self):
        done = command("--version", "--plugin", FAKE_PLUGIN)
        self.assertEqual(done.returncode, 0)
        self.assertRegex(done.stdout, r"\Amediagrabber [0-9.]+\nplug-in fake 1\.0 \(.*\)\n\Z")

    def test_prints_its_version_without_a_plugin(self):
        with tempfile.TemporaryDirectory() as place:
            program = shutil.copy(MEDIAGRABBER, place)
            done = subprocess.run([program, "--version"], capture_output=True, text=True)
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertRegex(done.stdout, rf"\Amediagrabber [0-9.]+\nthe plug-in cannot be loaded: .*; looked for {place}/libmgjai\.so, .*/lib/mediagrabber/libmgjai\.so,"
                                          " and on the search path of the dynamic loader; --plugin names another file\n\\Z")
        done = command("--version", "--plugin", INCOMPLETE)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("is not a plug-in for mediagrabber", done.stdout)

    def test_prints_the_table_of_configuration_keys(self):
        done = command("keys")
        self.assertEqual(done.returncode, 0)
        self.assertIn("\n| `image.width` | an integer from 1 to 65535 | pixels | as set in the camera |", done.stdout)


class Check(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.file = pathlib.Path(self.directory.name) / "run.toml"

    def tearDown(self):
        self.directory.cleanup()

    def check(self, text):
        self.file.write_text(text)
        return command("check", self.file)

    def test_shows_active_values_and_their_origin(self):
        done = self.check("[image]\nwidth = 640\n")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertRegex(done.stdout, rf"(?m)^image\.width = 640 +# {self.file}:2:9, pixels$")
        self.assertRegex(done.stdout, r"(?m)^memory\.buffers = 16 +# default, frames$")
        self.assertRegex(done.stdout, r"(?m)^# image\.height +# not configured: as set in the camera$")

    def test_refuses_an_invalid_file_with_each_error_location(self):
        done = self.check("[image]\nwidth = 0\nheigth = 480\n")
        self.assertEqual(done.returncode, USAGE)
        self.assertEqual(done.stdout, "")
        self.assertIn(f"{self.file}:2:9: image.width: 0 is not valid, expected an integer from 1 to 65535 (pixels)\n",
                      done.stderr)
        self.assertIn(f"{self.file}:3:1: image.heigth: unknown key, expected one of ", done.stderr)

    def test_prints_the_same_to_programs(self):
        self.file.write_text("[image]\nwidth = 640\n")
        found = json.loads(command("check", "--json", self.file).stdout)
        self.assertEqual(found["values"]["image.width"], {"value": 640, "unit": "pixels", "origin": {"line": 2, "column": 9}})
        self.file.write_text("[image]\nwidth = 0\n")
        done = command("check", "--json", self.file)
        self.assertEqual(done.returncode, USAGE)
        error, = json.loads(done.stdout)["errors"]
        self.assertEqual((error["line"], error["column"]), (2, 9))

    def test_accepts_the_default_configuration(self):
        sample = command("check", "--print-default")
        self.assertEqual(sample.returncode, 0, sample.stderr)
        done = self.check(sample.stdout)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertNotIn(str(self.file), done.stdout, "every value is a default")

    def test_refuses_invalid_toml(self):
        done = self.check("[image\n")
        self.assertEqual(done.returncode, USAGE)
        self.assertRegex(done.stderr, rf"{self.file}:1:\d+: ")

    def test_refuses_unreadable_files(self):
        fifo = pathlib.Path(self.directory.name) / "fifo"
        os.mkfifo(fifo)
        for file, why in ((self.file, "No such file or directory"), (fifo, "is not a regular file"),
                          (self.directory.name, "is not a regular file")):
            with self.subTest(file):
                done = command("check", file)
                self.assertEqual(done.returncode, USAGE)
                self.assertIn(f"{file}: ", done.stderr)
                self.assertIn(why, done.stderr)


class ConfigurationByName(unittest.TestCase):
    def setUp(self):
        home = self.enterContext(tempfile.TemporaryDirectory())
        self.enterContext(mock.patch.dict(os.environ, XDG_CONFIG_HOME=home))
        self.directory = pathlib.Path(home) / "mediagrabber"
        self.directory.mkdir()
        (self.directory / "left.toml").write_text("image.width = 640\noutput.directory = \"data\"\n")

    def test_is_found_in_the_directory_of_the_user(self):
        done = command("check", "left")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertRegex(done.stdout, rf"(?m)^image\.width = 640 +# {self.directory}/left\.toml:1:15, pixels$")
        self.assertIn(f"output.directory = \"{self.directory}/data\"", done.stdout)

    def test_is_found_in_the_directory_of_the_machine(self):
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/etc"], check=True)
        system = pathlib.Path("/etc/mediagrabber")
        system.mkdir()
        (system / "door.toml").write_text("image.width = 320\n")
        (system / "left.toml").write_text("image.width = 320\n")
        self.assertIn("image.width = 320", command("check", "door").stdout)
        self.assertIn("image.width = 640", command("check", "left").stdout, "the user's comes first")

    def test_is_that_of_the_environment_if_none_is_given(self):
        with mock.patch.dict(os.environ, MEDIAGRABBER_CONFIG="left"):
            self.assertIn("image.width = 640", command("check").stdout)
            recorded = command("run", "--plugin", FAKE_PLUGIN, "--frames", 3)
            self.assertEqual(recorded.returncode, 0, recorded.stderr)
            self.assertEqual(len((self.directory / "data/frames.jsonl").read_text().splitlines()), 3)

    def test_that_does_not_exist_is_reported_with_the_places(self):
        for arguments in (["check", "right"], ["run", "--config", "right"], ["doctor", "--config", "right"], ["calibrate", "--config", "right"]):
            with self.subTest(arguments):
                done = command(*arguments)
                self.assertEqual(done.returncode, USAGE)
                self.assertEqual(done.stderr, f"mediagrabber: right: no such configuration; looked for {pathlib.Path.cwd()}/right, "
                                              f"{self.directory}/right.toml, /etc/mediagrabber/right.toml\n")

    def test_is_required(self):
        for arguments, what in ((["check"], "FILE"), (["run"], "--config")):
            done = command(*arguments)
            self.assertEqual(done.returncode, USAGE)
            self.assertIn(f"{what} is required: a file, or the name of one", done.stderr)


class Cameras(unittest.TestCase):
    def test_are_listed_as_the_plugin_reports_them(self):
        done = command("--plugin", FAKE_PLUGIN, "cameras", script="devices 2; exit 3")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(done.stdout, "camera 0\n  DeviceModel: Fake 0\n  DeviceSerial: F000\n"
                                      "camera 1\n  DeviceModel: Fake 1\n  DeviceSerial: F001\n")

    def test_are_listed_for_programs(self):
        done = command("--plugin", FAKE_PLUGIN, "cameras", "--json", script="devices 2; exit 3")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(json.loads(done.stdout), [{"index": i, "properties": {"DeviceModel": f"Fake {i}", "DeviceSerial": f"F00{i}"}}
                                                   for i in range(2)])
        done = command("--plugin", FAKE_PLUGIN, "cameras", "--json", script="exit 2")
        self.assertEqual((done.returncode, json.loads(done.stdout)), (3, []))

    def test_have_their_own_status_if_none_is_found(self):
        done = command("--plugin", FAKE_PLUGIN, "cameras", script="exit 2")
        self.assertEqual(done.returncode, 3)
        self.assertEqual(done.stdout, "no camera found\n")

    def test_are_a_failure_if_the_plugin_reports_something_else(self):
        for script in ("devices 2; exit -5", "exit 3", "devices 1; exit 0"):
            with self.subTest(script):
                done = command("--plugin", FAKE_PLUGIN, "cameras", script=script)
                self.assertEqual(done.returncode, 4)
                self.assertIn("unexpected report of the plug-in", done.stdout)


class Plugin(unittest.TestCase):
    def test_that_is_unusable_is_refused_with_the_reason(self):
        with tempfile.NamedTemporaryFile(mode="w", suffix=".so") as text, tempfile.TemporaryDirectory() as directory:
            text.write("not a library\n")
            text.flush()
            configuration = pathlib.Path(directory) / "run.toml"
            configuration.write_text("")
            for file, why in (("/nowhere/libplugin.so", "/nowhere/libplugin.so: cannot open shared object file"),
                              (text.name, f"the plug-in cannot be loaded: {text.name}"),
                              (INCOMPLETE, "is not a plug-in for mediagrabber: symbol MgLibGetVer is missing"),
                              (DEMANDING, "undefined symbol: MgGi__UnheardOf")):
                for arguments in (["cameras"],
                                  ["run", "--config", configuration, "--output", pathlib.Path(directory) / "frames"]):
                    with self.subTest(file=file, arguments=arguments):
                        done = command("--plugin", file, *arguments)
                        self.assertEqual(done.returncode, UNAVAILABLE, done.stdout + done.stderr)
                        self.assertIn(why, done.stderr)
            self.assertFalse((pathlib.Path(directory) / "frames").exists())


class Doctor(unittest.TestCase):
    def test_reports_causes_of_frame_loss_and_fixes(self):
        subprocess.run(["ip", "link", "set", "lo", "mtu", "1000"], check=True)
        with tempfile.TemporaryDirectory() as place:
            file = pathlib.Path(place) / "run.toml"
            file.write_text("transport.packet_size_bytes = 1400\n")
            found = command("doctor", "--config", file, "--output", pathlib.Path(place) / "frames")
            self.assertEqual(found.returncode, UNFIT, found.stdout + found.stderr)
            self.assertIn("BAD      lo: MTU: 1000 bytes\n", found.stdout)
            self.assertIn('         ip link set dev lo mtu 1400    # until the next boot\n'
                          '         ExecStart=-/bin/sh -c "ip link set dev lo mtu 1400"    # at each boot, in'
                          ' /etc/systemd/system/mediagrabber-settings.service\n', found.stdout)
            self.assertIn("`mediagrabber doctor --fix-plan DIRECTORY` writes these files of /etc.\n", found.stdout)
            self.assertRegex(found.stdout, rf"write speed of {place}: \d+ MB/s")
            self.assertEqual(list(pathlib.Path(place).iterdir()), [file])

    def test_reports_the_same_to_programs(self):
        subprocess.run(["ip", "link", "set", "lo", "mtu", "1000"], check=True)
        with tempfile.NamedTemporaryFile("w", suffix=".toml") as file:
            file.write('transport.packet_size_bytes = 1400\noutput.format = "none"\n')
            file.flush()
            done = command("doctor", "--config", file.name, "--json")
            self.assertEqual(done.returncode, UNFIT, done.stderr)
            found = {one["what"]: one for one in json.loads(done.stdout)}["lo: MTU"]
            self.assertEqual((found["level"], found["found"], found["command"], found["until_reboot"]),
                             ("bad", "1000 bytes", "ip link set dev lo mtu 1400", True))

    def test_writes_a_unit_whose_commands_make_the_settings(self):
        subprocess.run(["ip", "link", "set", "lo", "mtu", "1000"], check=True)
        with tempfile.TemporaryDirectory() as place:
            file = pathlib.Path(place) / "run.toml"
            file.write_text('transport.packet_size_bytes = 1400\noutput.format = "none"\n')
            planned = command("doctor", "--config", file, "--interface", "lo", "--fix-plan", pathlib.Path(place) / "plan")
            unit = pathlib.Path(place) / "plan/systemd/system/mediagrabber-settings.service"
            self.assertIn(str(unit), planned.stdout)
            self.assertIn("systemctl enable --now mediagrabber-settings", planned.stdout)
            shown = subprocess.run(["ip", "link", "show", "lo"], capture_output=True, text=True, check=True).stdout
            self.assertIn(" mtu 1000 ", shown, "nothing has changed so far")
            commands = [line.removeprefix("ExecStart=-") for line in unit.read_text().splitlines() if line.startswith("ExecStart=-")]
            subprocess.run(shlex.split(next(line for line in commands if "mtu" in line)), check=True)
            again = command("doctor", "--config", file, "--interface", "lo")
            self.assertIn("good     lo: MTU: 1400 bytes\n", again.stdout)

    def test_reports_cameras_and_how_they_are_reached(self):
        with tempfile.NamedTemporaryFile("w", suffix=".toml") as file:
            file.write('output.format = "none"\n')
            file.flush()
            self.assertIn("advice   cameras: none acknowledged a search\n", command("doctor", "--config", file.name).stdout)
            with Camera("--serial", "S1"):
                found = command("doctor", "--config", file.name).stdout
                self.assertIn("good     lo: camera GO-5100M-PGE S1: reachable at 127.0.0.1\n", found)

    def test_does_not_measure_the_disk_without_file_output(self):
        with tempfile.NamedTemporaryFile("w", suffix=".toml") as file:
            file.write('output.format = "none"\n')
            file.flush()
            self.assertNotIn("write speed", command("doctor", "--config", file.name).stdout)

    def test_refuses_a_missing_interface(self):
        refused = command("doctor", "--interface", "eth9")
        self.assertEqual(refused.returncode, USAGE)
        self.assertIn("no network interface eth9 that is up and has an IPv4 address", refused.stderr)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
