#pragma once

#include <cstdint>

#include "device_clock.hpp"

namespace camsim {

/// When exposures begin: an absolute grid that no delay shifts. A camera that falls behind by more than its memory
/// holds leaves frames out and finds back onto the grid.
class frame_schedule {
public:
    struct exposure {
        camera_time start{0};
        std::uint64_t skipped = 0;     ///< frames left out right before this one
        camera_time first_skipped{0};  ///< when the first of them would have begun
    };

    frame_schedule(camera_time first_start, camera_time period);

    exposure next(camera_time now, camera_time allowed_delay);
    void set_period(camera_time period);
    camera_time period() const { return period_; }

private:
    camera_time start_of(std::uint64_t index) const;

    camera_time origin_;
    camera_time period_;
    std::uint64_t index_ = 0;  ///< of the next exposure, counted from origin_
};

}  // namespace camsim
