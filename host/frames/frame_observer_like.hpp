// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

#include "frames/frame_lease.hpp"

namespace mediagrabber {

/// Receives every frame before it is saved, for monitoring. An observer must not delay the frame path.
class frame_observer_like {
public:
    virtual ~frame_observer_like() = default;
    /// Called for each frame on the exporter's thread, before the sink. Must return within microseconds. A copy of the
    /// lease keeps the frame in memory.
    virtual void on_frame(frame_lease const& frame) noexcept = 0;
    /// Whether the next frame should have its pixels. Called on the plug-in's thread.
    virtual bool needs_pixels() const { return false; }
    /// The maximum number of leases that the observer holds at a time; the buffer pool is larger by that number.
    virtual std::size_t max_frames_held() const { return 0; }

protected:
    frame_observer_like() = default;
    frame_observer_like(frame_observer_like const&) = default;
    frame_observer_like& operator=(frame_observer_like const&) = default;
};

}  // namespace mediagrabber
