#pragma once
/// \file
/// What the TIFF tags of a frame say, whatever the file looks like.

#include <array>
#include <cstdint>
#include <string>

#include "frame_record.hpp"

namespace mediagrabber {

/// A mosaic's cell: pixels to the right and downwards, and EXIF's colour numbers (0 red, 1 green, 2 blue).
inline constexpr std::array<std::uint16_t, 2> tiff_cell_sides{2, 2};
inline constexpr std::array<std::uint8_t, 4> tiff_cell_colours{0, 1, 1, 2};

/// A time in UTC, empty when TIFF has no form for it.
std::string tiff_date(std::uint64_t timestamp_us);
std::string tiff_description(frame_record const& record);

}  // namespace mediagrabber
