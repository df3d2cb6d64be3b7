// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace mediagrabber {

/// The plug-in's progress. The plug-in's thread writes it, any thread may read each value at any time. Times are of the
/// steady clock; zero means "not yet".
struct grab_progress {
    using clock = std::chrono::steady_clock;

    std::atomic<std::uint64_t> good_frames{0};
    std::atomic<std::uint64_t> empty_fetches{0};  ///< fetches without a good frame, including time-outs
    std::atomic<std::uint64_t> handed_over{0};    ///< frames that the plug-in exported
    std::atomic<std::uint64_t> unusable{0};       ///< triggered frames that do not match what was published about them
    std::atomic<std::uint32_t> period_us{0};      ///< configured frame period; 0: unknown
    std::atomic<std::int32_t> state{0};           ///< the plug-in's grab state; 4: frames are arriving
    std::atomic<std::uint64_t> retries{0};        ///< waits before another run, because the camera is away
    std::atomic<bool> waits_for_retry{false};     ///< one of these waits lasts
    std::atomic<bool> capturing{false};           ///< between the start of acquisition and the end of the loop
    std::atomic<std::uint32_t> announced_settings{0};  ///< number of times that the plug-in reported changed settings
    std::atomic<std::uint32_t> buffers_in_use{0};
    std::atomic<float> temperature_c{0.0F};

    std::atomic<clock::time_point> last_frame{};  ///< the last good frame, or the end of the loop
    std::atomic<clock::time_point> first_exported{};
    std::atomic<clock::time_point> last_exported{};
};

}  // namespace mediagrabber
