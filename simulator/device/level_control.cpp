// SPDX-License-Identifier: MIT
#include "device/level_control.hpp"

#include <algorithm>
#include <cmath>

namespace camsim {

namespace {

constexpr double full_scale = 4095.0;
/// Lower bound of the mean, because the logarithm of a black image's mean is not finite.
constexpr double min_mean = 0.5;
/// Logarithm of the error, about 1 %, below which nothing changes, so that noise and motion do not cause adjustments.
constexpr double dead_band = 0.01;
/// Logarithm of the largest change from one frame to the next.
double const max_step = std::log(4.0);

double clamped(double value, controlled_value const& part) {
    return std::min(std::max(value, part.minimum), part.maximum);
}

/// Multiplies a value as far as its limits allow.
/// \return the remaining factor for the other value
double multiply(controlled_value& part, double factor) {
    if (!part.adjustable) {
        return factor;
    }
    double const before = part.value;
    part.value = clamped(before * factor, part);
    return before * factor / part.value;
}

}  // namespace

double level_settings::target() const {
    return full_scale * static_cast<double>(reference_percent) / 100.0;
}

level_control::result level_control::next(double mean, double target, controlled_value const& exposure,
                                          controlled_value const& gain) {
    double const error = std::log(std::max(target, min_mean) / std::max(mean, min_mean));
    controlled_value new_exposure = exposure;
    controlled_value new_gain = gain;
    multiply(new_exposure, 1.0);  // applies limits that have changed
    multiply(new_gain, 1.0);
    bool const reached = std::abs(error) < dead_band;
    if (!reached) {
        double const factor = std::exp(step_for(error));
        controlled_value& first = factor > 1.0 ? new_exposure : new_gain;
        controlled_value& second = factor > 1.0 ? new_gain : new_exposure;
        multiply(second, multiply(first, factor));
    }
    bool const unchanged = new_exposure.value == exposure.value && new_gain.value == gain.value;
    last_error_ = error;
    return {new_exposure.value, new_gain.value, reached || unchanged};
}

void level_control::reset() {
    last_error_ = 0.0;
    loop_gain_ = initial_loop_gain;
}

/// \return the logarithm of the factor to apply. The loop gain increases while the image hardly responds, because it is
/// saturated or too dark, and is reset as soon as it responds. Threshold and increase are tuned so that the level
/// settles within 60 frames from any exposure and gain (LevelControl tests).
double level_control::step_for(double error) {
    bool const same_side = error * last_error_ > 0.0;
    bool const hardly_responds = std::abs(error) > 0.7 * std::abs(last_error_);
    loop_gain_ = same_side && hardly_responds ? loop_gain_ * 1.6 : initial_loop_gain;
    return std::clamp(loop_gain_ * error, -max_step, max_step);
}

}  // namespace camsim
