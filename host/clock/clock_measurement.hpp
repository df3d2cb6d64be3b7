// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "clock/clock_estimate.hpp"
#include "clock/tick_frequency.hpp"

namespace mediagrabber {

/// The times of a frame.
struct frame_times {
    std::uint64_t ticks = 0;         ///< camera clock, at the start of the exposure
    std::uint64_t announced_us = 0;  ///< the timestamp announced for the next frame
    double exposure_us = 0.0;
    std::chrono::steady_clock::time_point arrived;
};

/// The result of a calibration.
struct clock_measurement {
    clock_estimate clock;
    double tick_hz = 0.0;
};

/// Compares the camera clock with the host clock, by the frames of a run with camera timestamps.
/// \param tick_hz  timestamp tick frequency of the camera; nothing: measured from the frames
/// \throws std::runtime_error with a message for the user
clock_measurement measure_clock(std::vector<frame_times> const& frames, std::optional<double> tick_hz);

/// The line for a configuration file, with the data of the measurement as comments.
std::string configuration_text(clock_measurement const& measurement);

}  // namespace mediagrabber
