#pragma once

#include <cstddef>

#include "frame_lease.hpp"

namespace mediagrabber {

/// Somebody who looks at frames on their way to the sink, and is not waited for.
class frame_watcher_like {
public:
    virtual ~frame_watcher_like() = default;
    /// A frame is here; called on the exporter's thread before the sink has it. Takes microseconds, throws nothing. A
    /// copy of the lease keeps the frame for later.
    virtual void see(frame_lease const& frame) noexcept = 0;
    /// Whether a frame that comes now should have its pixels; from any thread.
    virtual bool needs_pixels() const { return false; }
    /// Frames that are kept at most. There is memory for so many more.
    virtual std::size_t frames_kept() const { return 0; }

protected:
    frame_watcher_like() = default;
    frame_watcher_like(frame_watcher_like const&) = default;
    frame_watcher_like& operator=(frame_watcher_like const&) = default;
};

}  // namespace mediagrabber
