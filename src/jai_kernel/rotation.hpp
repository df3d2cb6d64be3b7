// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>
#include <span>

#include "pixel_format.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

/// Rotates a frame by 180 degrees in place. A pure function: no state, no allocation, safe on any thread.
///
/// A Bayer frame keeps the phase of its pattern: along a side of even length the 2 x 2 cells change places and keep
/// their inner order.
///
/// \param format of the frame
/// \param frame lines without padding, each starting on a whole byte; bytes beyond the frame stay unchanged
/// \param width in pixels
/// \param height in pixels
/// \return whether the frame was rotated: not if the span is too short, which leaves it unchanged
bool Rotation__TurnBy180(pixel_format const& format, std::span<uint8_t> frame, uint32_t width, uint32_t height);

}  // namespace Vorn::Support::MediaGrabber::Jai
