#pragma once

#include <cstddef>
#include <span>

namespace mediagrabber {

/// When a frame was taken by the camera's clock, and when it arrived by the host's; both from any beginning.
struct clock_sample {
    double camera_us = 0.0;
    double host_us = 0.0;
};

/// How much slower the camera's clock runs than the host's.
struct clock_estimate {
    double correction_ns = 0.0;   ///< ns per second of the host's clock
    double uncertainty_ns = 0.0;  ///< half of the interval that holds the truth in 95 cases of 100
    double span_s = 0.0;
    std::size_t frames = 0;
    double delay_spread_us = 0.0;  ///< half of the delays lie within so much of their least
};

/// The fewest frames that an estimate can be made of.
inline constexpr std::size_t fewest_clock_samples = 64;

/// Compares two clocks by frames on their way from one to the other.
///
/// Every frame is late by some delay, which is never negative and now and then very long; the delays' mean says little
/// about the clocks, while the least of them hardly changes. So the time is divided into windows, and of each one only
/// a low order statistic of the delays is looked at; a straight line through these few points gives the rate. Which
/// statistic is steadiest depends on the network (the minimum where undelayed frames are frequent, a quantile where
/// they are rare), so several are tried, and the one whose points lie best on their line is taken. How well they do is
/// also the measure of the uncertainty: whatever disturbs the windows, a drift of the drift included, scatters the
/// points. Minimum filtering is that of V. Paxson, "On Calibrating Measurements of Packet Transit Times" (SIGMETRICS
/// 1998); the points' line and its error are ordinary regression with Student's distribution.
///
/// \param samples  in the order of time, at least fewest_clock_samples of them, spread over some time
/// \throws std::runtime_error with a message for the operator when there are too few
clock_estimate estimate_clock(std::span<clock_sample const> samples);

}  // namespace mediagrabber
