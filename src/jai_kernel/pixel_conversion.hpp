#pragma once
#include <cstdint>
#include <span>

#include "pixel_format.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

/// Is there a conversion from one format to the other? There is none from monochrome to Bayer.
bool PixelConversion__IsPossible(pixel_format const& from, pixel_format const& to);

/// Converts a frame of `width` x `height` pixels. Both spans hold lines without gaps, each beginning on a whole byte.
///
/// Depths: 12 bits become 8 by dropping the lower 4, 8 bits become 12 by 4 zero bits, so that a value means the same
/// brightness in both; a Mono12 value beyond 12 bits counts as 4,095. Bayer becomes grey as (R + 2 G + B) / 4 of the
/// pixel and its eight neighbours: the weights 1 2 1, 2 4 2, 1 2 1 give every colour the same share wherever in the
/// pattern they are laid. Beyond an edge the frame goes on as its mirror image about the outermost pixel, which keeps
/// the pattern. \return whether the frame was converted; not when there is no such conversion or a span is too short
bool PixelConversion__Convert(pixel_format const& from, pixel_format const& to, std::span<uint8_t const> source,
                              std::span<uint8_t> target, uint32_t width, uint32_t height);

}  // namespace Vorn::Support::MediaGrabber::Jai
