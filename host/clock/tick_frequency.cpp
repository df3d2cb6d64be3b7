// SPDX-License-Identifier: MIT
#include "clock/tick_frequency.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <vector>

namespace mediagrabber {

namespace {

constexpr std::size_t min_steps = 16;
constexpr double microseconds = 1e6;
constexpr double jump_us = 5.0;      ///< more than the rounding of two intervals
constexpr double rounding_us = 3.0;  ///< of a difference of announced timestamps
constexpr int digits_of_a_round_number = 4;

/// The difference between two announcements. An announcement is the time of a frame plus the interval before it.
struct step {
    double ticks = 0.0;
    double announced_us = 0.0;
};

std::vector<step> steps_of(std::span<announced_ticks const> frames) {
    auto const interval = [&](std::size_t i) {
        return static_cast<double>(static_cast<std::int64_t>(frames[i].ticks - frames[i - 1].ticks));
    };
    std::vector<step> steps;
    for (std::size_t i = 2; i < frames.size(); ++i) {
        step const one{.ticks = 2.0 * interval(i) - interval(i - 1),
                       .announced_us = static_cast<double>(
                           static_cast<std::int64_t>(frames[i].announced_us - frames[i - 1].announced_us))};
        if (one.ticks > 0.0 && one.announced_us > 0.0) {
            steps.push_back(one);
        }
    }
    return steps;
}

double median_frequency(std::vector<step> const& steps) {
    std::vector<double> frequencies;
    frequencies.reserve(steps.size());
    for (step const& one : steps) {
        frequencies.push_back(one.ticks / one.announced_us * microseconds);
    }
    auto const middle = frequencies.begin() + static_cast<std::ptrdiff_t>(frequencies.size() / 2);
    std::nth_element(frequencies.begin(), middle, frequencies.end());
    return *middle;
}

/// The frequency from all steps without a jump. Consecutive steps are one long step, of which only the ends are
/// rounded.
tick_frequency frequency_without_jumps(std::vector<step> const& steps, double about_hz) {
    step sum;
    std::size_t runs = 0;
    bool running = false;
    for (step const& one : steps) {
        bool const jump = std::abs(one.announced_us - one.ticks / about_hz * microseconds) > jump_us;
        if (!jump) {
            sum.ticks += one.ticks;
            sum.announced_us += one.announced_us;
            runs += running ? 0 : 1;
        }
        running = !jump;
    }
    if (runs == 0) {
        return {};
    }
    double const error = rounding_us * std::sqrt(static_cast<double>(runs));
    return {.hz = sum.ticks / sum.announced_us * microseconds, .relative_uncertainty = error / sum.announced_us};
}

}  // namespace

tick_frequency find_tick_frequency(std::span<announced_ticks const> frames) {
    auto const steps = steps_of(frames);
    tick_frequency measured;
    if (steps.size() >= min_steps) {
        measured = frequency_without_jumps(steps, median_frequency(steps));
    }
    if (measured.hz <= 0.0) {
        throw std::runtime_error(
            "the tick frequency of the camera cannot be determined: measure longer, or use --tick-frequency");
    }
    return round_tick_frequency(measured, digits_of_a_round_number);
}

tick_frequency round_tick_frequency(tick_frequency const& measured, int max_digits) {
    double const magnitude = std::pow(10.0, std::floor(std::log10(measured.hz)));
    for (int digits = 1; digits <= max_digits; ++digits) {
        double const unit = magnitude / std::pow(10.0, digits - 1);
        double const candidate = std::round(measured.hz / unit) * unit;
        if (std::abs(candidate - measured.hz) <= measured.relative_uncertainty * measured.hz) {
            return {.hz = candidate, .relative_uncertainty = 0.0};
        }
    }
    return measured;
}

}  // namespace mediagrabber
