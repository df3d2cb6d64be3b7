// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

namespace mediagrabber {

/// Measures how long a stop request has been pending. The plug-in polls requests only when a frame arrives, so the time
/// counts from the request or from the last frame after it. Used by one thread.
class grace_timer {
public:
    using clock = std::chrono::steady_clock;

    explicit grace_timer(clock::duration grace) : grace_(grace) {}

    /// \param stop_pending  whether a stop request waits for the plug-in
    /// \param last_frame    when the last good frame arrived
    /// \return whether the grace time is over
    bool expired(clock::time_point now, bool stop_pending, clock::time_point last_frame) {
        if (!stop_pending) {
            since_.reset();
            return false;
        }
        if (!since_) {
            since_ = now;
        }
        return now - std::max(*since_, last_frame) >= grace_;
    }

private:
    clock::duration const grace_;
    std::optional<clock::time_point> since_;  ///< the stop was first seen pending
};

}  // namespace mediagrabber
