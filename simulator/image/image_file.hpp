// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace camsim {

/// An image as its file contains it.
struct raw_image {
    std::uint32_t width = 0;   ///< pixels
    std::uint32_t height = 0;  ///< lines
    std::size_t samples = 1;   ///< per pixel: 1 (grey) or 3 (red, green, blue)
    unsigned bits = 8;         ///< per sample: 8 or 16
    std::vector<std::uint16_t> values;
};

/// Sides above this are refused before memory is allocated.
inline constexpr std::uint32_t max_image_side = 16384;

/// Whether the name ends as one of a TIFF or PNG file, in any case.
bool is_image_file(std::filesystem::path const& file);

/// Reads a TIFF or PNG file with 8 or 16 bits per sample. An alpha channel is ignored, a palette is applied.
/// \throws std::runtime_error with the reason, without the file's name
raw_image read_image_file(std::filesystem::path const& file);

}  // namespace camsim
