# SPDX-License-Identifier: MIT
"""Exploit mitigations in the installed binaries, checked with binutils."""

import json
import os
import pathlib
import re
import subprocess
import sys
import unittest

PLUGIN = os.environ["MGJAI"]
PROGRAMS = [os.environ["MEDIAGRABBER"], os.environ["CAMSIM"], os.environ["GEVCTL"]]
COMPILE_COMMANDS = os.environ["COMPILE_COMMANDS"]
SOURCE_DIR = pathlib.Path(os.environ["MG_SOURCE_DIR"])


def listing(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def headers(path):
    return listing("readelf", "--file-header", "--program-headers", "--dynamic", "--wide", path)


def imports(path):
    return {line.split()[-1].split("@")[0] for line in listing("nm", "--dynamic", "--undefined-only", path).splitlines()}


def function(path, name):
    """The instructions of a function. `name` has no parameter list."""
    code = listing("objdump", "--disassemble=" + name, "--no-show-raw-insn", path)
    return re.findall(r"^ +[0-9a-f]+:\t(.*)$", code, re.MULTILINE)


class EveryFile(unittest.TestCase):
    def check_each(self, check):
        for path in [*PROGRAMS, PLUGIN]:
            with self.subTest(os.path.basename(path)):
                check(path)

    def test_has_no_writable_and_executable_memory(self):
        def check(path):
            segments = re.findall(r"^ +([A-Z_]+) +(?:0x[0-9a-f]+ +){5}([RWE ]{3}) ", headers(path), re.MULTILINE)
            self.assertIn("GNU_STACK", dict(segments))
            for kind, flags in segments:
                self.assertFalse("W" in flags and "E" in flags, (kind, flags))

        self.check_each(check)

    def test_has_read_only_relocations(self):
        def check(path):
            self.assertIn("GNU_RELRO", headers(path))
            self.assertNotIn("TEXTREL", headers(path))

        self.check_each(check)

    def test_has_stack_protectors(self):
        self.check_each(lambda path: self.assertIn("__stack_chk_fail", imports(path)))

    def test_is_fortified(self):
        self.check_each(lambda path: self.assertTrue({name for name in imports(path) if re.fullmatch(r"__\w+_chk", name)}))

    def test_loads_libraries_from_system_directories_only(self):
        self.check_each(lambda path: self.assertNotRegex(headers(path), r"\((RPATH|RUNPATH)\)"))

    def test_has_no_elevated_privileges(self):
        def check(path):
            self.assertEqual(os.stat(path).st_mode & 0o7022, 0, "set-ID bits, or writable by others")
            self.assertNotIn("security.capability", os.listxattr(path))

        self.check_each(check)


class Programs(unittest.TestCase):
    def test_are_position_independent(self):
        for path in PROGRAMS:
            with self.subTest(os.path.basename(path)):
                self.assertRegex(headers(path), r"Type: +DYN ")
                self.assertRegex(headers(path), r"\(FLAGS_1\).* PIE")

    def test_bind_all_symbols_at_startup(self):
        for path in PROGRAMS:
            with self.subTest(os.path.basename(path)):
                self.assertRegex(headers(path), r"\(FLAGS(_1)?\).* (BIND_)?NOW")

    def test_support_indirect_branch_tracking(self):
        for path in PROGRAMS:
            with self.subTest(os.path.basename(path)):
                self.assertEqual(function(path, "main")[0].split()[0], "endbr64")


class Plugin(unittest.TestCase):
    def test_binds_symbols_lazily(self):
        """The shared object can also be started as a program, where the host functions are missing."""
        self.assertNotRegex(headers(PLUGIN), r"BIND_NOW|\(FLAGS_1\).* NOW")

    def test_supports_indirect_branch_tracking(self):
        for name in ("MgLibProc", "MgLibGetVer", "LibEntry"):
            self.assertEqual(function(PLUGIN, name)[0].split()[0], "endbr64", name)


class FrameRing(unittest.TestCase):
    """Programs map the frame ring. A store to a sequence number must be visible before the stores that follow it."""

    def test_orders_the_removal_of_a_frame_before_the_change_of_its_memory(self):
        program = os.environ["MEDIAGRABBER"]
        for name in ("_ZN12mediagrabber11shared_ring5enterERKNS_11frame_leaseEm", "_ZN12mediagrabber11buffer_pool7acquireEv"):
            with self.subTest(name):
                code = function(program, name)
                self.assertTrue(code, "the function is missing")
                self.assertTrue(any(re.match(r"lock or|mfence", line) for line in code), "no fence")


class Sources(unittest.TestCase):
    def test_are_compiled_with_the_hardening_options(self):
        """Not every function shows the effect of these options, so the compiler commands are checked as well."""
        seen = set()
        for command in json.loads(pathlib.Path(COMPILE_COMMANDS).read_text()):
            source = pathlib.Path(command["file"])
            if not source.is_relative_to(SOURCE_DIR):
                continue
            component = source.relative_to(SOURCE_DIR).parts[0]
            if component in ("src", "openpv", "host", "simulator"):
                seen.add(component)
                for flag in ("-fstack-clash-protection", "-fstack-protector-strong", "-fcf-protection=full",
                             "_FORTIFY_SOURCE=2"):
                    self.assertIn(flag, command["command"], source)
        self.assertEqual(seen, {"src", "openpv", "host", "simulator"})


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
