"""A clock that is set and a disk that fails, for one program: a library loaded before its own does it.

The library's path comes from the environment: HOST_TROUBLES_LIBRARY.
"""

import mmap
import os
import pathlib
import struct
import tempfile

LIBRARY = os.environ["HOST_TROUBLES_LIBRARY"]
FIELDS = ("clock_ahead_s", "write_delay_us", "write_error")


class HostTroubles:
    """None at first. Setting one of the fields puts it into force."""

    def __init__(self):
        self.directory = tempfile.TemporaryDirectory()
        path = pathlib.Path(self.directory.name) / "troubles"
        path.write_bytes(bytes(8 * len(FIELDS)))
        with path.open("r+b") as file:
            self.memory = mmap.mmap(file.fileno(), 0)
        for name in FIELDS:
            setattr(self, name, 0)
        # The address sanitizer wants to be loaded first; these functions do without it.
        self.environment = {"HOST_TROUBLES": str(path), "LD_PRELOAD": LIBRARY,
                            "ASAN_OPTIONS": ":".join([os.environ.get("ASAN_OPTIONS", ""), "verify_asan_link_order=0"])}

    def __setattr__(self, name, value):
        super().__setattr__(name, value)
        if name in FIELDS:
            struct.pack_into("=q", self.memory, 8 * FIELDS.index(name), value)
