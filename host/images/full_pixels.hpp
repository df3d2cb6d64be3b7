// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Pixels in full depth, and lossless files of them for other programs.

#include <cstddef>
#include <cstdint>
#include <string>

#include "frames/frame_record.hpp"

namespace mediagrabber {

struct pixel_rectangle {
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};

/// An image without padding. Values keep their range: those of a 12-bit format are 0 to 4095.
struct full_pixels {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    unsigned channels = 1;  ///< 1: grey; 3: red, green, blue
    unsigned bits = 8;      ///< of a channel: 8, or 16 in little-endian order
    std::string values;
};

/// \param colour  demosaics a Bayer pattern, which keeps the measured values
full_pixels all_pixels(frame_view const& frame, bool colour);
/// \return the upper 8 bits of each value, demosaiced if `colour`
full_pixels all_pixels_in_8_bits(frame_view const& frame, bool colour);

/// \param part  within the frame
/// \param by    each value is the maximum of `by` x `by` pixels, fewer at the right and lower edge
/// \return the values as the camera sends them, one channel
full_pixels part_of(frame_view const& frame, pixel_rectangle const& part, std::uint32_t by);

/// \return an uncompressed TIFF file
std::string encode_tiff(full_pixels const& image);
/// \return a PNG file \throws std::runtime_error if libpng cannot encode it
std::string encode_png(full_pixels const& image);

}  // namespace mediagrabber
