# SPDX-License-Identifier: MIT
"""scripts/run-tests: which failed tests are repeated, and which skipped tests are errors. CTest runs shell scripts as tests.

The path of the script is in the environment variable RUN_TESTS, that of CTest in CTEST.
"""

import importlib.machinery
import importlib.util
import itertools
import os
import pathlib
import sys
import tempfile
import unittest

from run_test import MAX_REPEATS, UNDECIDED, UNDECIDED_STATUS

loader = importlib.machinery.SourceFileLoader("run_tests", os.environ["RUN_TESTS"])
run_tests = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
loader.exec_module(run_tests)

PASSES = "true"
FAILS = "echo failed; exit 1"
FAILS_ONCE = "test -e passed_before || { touch passed_before; exit 1; }"
REPORTS_ONCE = "test -e reported || { touch reported; echo ERROR: AddressSanitizer: heap-use-after-free; exit 99; }"
SKIPPED = "echo 'OK (skipped=1)'"  # as GoogleTest and unittest report a skipped part
IS_UNDECIDED = f"echo 'run_test.py: {UNDECIDED.format(4)}, maybe'; exit {UNDECIDED_STATUS}"


class RunTests(unittest.TestCase):
    def setUp(self):
        self.directory = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.settled = []

    def passes(self, scripts, *, stolen=0.0, listed=(), more="", options=()):
        """\\return whether a run of these tests passes while this share of the processor time is stolen"""
        tests = [f'add_test({name} sh "-c" [==[{script}]==])\nset_tests_properties({name} PROPERTIES'
                 f' SKIP_REGULAR_EXPRESSION "OK \\\\(skipped=" SKIP_RETURN_CODE {UNDECIDED_STATUS})\n' for name, script in scripts.items()]
        (self.directory / "CTestTestfile.cmake").write_text("".join(tests) + more)
        times = itertools.cycle(((0, 0), (round(1000 * stolen), 1000)))
        return run_tests.run_tests([os.environ["CTEST"], "--test-dir", self.directory, *options], self.directory,
                                   dict.fromkeys(listed, "why"), lambda: next(times), lambda: self.settled.append(True)) == 0

    @property
    def remarks(self):
        return (self.directory / "remarks.txt").read_text()

    def test_nothing_is_repeated_if_all_tests_pass(self):
        self.assertTrue(self.passes({"one": PASSES, "other": PASSES}, stolen=0.5))
        self.assertEqual(self.remarks, "")

    def test_a_failed_test_is_repeated_if_processor_time_was_stolen(self):
        self.assertTrue(self.passes({"one": PASSES, "other": FAILS_ONCE}, stolen=0.06))
        self.assertEqual(self.remarks, "other: repeated, 6% of the processor time was stolen\n")
        self.assertEqual(len(self.settled), 1)

    def test_a_test_that_failed_alone_is_not_repeated_on_a_steady_machine(self):
        self.assertFalse(self.passes({"one": PASSES, "other": FAILS_ONCE}, stolen=0.05))
        self.assertEqual(self.remarks, "")

    def test_a_test_that_failed_beside_others_is_repeated_once_and_named(self):
        self.assertTrue(self.passes({"one": PASSES, "other": FAILS_ONCE}, options=["--parallel", "2"]))
        self.assertEqual(self.remarks, "other: repeated, failed beside other tests\n")
        self.assertFalse(self.passes({"one": PASSES, "other": FAILS}, options=["--parallel", "2"]))
        self.assertEqual(len(self.settled), 2)

    def test_a_test_that_fails_again_fails_the_run(self):
        self.assertFalse(self.passes({"one": FAILS_ONCE, "other": FAILS}, stolen=0.5))
        self.assertEqual(len(self.settled), MAX_REPEATS)

    def test_nothing_is_repeated_after_the_report_of_a_sanitizer(self):
        self.assertFalse(self.passes({"one": FAILS_ONCE, "other": REPORTS_ONCE}, stolen=0.5))
        self.assertEqual(self.remarks, "")

    def test_an_undecided_test_is_named(self):
        self.assertTrue(self.passes({"one": PASSES, "other": IS_UNDECIDED}))
        self.assertEqual(self.remarks, f"other: {UNDECIDED.format(4)}, maybe\n")
        self.assertFalse(self.passes({"one": FAILS, "other": IS_UNDECIDED}))

    def test_a_skipped_test_needs_a_reason(self):
        self.assertTrue(self.passes({"one": PASSES, "other": SKIPPED}, listed=["other"]))
        self.assertFalse(self.passes({"one": PASSES, "other": SKIPPED}, listed=["one"]))
        self.assertFalse(self.passes({"one": "echo 'FAILED (failures=1, skipped=1)'; exit 1"}, listed=["one"]))
        self.assertFalse(self.passes({"one": FAILS_ONCE, "other": SKIPPED}, stolen=0.5), "a repetition runs the failed tests only")

    def test_a_disabled_test_and_one_without_its_program_need_a_reason(self):
        disabled = "set_tests_properties(one PROPERTIES DISABLED TRUE)\n"
        self.assertTrue(self.passes({"one": PASSES}, more=disabled, listed=["one"]))
        self.assertFalse(self.passes({"one": PASSES}, more=disabled))
        self.assertFalse(self.passes({"one": PASSES}, more='add_test(missing "/nowhere/program")\n'))


class Reasons(unittest.TestCase):
    def test_of_a_list(self):
        self.assertEqual(run_tests.reasons("# comment\none.test: a reason: this\n\n"), {"one.test": "a reason: this"})
        for line in ("one:", "one"):
            with self.assertRaises(ValueError):
                run_tests.reasons(line)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
