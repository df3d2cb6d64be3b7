// SPDX-License-Identifier: MIT
#include "clock/clock_estimate.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <vector>

namespace mediagrabber {

namespace {

constexpr std::size_t window_count = 16;  ///< enough points for a line, enough samples per window for a quantile
constexpr std::array<double, 5> tried_quantiles{0.0, 0.05, 0.1, 0.25, 0.5};
constexpr int passes = 3;
constexpr double clock_step_us = 1.0;  ///< resolution of the times
constexpr double nanoseconds = 1e9;
constexpr double microseconds = 1e6;
/// Selecting the best of several statistics underestimates the error. Determined by simulation, see the tests.
constexpr double allowance_for_choosing = 1.25;

struct point {
    double x = 0.0;
    double y = 0.0;
};

/// A straight line through points, and the error of its slope.
struct line {
    double slope = 0.0;
    double slope_error = 0.0;  ///< one standard deviation
};

line through(std::span<point const> points) {
    auto const count = static_cast<double>(points.size());
    point mean;
    for (point const& one : points) {
        mean.x += one.x / count;
        mean.y += one.y / count;
    }
    double xx = 0.0;
    double xy = 0.0;
    for (point const& one : points) {
        xx += (one.x - mean.x) * (one.x - mean.x);
        xy += (one.x - mean.x) * (one.y - mean.y);
    }
    line fitted{.slope = xy / xx, .slope_error = 0.0};
    double squares = 0.0;
    for (point const& one : points) {
        double const off = one.y - mean.y - fitted.slope * (one.x - mean.x);
        squares += off * off;
    }
    // Times are rounded to microseconds, which limits the precision even if all points are on the line.
    double const rounding = count * clock_step_us * clock_step_us / 12.0;
    fitted.slope_error = std::sqrt(std::max(squares, rounding) / (count - 2.0) / xx);
    return fitted;
}

/// The 97.5 % quantile of Student's distribution, by the expansion of Cornish and Fisher.
double student_limit(double freedom) {
    constexpr double z = 1.959964;
    double const z3 = z * z * z;
    double const z5 = z3 * z * z;
    double const z7 = z5 * z * z;
    return z + (z3 + z) / (4.0 * freedom) + (5.0 * z5 + 16.0 * z3 + 3.0 * z) / (96.0 * freedom * freedom) +
           (3.0 * z7 + 19.0 * z5 + 17.0 * z3 - 15.0 * z) / (384.0 * freedom * freedom * freedom);
}

/// The point of a window: a quantile of its delays relative to `rate`.
point representative(std::span<clock_sample const> window, double rate, double quantile) {
    std::vector<point> delays;
    delays.reserve(window.size());
    double mean_x = 0.0;
    for (clock_sample const& one : window) {
        delays.push_back({.x = one.camera_us, .y = one.host_us - rate * one.camera_us});
        mean_x += one.camera_us / static_cast<double>(window.size());
    }
    auto const at = static_cast<std::ptrdiff_t>(quantile * static_cast<double>(window.size() - 1));
    std::nth_element(delays.begin(), delays.begin() + at, delays.end(),
                     [](point const& a, point const& b) { return a.y < b.y; });
    point const& found = delays[static_cast<std::size_t>(at)];
    return {.x = quantile == 0.0 ? found.x : mean_x, .y = found.y};
}

std::vector<point> representatives(std::span<clock_sample const> samples, double rate, double quantile) {
    std::vector<point> points;
    for (std::size_t i = 0; i < window_count; ++i) {
        std::size_t const first = i * samples.size() / window_count;
        std::size_t const end = (i + 1) * samples.size() / window_count;
        points.push_back(representative(samples.subspan(first, end - first), rate, quantile));
    }
    return points;
}

/// An estimate that is robust against outliers: the median of the slopes between the medians of any two windows (Theil
/// and Sen).
double robust_rate(std::span<clock_sample const> samples) {
    auto const points = representatives(samples, 1.0, 0.5);
    std::vector<double> slopes;
    for (std::size_t i = 0; i < points.size(); ++i) {
        for (std::size_t j = i + 1; j < points.size(); ++j) {
            slopes.push_back((points[j].y - points[i].y) / (points[j].x - points[i].x));
        }
    }
    auto const middle = slopes.begin() + static_cast<std::ptrdiff_t>(slopes.size() / 2);
    std::nth_element(slopes.begin(), middle, slopes.end());
    return 1.0 + *middle;
}

/// Fits a line several times, because the points depend on the rate: delays within a window are relative to it.
line refined(std::span<clock_sample const> samples, double rate, double quantile) {
    line fitted;
    for (int i = 0; i < passes; ++i) {
        fitted = through(representatives(samples, rate, quantile));
        rate += fitted.slope;
    }
    return {.slope = rate, .slope_error = fitted.slope_error};
}

double delay_spread(std::span<clock_sample const> samples, double rate) {
    return representative(samples, rate, 0.5).y - representative(samples, rate, 0.0).y;
}

void check(std::span<clock_sample const> samples) {
    if (samples.size() < min_clock_samples) {
        throw std::runtime_error(fmt::format("{} frames are too few, at least {} are required: measure longer",
                                             samples.size(), min_clock_samples));
    }
    auto const later = [](clock_sample const& a, clock_sample const& b) { return a.camera_us >= b.camera_us; };
    if (std::adjacent_find(samples.begin(), samples.end(), later) != samples.end()) {
        throw std::runtime_error("the camera clock was set back during the measurement: measure again");
    }
}

}  // namespace

clock_estimate estimate_clock(std::span<clock_sample const> samples) {
    check(samples);
    double const first_rate = robust_rate(samples);
    line best{.slope = 0.0, .slope_error = HUGE_VAL};
    for (double const quantile : tried_quantiles) {
        line const tried = refined(samples, first_rate, quantile);
        best = tried.slope_error < best.slope_error ? tried : best;
    }
    // The correction refers to seconds of the host clock, during which the camera clock advances by 1 / rate.
    double const error = best.slope_error / (best.slope * best.slope);
    return {.correction_ns = (1.0 - 1.0 / best.slope) * nanoseconds,
            .uncertainty_ns = student_limit(window_count - 2) * allowance_for_choosing * error * nanoseconds,
            .span_s = (samples.back().host_us - samples.front().host_us) / microseconds,
            .frames = samples.size(),
            .delay_spread_us = delay_spread(samples, best.slope)};
}

}  // namespace mediagrabber
