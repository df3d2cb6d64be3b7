#pragma once

#include <cstddef>

#include "frame_record.hpp"

namespace mediagrabber {

/// Something that keeps frames.
class frame_sink_like {
public:
    virtual ~frame_sink_like() = default;
    /// Keeps a frame whole or not at all. \return bytes written \throws std::exception when it could not be kept
    virtual std::size_t keep(frame_view const& frame) = 0;
    /// Whether `keep` looks at a frame's pixels; without, it gets none.
    virtual bool needs_pixels() const { return true; }

protected:
    frame_sink_like() = default;
    frame_sink_like(frame_sink_like const&) = default;
    frame_sink_like& operator=(frame_sink_like const&) = default;
};

}  // namespace mediagrabber
