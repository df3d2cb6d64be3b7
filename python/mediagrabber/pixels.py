# SPDX-License-Identifier: MIT
"""Pixel formats, spelled as GenICam does, and the conversion of their bytes to arrays."""

import dataclasses
from typing import Any, TypeAlias

import numpy
from numpy.typing import NDArray

Pixels: TypeAlias = NDArray[numpy.unsignedinteger[Any]]
"""An image: height x width of uint8 or uint16."""


@dataclasses.dataclass(frozen=True)
class PixelFormat:
    """The layout of a pixel format in memory and in raw files. Each line begins at a byte boundary."""

    name: str
    container_bits: int  # bits per pixel in memory; 12: two pixels in three bytes
    significant_bits: int
    is_bayer: bool  # colour filter array with the pattern red, green / green, blue

    @property
    def dtype(self) -> numpy.dtype[numpy.unsignedinteger[Any]]:
        """Type of an unpacked pixel."""
        return numpy.dtype(numpy.uint8) if self.significant_bits <= 8 else numpy.dtype(numpy.uint16)

    def line_bytes(self, width: int) -> int:
        return (self.container_bits * width + 7) // 8

    def pixels_of(self, data: bytes | bytearray, width: int, height: int) -> Pixels:
        """The image in `data`, line after line without padding, as a new array."""
        if self.container_bits == 12:
            lines = numpy.frombuffer(data, numpy.uint8).reshape(height, self.line_bytes(width))
            return unpack_mono12packed(lines, width)
        stored = numpy.frombuffer(data, "<u2" if self.container_bits == 16 else "u1")
        return stored.reshape(height, width).astype(self.dtype)


PIXEL_FORMATS = {one.name: one for one in (
    PixelFormat("Mono8", 8, 8, False),
    PixelFormat("Mono12Packed", 12, 12, False),
    PixelFormat("Mono12", 16, 12, False),
    PixelFormat("BayerRG8", 8, 8, True),
)}


def unpack_mono12packed(lines: NDArray[numpy.uint8], width: int) -> NDArray[numpy.uint16]:
    """Unpacks lines of Mono12Packed (GigE Vision packing, 0x010C0006): two pixels in three bytes, of which the second has the lower bits
    of both, those of the first pixel in its lower half.

    \\param lines  height x bytes per line
    \\param width  pixels per line
    \\return height x width, values from 0 to 4095
    """
    needed = (12 * width + 7) // 8
    if lines.ndim != 2 or lines.dtype != numpy.uint8 or lines.shape[1] < needed:
        raise ValueError(f"{width} pixels of Mono12Packed need an array of lines of at least {needed} bytes (uint8), not"
                         f" {lines.dtype} of shape {lines.shape}")
    first, second = (width + 1) // 2, width // 2
    lower_bits = lines[:, 1:needed:3].astype(numpy.uint16)
    values = numpy.empty((lines.shape[0], width), numpy.uint16)
    values[:, 0::2] = lines[:, 0:needed:3][:, :first].astype(numpy.uint16) << 4 | lower_bits[:, :first] & 0xF
    values[:, 1::2] = lines[:, 2:needed:3].astype(numpy.uint16) << 4 | lower_bits[:, :second] >> 4
    return values
