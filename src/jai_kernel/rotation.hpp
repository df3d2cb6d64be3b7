#pragma once
#include <cstdint>
#include <span>

#include "pixel_format.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

/// Turns a frame by 180 degrees in place.
///
/// `frame` holds `height` lines of `width` pixels without gaps, each line beginning on a whole byte; what follows is
/// left alone, and a span too short for that is left alone altogether. A Bayer frame keeps the phase of its pattern:
/// along a side of even length the 2-pixel cells change places and keep their inner order. \return whether the frame
/// was turned
bool Rotation__TurnBy180(pixel_format const& format, std::span<uint8_t> frame, uint32_t width, uint32_t height);

}  // namespace Vorn::Support::MediaGrabber::Jai
