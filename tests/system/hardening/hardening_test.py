"""What stands between a defect and whoever would use it: the files that users run, looked at with binutils."""

import json
import os
import pathlib
import re
import subprocess
import sys
import unittest

PLUGIN = os.environ["MGJAI"]
PROGRAMS = [os.environ["MEDIAGRABBER"], os.environ["CAMSIM"]]
COMPILE_COMMANDS = os.environ["COMPILE_COMMANDS"]
SOURCE_DIR = pathlib.Path(os.environ["MG_SOURCE_DIR"])


def listing(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def headers(path):
    return listing("readelf", "--file-header", "--program-headers", "--dynamic", "--wide", path)


def imports(path):
    return {line.split()[-1].split("@")[0] for line in listing("nm", "--dynamic", "--undefined-only", path).splitlines()}


def function(path, name):
    """The instructions of a function, by its name without arguments."""
    code = listing("objdump", "--disassemble=" + name, "--no-show-raw-insn", path)
    return re.findall(r"^ +[0-9a-f]+:\t(.*)$", code, re.MULTILINE)


class EveryFile(unittest.TestCase):
    def check_each(self, check):
        for path in [*PROGRAMS, PLUGIN]:
            with self.subTest(os.path.basename(path)):
                check(path)

    def test_has_no_memory_that_is_written_and_executed(self):
        def check(path):
            segments = re.findall(r"^ +([A-Z_]+) +(?:0x[0-9a-f]+ +){5}([RWE ]{3}) ", headers(path), re.MULTILINE)
            self.assertIn("GNU_STACK", dict(segments))
            for kind, flags in segments:
                self.assertFalse("W" in flags and "E" in flags, (kind, flags))

        self.check_each(check)

    def test_has_relocations_that_are_read_only_once_they_are_made(self):
        def check(path):
            self.assertIn("GNU_RELRO", headers(path))
            self.assertNotIn("TEXTREL", headers(path))

        self.check_each(check)

    def test_is_guarded_against_overflows_on_the_stack(self):
        self.check_each(lambda path: self.assertIn("__stack_chk_fail", imports(path)))

    def test_checks_the_sizes_that_the_compiler_knows(self):
        self.check_each(lambda path: self.assertTrue({name for name in imports(path) if re.fullmatch(r"__\w+_chk", name)}))

    def test_takes_its_libraries_from_the_systems_places_only(self):
        self.check_each(lambda path: self.assertNotRegex(headers(path), r"\((RPATH|RUNPATH)\)"))

    def test_is_nobody_elses_when_it_is_started(self):
        def check(path):
            self.assertEqual(os.stat(path).st_mode & 0o7022, 0, "set-ID bits, or written by others")
            self.assertNotIn("security.capability", os.listxattr(path))

        self.check_each(check)


class Programs(unittest.TestCase):
    def test_lie_at_another_place_each_time(self):
        for path in PROGRAMS:
            with self.subTest(os.path.basename(path)):
                self.assertRegex(headers(path), r"Type: +DYN ")
                self.assertRegex(headers(path), r"\(FLAGS_1\).* PIE")

    def test_have_all_their_relocations_made_before_they_begin(self):
        for path in PROGRAMS:
            with self.subTest(os.path.basename(path)):
                self.assertRegex(headers(path), r"\(FLAGS(_1)?\).* (BIND_)?NOW")

    def test_accept_indirect_jumps_at_marked_places_only(self):
        for path in PROGRAMS:
            with self.subTest(os.path.basename(path)):
                self.assertEqual(function(path, "main")[0].split()[0], "endbr64")


class Plugin(unittest.TestCase):
    def test_is_bound_when_it_is_needed(self):
        """It is started as a program, too: without a host, whose functions it would not find."""
        self.assertNotRegex(headers(PLUGIN), r"BIND_NOW|\(FLAGS_1\).* NOW")

    def test_accepts_indirect_jumps_at_marked_places_only(self):
        for name in ("MgLibProc", "MgLibGetVer", "LibEntry"):
            self.assertEqual(function(PLUGIN, name)[0].split()[0], "endbr64", name)


class Sources(unittest.TestCase):
    def test_are_all_compiled_with_what_leaves_no_trace_in_every_file(self):
        """A large frame is touched page by page; most functions have none."""
        seen = set()
        for command in json.loads(pathlib.Path(COMPILE_COMMANDS).read_text()):
            source = pathlib.Path(command["file"])
            if not source.is_relative_to(SOURCE_DIR):
                continue
            room = source.relative_to(SOURCE_DIR).parts[0]
            if room in ("src", "openpv", "host", "simulator"):
                seen.add(room)
                for flag in ("-fstack-clash-protection", "-fstack-protector-strong", "-fcf-protection=full",
                             "_FORTIFY_SOURCE=2"):
                    self.assertIn(flag, command["command"], source)
        self.assertEqual(seen, {"src", "openpv", "host", "simulator"})


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
