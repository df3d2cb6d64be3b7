# SPDX-License-Identifier: MIT
"""libmgjai.so: exported symbols, symbols that the host provides, and its behaviour when started as a program."""

import os
import re
import subprocess
import sys
import unittest

PLUGIN = os.environ["MGJAI"]
HOST_API = os.environ["MG_HOST_API"]
EXPORTS = {"MgLibProc", "MgLibGetVer", "LibEntry", "gMgLogIdLib", "gMgLogLevelLib", "gMgLogModeLib"}
VERSION_LINE = re.compile(rb"Version: 0\.37\.28-[0-9a-f]{40}\n")


def dynamic_symbols(*options):
    listing = subprocess.run(["nm", "--dynamic", *options, PLUGIN], check=True, capture_output=True, text=True).stdout
    return {line.split()[-1].split("@")[0] for line in listing.splitlines()}


def host_functions():
    """The functions that a host must export: those that the host API declares, except the plug-in's own."""
    with open(HOST_API, encoding="utf-8") as header:
        declared = set(re.findall(r"^[a-z].*?\b(Mg\w+__\w+)\(", header.read(), re.MULTILINE))
    assert len(declared) > 50, declared
    return declared


class SharedObject(unittest.TestCase):
    def test_exports_only_six_symbols(self):
        self.assertEqual(dynamic_symbols("--defined-only"), EXPORTS)

    def test_leaves_every_host_function_undefined(self):
        self.assertEqual(host_functions() - dynamic_symbols("--undefined-only"), set())

    def test_can_be_loaded_without_the_host_functions(self):
        """Host functions are called through the procedure linkage table; their addresses are not stored."""
        relocations = subprocess.run(["readelf", "--relocs", "--wide", PLUGIN], check=True, capture_output=True,
                                     text=True).stdout
        kinds = {line.split()[2] for line in relocations.splitlines() if re.search(r" Mg\w+__", line)}
        self.assertEqual(kinds, {"R_X86_64_JUMP_SLOT"})

    def test_has_hardening_that_allows_lazy_binding(self):
        headers = subprocess.run(["readelf", "--program-headers", "--dynamic", "--wide", PLUGIN], check=True,
                                 capture_output=True, text=True).stdout
        self.assertIn("GNU_RELRO", headers)
        self.assertRegex(headers, r"GNU_STACK.* RW ")
        self.assertNotIn("BIND_NOW", headers)
        self.assertNotIn("TEXTREL", headers)
        self.assertTrue({"__stack_chk_fail"} <= dynamic_symbols("--undefined-only"))


class StartedAsAProgram(unittest.TestCase):
    def test_prints_its_version_to_a_pipe(self):
        done = subprocess.run([PLUGIN], capture_output=True, timeout=30)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertRegex(done.stdout, b"^" + VERSION_LINE.pattern + b"$")
        self.assertEqual(done.stderr, b"")

    def test_prints_its_version_to_a_terminal(self):
        master, slave = os.openpty()
        done = subprocess.run([PLUGIN], stdout=slave, timeout=30)
        os.close(slave)
        self.assertEqual(done.returncode, 0)
        self.assertRegex(os.read(master, 4096).replace(b"\r\n", b"\n"), VERSION_LINE)
        os.close(master)

    def test_the_version_names_the_revision_of_the_sources(self):
        revision = subprocess.run(["git", "-C", os.path.dirname(HOST_API), "rev-parse", "HEAD"], capture_output=True)
        if revision.returncode != 0:
            self.skipTest("not a git checkout")
        printed = subprocess.run([PLUGIN], capture_output=True, timeout=30).stdout
        # The build may be older than the latest commit, so any commit of this checkout is accepted.
        named = printed.decode().strip().split("-")[1]
        kind = subprocess.run(["git", "-C", os.path.dirname(HOST_API), "cat-file", "-t", named], capture_output=True)
        self.assertEqual(kind.stdout.strip(), b"commit", named)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "--verbose"])
