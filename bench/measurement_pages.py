# SPDX-License-Identifier: MIT
"""Pages of docs/measurements: the generated part of a page, and whether the code that it measures has changed since.

A page names the measured code in the marker before its generated part:

    <!-- begin generated; measures: openpv/src src -->
    ...
    <!-- end generated -->

The generated part contains a digest of that code as it was measured. A page whose code has changed carries a notice.
"""

import hashlib
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).parents[1]
PAGES = ROOT / "docs/measurements"
GENERATED = re.compile(r"(<!-- begin generated; measures: (?P<paths>[^>]*?) -->\n)(?P<text>.*?)(<!-- end generated -->\n)", re.S)
DIGEST = re.compile(r"^\| measured code \| .*\bdigest `(?P<digest>[0-9a-f]+)` \|$", re.M)
REVISION = re.compile(r"^\| revision \| `(?P<revision>[^`]+)`", re.M)
NOTICE = re.compile(r"^> \*\*Old figures.*\n\n", re.M)


class PageError(Exception):
    pass


def git(*arguments, root=ROOT):
    """\\return the output of git; empty if this is not a clone"""
    done = subprocess.run(["git", "-c", "safe.directory=*", "-C", str(root), *arguments], capture_output=True, text=True)
    return done.stdout if done.returncode == 0 else ""


def revision(root=ROOT):
    """\\return the revision of the working tree, with a remark if files other than the pages differ from it"""
    name = git("rev-parse", "--short=12", "HEAD", root=root).strip() or "unknown"
    return f"`{name}`" + (" with local changes" if git("status", "--porcelain", "--", ".", ":!docs/measurements", root=root) else "")


def digest_of(paths, root=ROOT):
    """\\return a digest of the tracked files below `paths` as they are in the working tree. Needs no history.

    Raises PageError if a path has no tracked files, because the digest could then never change.
    """
    digest = hashlib.sha256()
    for path in sorted(paths):
        names = sorted(filter(None, git("ls-files", "-z", "--", path, root=root).split("\0")))
        if not names:
            raise PageError(f"{path} has no tracked files")
        for name in names:
            file = root / name
            digest.update(f"{name}\0".encode())
            digest.update(hashlib.sha256(file.read_bytes()).digest() if file.is_file() else b"deleted")
    return digest.hexdigest()[:16]


class Page:
    """A page with a generated part."""

    def __init__(self, path, root=ROOT):
        self.path, self.root = path, root
        self.text = path.read_text()
        self.found = GENERATED.search(self.text)
        if self.found is None:
            raise PageError(f"{path.name} has no generated part")
        self.paths = self.found["paths"].split()

    @property
    def is_old(self):
        recorded = DIGEST.search(self.found["text"])
        return recorded is None or recorded["digest"] != digest_of(self.paths, self.root)

    @property
    def is_marked(self):
        return NOTICE.search(self.found["text"]) is not None

    def mark(self):
        """Adds the notice to an old page, and removes it from one that is not."""
        known = REVISION.search(self.found["text"])
        state = f"measured at revision `{known['revision']}`; code changed since" if known else "not measured yet"
        self.replace((f"> **Old figures: {state}.**\n\n" if self.is_old else "") + NOTICE.sub("", self.found["text"]))

    def replace(self, text):
        """Replaces the generated part and writes the page."""
        begin, end = self.found.span("text")
        self.path.write_text(self.text[:begin] + text + self.text[end:])
        self.__init__(self.path, self.root)


def pages(directory=PAGES, root=ROOT):
    """All pages except the index. Each must have a generated part: figures are not typed by hand."""
    return [Page(path, root) for path in sorted(directory.glob("*.md")) if path.name != "README.md"]
