"""A disk for a test, in memory: it may be small, or read-only. Needs a mount namespace of one's own."""

import contextlib
import pathlib
import subprocess
import tempfile


@contextlib.contextmanager
def file_system(options):
    """Is mounted for the length of a test. \return its path"""
    with tempfile.TemporaryDirectory() as place:
        subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", place], check=True)
        try:
            yield pathlib.Path(place)
        finally:
            subprocess.run(["umount", place], check=True)


def remount(place, options):
    """From now on it is like this; what is on it stays."""
    subprocess.run(["mount", "-o", f"remount,{options}", place], check=True)
