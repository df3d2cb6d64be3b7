#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>

#include "frame_watcher_like.hpp"

namespace mediagrabber {

/// The newest frame, for those who look at pictures: kept only while somebody has asked for one lately.
class newest_frame final : public frame_watcher_like {
public:
    using clock = std::chrono::steady_clock;

    void see(frame_lease const& frame) noexcept override;
    bool needs_pixels() const override;
    /// The newest one, and one in each of two encoders.
    std::size_t frames_kept() const override { return 3; }

    /// Waits for a frame with pixels and another number than `known`, seen since `since`. \return nothing at `until`,
    /// or when nothing is waited for any more
    std::optional<frame_lease> wait(std::uint64_t known, clock::time_point since, clock::time_point until);
    /// Ends all waits, those to come as well.
    void cancel();

private:
    std::atomic<clock::rep> wanted_until_{0};
    std::mutex mutex_;
    std::condition_variable seen_;
    std::optional<frame_lease> newest_;
    clock::time_point seen_at_;
    bool cancelled_ = false;
};

}  // namespace mediagrabber
