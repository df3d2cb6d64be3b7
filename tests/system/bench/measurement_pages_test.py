# SPDX-License-Identifier: MIT
"""Pages of measurements, in a repository of their own: an old page must be noticed, also without history."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

from measurement_pages import Page, PageError, digest_of, pages, revision

PAGE = """# Subject

<!-- begin generated; measures: code other.cpp -->
{generated}<!-- end generated -->

The end.
"""


class Pages(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.root = pathlib.Path(self.directory.name)
        (self.root / "code").mkdir()
        (self.root / "docs/measurements").mkdir(parents=True)
        (self.root / "code/a.cpp").write_text("a")
        (self.root / "other.cpp").write_text("b")
        self.git("init", "--quiet")
        self.git("add", ".")
        self.git("-c", "user.name=n", "-c", "user.email=e", "commit", "--quiet", "-m", "s")
        self.path = self.root / "docs/measurements/subject.md"
        self.publish()

    def tearDown(self):
        self.directory.cleanup()

    def git(self, *arguments):
        subprocess.run(["git", "-C", self.root, *arguments], check=True)

    def publish(self):
        digest = digest_of(["code", "other.cpp"], self.root)
        self.path.write_text(PAGE.format(generated=f"| revision | `0123` |\n| measured code | code, digest `{digest}` |\n"))

    def page(self):
        return Page(self.path, self.root)

    def test_a_page_is_not_old_while_its_code_is_unchanged(self):
        (self.root / "unrelated.cpp").write_text("c")
        self.git("add", ".")
        self.assertFalse(self.page().is_old)
        self.assertFalse(self.page().is_marked)

    def test_a_changed_file_makes_a_page_old(self):
        (self.root / "code/a.cpp").write_text("A")
        self.assertTrue(self.page().is_old)

    def test_a_new_a_deleted_and_a_renamed_file_make_a_page_old(self):
        (self.root / "code/new.cpp").write_text("")
        self.git("add", ".")
        self.assertTrue(self.page().is_old)
        self.publish()
        (self.root / "other.cpp").unlink()
        self.assertTrue(self.page().is_old)
        (self.root / "other.cpp").write_text("b")
        self.publish()
        self.git("mv", "code/a.cpp", "code/b.cpp")
        self.assertTrue(self.page().is_old)

    def test_a_page_without_a_digest_is_old(self):
        self.path.write_text(PAGE.format(generated="| revision | `0123` |\n"))
        self.assertTrue(self.page().is_old)

    def test_the_notice_names_the_revision_and_goes_when_the_page_is_measured_again(self):
        (self.root / "code/a.cpp").write_text("A")
        self.page().mark()
        self.page().mark()  # does not add a second one
        self.assertTrue(self.page().is_marked)
        self.assertEqual(self.path.read_text().count("measured at revision `0123`; code changed since"), 1)
        (self.root / "code/a.cpp").write_text("a")
        self.page().mark()
        self.assertFalse(self.page().is_marked)
        self.assertTrue(self.path.read_text().endswith("The end.\n"))

    def test_a_page_without_a_generated_part_or_with_a_wrong_path_is_an_error(self):
        self.path.write_text("# Subject\n\n| a | b |\n")
        with self.assertRaises(PageError):
            pages(self.root / "docs/measurements", self.root)
        with self.assertRaises(PageError):
            digest_of(["cdoe"], self.root)

    def test_the_revision_says_whether_files_differ_from_it(self):
        self.assertRegex(revision(self.root), "^`[0-9a-f]{12}`$")
        (self.root / "code/a.cpp").write_text("A")
        self.assertRegex(revision(self.root), "^`[0-9a-f]{12}` with local changes$")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
