// SPDX-License-Identifier: MIT
#include "timing/frame_schedule.hpp"

namespace camsim {

frame_schedule::frame_schedule(camera_time first_start, camera_time period) : origin_(first_start), period_(period) {}

camera_time frame_schedule::start_of(std::uint64_t index) const {
    return origin_ + period_ * static_cast<long double>(index);
}

frame_schedule::exposure frame_schedule::next(camera_time now, camera_time allowed_delay) {
    exposure result;
    result.first_dropped = start_of(index_);
    if (now > result.first_dropped + allowed_delay) {
        result.dropped = static_cast<std::uint64_t>((now - result.first_dropped) / period_) + 1;
        index_ += result.dropped;
    }
    result.start = start_of(index_);
    ++index_;
    return result;
}

void frame_schedule::set_period(camera_time period) {
    if (period == period_) {
        return;
    }
    if (index_ > 0) {
        origin_ = start_of(index_ - 1);
        index_ = 1;
    }
    period_ = period;
}

}  // namespace camsim
