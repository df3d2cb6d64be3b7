// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

namespace mediagrabber {

/// What the plug-in published with a frame: the camera timestamp, and the timestamp announced for the next frame.
struct announced_ticks {
    std::uint64_t ticks = 0;
    std::uint64_t announced_us = 0;
};

/// The timestamp tick frequency of a camera.
struct tick_frequency {
    double hz = 0.0;
    double relative_uncertainty = 0.0;  ///< 0: exact
};

/// Determines the tick frequency from a run with camera timestamps, in which announced timestamps advance by
/// microseconds of the camera clock. No host function reports the frequency itself. Announced timestamps jump when the
/// plug-in resets its time base; jumps are ignored. If a round frequency agrees with the measurement, it is returned as
/// exact.
///
/// \throws std::runtime_error with a message for the user if there are too few frames
tick_frequency find_tick_frequency(std::span<announced_ticks const> frames);

/// \return the agreeing number with the fewest digits as exact, if it has at most `max_digits`; otherwise what was
///     measured
tick_frequency round_tick_frequency(tick_frequency const& measured, int max_digits);

}  // namespace mediagrabber
