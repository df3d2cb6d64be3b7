#pragma once

#include <chrono>
#include <cstdint>
#include <thread>

#include "camera_state.hpp"
#include "frame_delivery.hpp"
#include "frame_schedule.hpp"
#include "light_meter.hpp"

namespace camsim {

/// The camera's sensor at work: a thread that exposes frames on schedule and hands each over when its exposure has
/// ended.
class acquisition {
public:
    acquisition(camera_state& state, frame_delivery& delivery);

    void start();
    void stop();

private:
    using state_lock = camera_state::state_lock;
    enum class outcome : std::uint8_t { exposed, left_out, over };

    void run(std::stop_token const& stop);
    void run_acquisition(state_lock& lock, std::stop_token const& stop);
    outcome expose(state_lock& lock, std::stop_token const& stop, frame_schedule& schedule, std::uint64_t run);
    exposed_frame make_frame(camera_time exposure_start);
    void follow_brightness(state_lock& lock, frame_settings const& frame);
    void leave_out(camera_time exposure_start);
    camera_time frame_period() const;

    camera_state& state_;
    frame_delivery& delivery_;
    light_meter meter_;
    std::uint64_t next_frame_number_ = 0;
    std::uint64_t next_block_id_ = 1;
    std::uint64_t channel_opening_ = 0;
    std::jthread thread_;
};

}  // namespace camsim
