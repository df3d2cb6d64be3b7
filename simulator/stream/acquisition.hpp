// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <thread>

#include "device/camera_state.hpp"
#include "image/light_meter.hpp"
#include "stream/frame_delivery.hpp"
#include "timing/frame_schedule.hpp"

namespace camsim {

/// The sensor: a thread that exposes frames on schedule, or when triggered, and passes each to frame_delivery when its
/// exposure ends.
///
/// It exposes while an acquisition is started and stream channel 0 is open. The thread runs from start() to stop() or
/// destruction. It holds the state's mutex except while it waits and while it measures brightness. The referenced
/// objects must outlive it.
class acquisition {
public:
    acquisition(camera_state& state, frame_delivery& delivery);

    void start();

    /// Ends the thread, even in the middle of an exposure.
    void stop();

private:
    using state_lock = camera_state::state_lock;
    enum class step : std::uint8_t { exposed, dropped, ended };

    void run(std::stop_token const& stop);
    void run_acquisition(state_lock& lock, std::stop_token const& stop);
    step expose(state_lock& lock, std::stop_token const& stop, frame_schedule& schedule, std::uint64_t run);
    template <typename predicate>
    std::optional<camera_time> scheduled_start(state_lock& lock, std::stop_token const& stop, frame_schedule& schedule,
                                               camera_time max_lateness, predicate stopped);
    template <typename predicate>
    std::optional<camera_time> triggered_start(state_lock& lock, std::stop_token const& stop, predicate stopped);
    exposed_frame make_frame(camera_time exposure_start);
    void update_levels(state_lock& lock, frame_settings const& frame);
    void drop_frame(camera_time exposure_start);
    camera_time frame_period() const;
    camera_time min_frame_period() const;

    camera_state& state_;
    frame_delivery& delivery_;
    light_meter meter_;
    std::uint64_t next_frame_number_ = 0;
    std::uint64_t next_block_id_ = 1;
    std::uint64_t channel_opening_ = 0;  ///< that next_block_id_ belongs to
    std::jthread thread_;
};

}  // namespace camsim
