// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>

#include "frames/frame_observer_like.hpp"

namespace mediagrabber {

/// Passes the latest frame to viewers: previews and snapshots. A frame is held only while a client waits or has waited
/// during the last half second, so without viewers no buffer is occupied and no pixels are requested.
///
/// on_frame() runs on the exporter's thread, everything else on any.
class latest_frame final : public frame_observer_like {
public:
    using clock = std::chrono::steady_clock;

    void on_frame(frame_lease const& frame) noexcept override;
    bool needs_pixels() const override;
    /// \return 1 for the latest frame, and 1 for each user
    std::size_t max_frames_held() const override { return 1 + users_; }
    /// Adds a user, which holds at most one frame that wait() has returned. Call it before the recording starts.
    void add_user() { ++users_; }

    /// Waits for a frame with pixels.
    /// \param known  number of the frame that the client already has
    /// \param since  frames that arrived earlier are ignored
    /// \param until  end of the wait
    /// \return nothing at the end of the wait or after cancel()
    std::optional<frame_lease> wait(std::uint64_t known, clock::time_point since, clock::time_point until);
    /// \return whether the frame with this number is the latest; false if no frames are wanted
    bool is_latest(std::uint64_t number) const;
    /// Ends all current and future waits.
    void cancel();

private:
    std::size_t users_ = 0;
    std::atomic<std::size_t> waiting_{0};  ///< clients
    std::atomic<clock::rep> wanted_until_{0};
    mutable std::mutex mutex_;  ///< guards the members below
    std::condition_variable arrived_;
    std::optional<frame_lease> latest_;
    clock::time_point arrived_at_;
    bool cancelled_ = false;
};

}  // namespace mediagrabber
