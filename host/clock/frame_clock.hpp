// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "clock/clock_model.hpp"

namespace mediagrabber {

/// How the time of an exposure is known.
enum class time_source {
    arrivals,   ///< from the arrivals of frames: without the constant part of their delay
    reference,  ///< from arrivals and a measured reference
    ptp,        ///< from the camera, which follows PTP
};

char const* name_of(time_source source);

/// When the exposure of a frame began, on the host's clock.
struct exposure_time {
    std::uint64_t time_us = 0;    ///< since 1970
    double uncertainty_us = 0.0;  ///< half the width of an interval of at least 95 %, whole us
    time_source source = time_source::arrivals;
    std::optional<float> clock_drift_ppm;  ///< how much faster the camera clock runs than the host clock
};

/// A pair of times, measured once: the camera clock showed `ticks` at `time_us`.
struct measured_clock {
    std::uint64_t ticks = 0;
    std::uint64_t time_us = 0;         ///< since 1970
    std::uint64_t uncertainty_us = 0;  ///< half the width
    bool operator==(measured_clock const&) const = default;
};

/// The time of each frame of a recording: by clock_model, whose monotonic clock is converted to the time of day for
/// each frame, so that setting this machine's clock does not disturb the model; or by the camera's clock if it follows
/// PTP. It does if its ticks are nanoseconds since 1970 and within a second of this machine's clock, in UTC or in TAI.
class frame_clock {
public:
    /// The clocks of this machine at one moment.
    struct host_time {
        double monotonic_us = 0.0;
        double day_us = 0.0;  ///< since 1970
    };
    /// Reads both clocks, again if the thread was interrupted between them.
    static host_time now();

    /// \param tick_hz  tick frequency of the camera; 0: found from the frames
    void set_tick_frequency(double tick_hz);
    void set_reference(std::optional<measured_clock> const& reference, host_time const& now);

    /// \param arrived_us   when the frame arrived, on the monotonic clock
    /// \param exposure_us  0: unknown
    exposure_time time_of(std::uint64_t ticks, double arrived_us, double exposure_us, host_time const& now) const;
    /// Adds the frame to the model, once a second with some 100 us of work.
    void add(std::uint64_t ticks, double arrived_us, double exposure_us) {
        model_.add(ticks, arrived_us - exposure_us);
    }

    clock_model const& model() const { return model_; }

private:
    clock_model model_;
    double tick_hz_ = 0.0;
    std::optional<measured_clock> reference_;
};

}  // namespace mediagrabber
