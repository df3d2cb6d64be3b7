// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

#include "frames/frame_record.hpp"

namespace mediagrabber {

/// Saves frames. The exporter calls it on its thread, one frame at a time.
class frame_sink_like {
public:
    virtual ~frame_sink_like() = default;
    /// Saves a frame completely or not at all.
    /// \return bytes written
    /// \throws std::exception if the frame could not be saved
    virtual std::size_t write(frame_view const& frame) = 0;
    /// Whether `write` reads the pixels of a frame; if not, it may receive none.
    virtual bool needs_pixels() const { return true; }

protected:
    frame_sink_like() = default;
    frame_sink_like(frame_sink_like const&) = default;
    frame_sink_like& operator=(frame_sink_like const&) = default;
};

}  // namespace mediagrabber
