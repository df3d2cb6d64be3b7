// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "timing/device_clock.hpp"

namespace camsim {

/// When exposures start: at multiples of the frame period, so delays do not accumulate. A camera that falls behind by
/// more than its frame memory holds drops frames and continues on the same grid.
class frame_schedule {
public:
    struct exposure {
        camera_time start{0};
        std::uint64_t dropped = 0;     ///< frames dropped directly before this one
        camera_time first_dropped{0};  ///< start of the first of them
    };

    frame_schedule(camera_time first_start, camera_time period);

    /// \param allowed_delay how far the exposure may start in the past
    /// \return the next exposure; its start may be in the future
    exposure next(camera_time now, camera_time allowed_delay);

    /// Changes the period from the last exposure on.
    void set_period(camera_time period);

    camera_time period() const { return period_; }

private:
    camera_time start_of(std::uint64_t index) const;

    camera_time origin_;
    camera_time period_;
    std::uint64_t index_ = 0;  ///< of the next exposure, counted from origin_
};

}  // namespace camsim
