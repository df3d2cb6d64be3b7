// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Reading the pixels of a frame.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "frames/frame_record.hpp"

namespace mediagrabber {

/// Calls `use(x, value)` for each pixel of a line in Mono12Packed (GigE Vision, 0x010C0006): two pixels in three bytes.
/// The first byte has the upper 8 bits of the first pixel, the third byte those of the second; the middle byte has the
/// lower 4 bits of both, the first pixel's in its lower half. No other code of the host depends on the packing.
template <typename consumer>
void unpack_mono12packed(std::byte const* line, std::uint32_t width, consumer&& use) {
    auto const byte_at = [&line](std::size_t i) { return std::to_integer<unsigned>(line[i]); };
    std::uint32_t x = 0;
    for (; x + 1 < width; x += 2, line += 3) {
        unsigned const lower_bits = byte_at(1);
        use(x, byte_at(0) << 4U | (lower_bits & 0xFU));
        use(x + 1, byte_at(2) << 4U | lower_bits >> 4U);
    }
    if (x < width) {
        use(x, byte_at(0) << 4U | (byte_at(1) & 0xFU));
    }
}

/// Calls `use(x, value)` for each pixel of a line in any format.
/// \param line  at least format.line_bytes(width) bytes
template <typename consumer>
void for_each_value(std::byte const* line, std::uint32_t width, frame_format const& format, consumer&& use) {
    auto const byte_at = [line](std::size_t i) { return std::to_integer<unsigned>(line[i]); };
    if (format.container_bits == 8) {
        for (std::uint32_t x = 0; x < width; ++x) {
            use(x, byte_at(x));
        }
    } else if (format.container_bits == 12) {
        unpack_mono12packed(line, width, use);
    } else {
        for (std::uint32_t x = 0; x < width; ++x) {
            use(x, byte_at(std::size_t{x} * 2) | byte_at(std::size_t{x} * 2 + 1) << 8U);
        }
    }
}

/// Bits per pixel after `unpacked`: 8 or 16.
unsigned unpacked_bits(frame_format const& format);

/// The pixels as in memory, without padding between lines.
/// \param copy  receives a copy if there is padding
/// \return a view of the frame or of `copy`
std::span<std::byte const> without_padding(frame_view const& frame, std::vector<std::byte>& copy);

/// The pixels without padding, with an integral number of bytes per pixel: 12-bit values in 16 bits, little-endian.
/// \param copy  receives a copy if the pixels are packed or padded
/// \return a view of the frame or of `copy`
std::span<std::byte const> unpacked(frame_view const& frame, std::vector<std::byte>& copy);

/// The pixels of line `y`, unpacked. \param line  receives width * unpacked_bits() / 8 bytes
void unpack_line(frame_view const& frame, std::uint32_t y, std::span<std::byte> line);

}  // namespace mediagrabber
