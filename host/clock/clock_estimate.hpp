// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <span>

namespace mediagrabber {

/// The exposure time of a frame on the camera clock and its arrival time on the host clock, each with any origin.
struct clock_sample {
    double camera_us = 0.0;
    double host_us = 0.0;
};

/// How much slower the camera clock runs than the host clock.
struct clock_estimate {
    double correction_ns = 0.0;   ///< ns per second of the host clock
    double uncertainty_ns = 0.0;  ///< half the width of the 95 % confidence interval
    double span_s = 0.0;
    std::size_t frames = 0;
    double delay_spread_us = 0.0;  ///< median delay above the minimum delay
};

/// The minimum number of frames for an estimate: four per window.
inline constexpr std::size_t min_clock_samples = 64;

/// Estimates the rate of one clock against another from frames that travel between them.
///
/// Every frame has a delay, which is never negative and sometimes very long. The mean delay varies too much to compare
/// clocks; the minimum delay is stable. Therefore the samples are divided into windows, each window contributes one low
/// order statistic of its delays, and a straight line through these points gives the rate. The most stable statistic
/// depends on the network (the minimum if undelayed frames are frequent, a quantile if they are rare); several are
/// tried, and the one with the smallest scatter around its line is used. That scatter also determines the uncertainty,
/// because every disturbance, including a change of the drift, increases it. Minimum filtering is the method of V.
/// Paxson, "On Calibrating Measurements of Packet Transit Times" (SIGMETRICS 1998); the line and its error are ordinary
/// regression with Student's distribution.
///
/// \param samples  in the order of time, at least min_clock_samples
/// \throws std::runtime_error with a message for the user if there are too few, or the camera clock was set back
clock_estimate estimate_clock(std::span<clock_sample const> samples);

}  // namespace mediagrabber
