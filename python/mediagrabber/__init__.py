# SPDX-License-Identifier: MIT
"""Reads and makes recordings of mediagrabber.

    open_recording(path)    frames and index of a recording, also while it is growing
    FrameRing(path)         frames of a running recording in shared memory, without a copy
    Recorder(configuration) a recording as a child process
    Camsim()                a simulated camera in a network namespace of its own
"""

from ._index import INDEX_DTYPE
from .camsim import Camsim
from .errors import CamsimError, MediagrabberError, ProgramError, RecorderError, RecordingError, RingError
from .pixels import PIXEL_FORMATS, PixelFormat, Pixels, unpack_mono12packed
from .recorder import Recorder, Summary
from .recording import Frames, Recording, open_recording
from .ring import FrameRing, RingFrame

__version__ = "0.37.28"

__all__ = [
    "Camsim", "CamsimError", "FrameRing", "Frames", "INDEX_DTYPE", "MediagrabberError", "PIXEL_FORMATS", "PixelFormat", "Pixels",
    "ProgramError", "Recorder", "RecorderError", "Recording", "RecordingError", "RingError", "RingFrame", "Summary", "open_recording",
    "unpack_mono12packed",
]
