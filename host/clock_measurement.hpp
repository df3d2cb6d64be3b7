#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "clock_estimate.hpp"
#include "tick_frequency.hpp"

namespace mediagrabber {

/// When a frame was taken and when it came.
struct frame_times {
    std::uint64_t ticks = 0;         ///< camera clock, the beginning of the exposure
    std::uint64_t announced_us = 0;  ///< the timestamp announced for the next frame
    double exposure_us = 0.0;
    std::chrono::steady_clock::time_point arrived;
};

/// What a calibration found.
struct clock_measurement {
    clock_estimate clock;
    double tick_hz = 0.0;
};

/// Compares the camera's clock with the host's by the frames of a run in camera time.
/// \param tick_hz  ticks that the camera calls a second; nothing: it is told from the frames
/// \throws std::runtime_error with a message for the operator
clock_measurement measure_clock(std::vector<frame_times> const& frames, std::optional<double> tick_hz);

/// What to paste into a configuration, with what it rests upon as comments.
std::string configuration_text(clock_measurement const& measurement);

}  // namespace mediagrabber
