// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>
#include <span>

#include "pixel_format.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

/// \return whether a conversion exists; there is none from monochrome to Bayer
bool PixelConversion__IsPossible(pixel_format const& from, pixel_format const& to);

/// Converts a frame. A pure function: no state, no allocation, safe on any thread.
///
/// Depth: the conversion to 8 bits drops the lower 4 of 12 bits, the conversion to 12 bits appends 4 zero bits, so a
/// value stands for the same brightness in both. A Mono12 value of more than 12 bits counts as 4095.
///
/// Bayer to monochrome: grey is (R + 2 G + B) / 4 over a pixel and its eight neighbours. The weights 1 2 1, 2 4 2, 1 2
/// 1 give each colour the same share at every position in the Bayer pattern. Beyond an edge, the frame is mirrored
/// about its outermost pixels, which keeps the pattern.
///
/// \param from format of `source`
/// \param to format of `target`
/// \param source lines without padding, each starting on a whole byte; must not overlap `target`
/// \param target as `source`; bytes beyond the frame stay unchanged
/// \param width in pixels
/// \param height in pixels
/// \return whether the frame was converted: not if the formats cannot be converted or a span is too short
bool PixelConversion__Convert(pixel_format const& from, pixel_format const& to, std::span<uint8_t const> source,
                              std::span<uint8_t> target, uint32_t width, uint32_t height);

}  // namespace Vorn::Support::MediaGrabber::Jai
