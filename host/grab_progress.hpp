#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace mediagrabber {

/// What the plug-in tells of its work, as other threads may read it at any time. Times are of the steady clock; their
/// zero means "not yet".
struct grab_progress {
    using clock = std::chrono::steady_clock;

    std::atomic<std::uint64_t> good_frames{0};
    std::atomic<std::uint64_t> empty_fetches{0};       ///< fetches without a usable image, time-outs included
    std::atomic<std::uint64_t> handed_over{0};         ///< frames that the plug-in had exported
    std::atomic<std::uint64_t> unusable{0};            ///< of them, those that the host could make nothing of
    std::atomic<std::uint32_t> period_us{0};           ///< frame period in force
    std::atomic<std::int32_t> state{0};                ///< the plug-in's code; 4: frames are arriving
    std::atomic<bool> capturing{false};                ///< between the beginning of capture and the end of the loop
    std::atomic<std::uint32_t> announced_settings{0};  ///< how often the plug-in asked for its settings to be announced
    std::atomic<std::uint32_t> buffers_in_use{0};
    std::atomic<float> temperature_c{0.0F};

    std::atomic<clock::time_point> last_frame{};  ///< the last good frame, or the end of the loop
    std::atomic<clock::time_point> first_exported{};
    std::atomic<clock::time_point> last_exported{};
};

}  // namespace mediagrabber
