# SPDX-License-Identifier: MIT
"""Clock steps and disk errors for one process, injected by a preloaded library.

The path of the library is in the environment variable HOST_TROUBLES_LIBRARY.
"""

import mmap
import os
import pathlib
import struct
import tempfile

LIBRARY = os.environ["HOST_TROUBLES_LIBRARY"]
FIELDS = ("clock_ahead_s", "write_delay_us", "write_error")


class HostTroubles:
    """Has no effect at first. Assigning to one of FIELDS takes effect at once, through shared memory.

    `environment` holds the variables for the process.
    """

    def __init__(self):
        self.directory = tempfile.TemporaryDirectory()
        path = pathlib.Path(self.directory.name) / "troubles"
        path.write_bytes(bytes(8 * len(FIELDS)))
        with path.open("r+b") as file:
            self.memory = mmap.mmap(file.fileno(), 0)
        for name in FIELDS:
            setattr(self, name, 0)
        # The address sanitizer requires to be the first library, but these functions do not need it.
        self.environment = {"HOST_TROUBLES": str(path), "LD_PRELOAD": LIBRARY,
                            "ASAN_OPTIONS": ":".join([os.environ.get("ASAN_OPTIONS", ""), "verify_asan_link_order=0"])}

    def __setattr__(self, name, value):
        super().__setattr__(name, value)
        if name in FIELDS:
            struct.pack_into("=q", self.memory, 8 * FIELDS.index(name), value)
