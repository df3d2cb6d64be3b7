# SPDX-License-Identifier: MIT
"""A file system in memory, which may be small or read-only. Needs a mount namespace of its own."""

import contextlib
import pathlib
import subprocess
import tempfile


@contextlib.contextmanager
def file_system(options):
    """Mounts a file system until the context is left. Yields its path."""
    with tempfile.TemporaryDirectory() as directory:
        subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", directory], check=True)
        try:
            yield pathlib.Path(directory)
        finally:
            subprocess.run(["umount", directory], check=True)


def remount(directory, options):
    """Changes the mount options; the files stay."""
    subprocess.run(["mount", "-o", f"remount,{options}", directory], check=True)
