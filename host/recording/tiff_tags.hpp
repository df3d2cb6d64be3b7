// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// TIFF tag values that single files and BigTIFF pages share.

#include <array>
#include <cstdint>
#include <string>

#include "frames/frame_record.hpp"

namespace mediagrabber {

/// One cell of the colour filter array of BayerRG8: its sides in pixels, and its colours row by row as EXIF numbers
/// them (0 red, 1 green, 2 blue).
inline constexpr std::array<std::uint16_t, 2> cfa_cell_sides{2, 2};
inline constexpr std::array<std::uint8_t, 4> cfa_cell_colours{0, 1, 1, 2};

/// \return the time in UTC as TIFF's DateTime; empty if that cannot represent it (after the year 9999)
std::string tiff_date(std::uint64_t timestamp_us);
/// \return a text for people: frame number, timestamp, pixel format
std::string tiff_description(frame_record const& record);

}  // namespace mediagrabber
