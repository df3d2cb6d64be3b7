#pragma once
/// \file
/// How GStreamer calls a frame, and how it wants it to lie in memory.

#include <cstddef>
#include <string>

#include "frame_record.hpp"

namespace mediagrabber {

/// \param period_us  between two frames; 0: not known
std::string caps_of(frame_record const& frame, std::uint32_t period_us);

/// Bytes from line to line: GStreamer begins each at a multiple of 4.
std::size_t caps_stride(frame_record const& frame);

}  // namespace mediagrabber
