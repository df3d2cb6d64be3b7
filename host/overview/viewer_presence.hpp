// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stop_token>

namespace mediagrabber {

/// Whether the overview has viewers. Recordings are only asked while it has, because a preview costs the
/// recording's machine CPU time. Any thread may call any member.
class viewer_presence {
public:
    using clock = std::chrono::steady_clock;

    /// A viewer has asked for the overview.
    void note() {
        std::lock_guard const lock(mutex_);
        until_ = clock::now() + present_time;
        changed_.notify_all();
    }
    /// Waits for the time, and then until a viewer is present. \return false if a stop was requested
    bool wait(std::stop_token const& stop, clock::time_point not_before) {
        std::unique_lock lock(mutex_);
        changed_.wait_until(lock, stop, not_before, [] { return false; });
        changed_.wait(lock, stop, [this] { return clock::now() < until_; });
        return !stop.stop_requested();
    }

private:
    static constexpr std::chrono::seconds present_time{10};  ///< several requests of the page, which asks each second

    std::mutex mutex_;
    std::condition_variable_any changed_;
    clock::time_point until_ = clock::time_point::min();
};

}  // namespace mediagrabber
