#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

namespace mediagrabber {

/// Measures how long a stop that was asked for has gone unanswered. The plug-in looks at requests only when a frame
/// arrives, so the time counts from the request, or from the last frame that came after it.
class grace_timer {
public:
    using clock = std::chrono::steady_clock;

    explicit grace_timer(clock::duration grace) : grace_(grace) {}

    /// \param stop_pending  whether a stop waits for the plug-in
    /// \param last_frame    when the last good frame came
    /// \return whether the plug-in has had its time
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
