// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// GStreamer's description and memory layout of a frame.

#include <cstddef>
#include <string>

#include "frames/frame_record.hpp"

namespace mediagrabber {

/// \param period_us  frame period, microseconds; 0: not known
/// \return GStreamer caps: media type, format, size and frame rate
std::string caps_of(frame_record const& frame, std::uint32_t period_us);

/// \return bytes from line to line; GStreamer's raw video formats align lines to 4 bytes
std::size_t caps_stride(frame_record const& frame);

}  // namespace mediagrabber
