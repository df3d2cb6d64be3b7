#pragma once
/// \file
/// Pixels as files and other programs want them: line by line without gaps.

#include <cstddef>
#include <span>
#include <vector>

#include "frame_record.hpp"

namespace mediagrabber {

/// Bits of a pixel once `unpacked`: 8 or 16.
unsigned unpacked_bits(pixel_format const& format);

/// The pixels as they are in memory, without the gaps between lines. \param room  for a copy, where there are gaps
/// \return a view of the frame or of `room`
std::span<std::byte const> without_gaps(frame_view const& frame, std::vector<std::byte>& room);

/// The same, with a whole number of bytes for each pixel: values of 12 bits in 16, little-endian.
std::span<std::byte const> unpacked(frame_view const& frame, std::vector<std::byte>& room);

/// The pixels of line `y`, each a whole number of bytes. \param line  as many bytes as that takes
void unpack_line(frame_view const& frame, std::uint32_t y, std::span<std::byte> line);

}  // namespace mediagrabber
