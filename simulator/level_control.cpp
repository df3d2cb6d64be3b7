#include "level_control.hpp"

#include <algorithm>
#include <cmath>

namespace camsim {

namespace {

constexpr double full_scale = 4095.0;
/// Below this a mean counts as this: a black picture has no logarithm.
constexpr double darkest_mean = 0.5;
/// Logarithms. Within the dead band nothing moves, so that noise and a moving scene do not keep the control busy.
constexpr double dead_band = 0.01;
double const largest_step = std::log(4.0);

double clamped(double value, brightness_part const& part) {
    return std::min(std::max(value, part.lowest), part.highest);
}

/// Multiplies a part as far as its limits allow.
/// \return what is left of the factor for the other part
double multiply(brightness_part& part, double factor) {
    if (!part.follows) {
        return factor;
    }
    double const before = part.value;
    part.value = clamped(before * factor, part);
    return before * factor / part.value;
}

}  // namespace

/// The mean that the reference asks for, as a 12-bit value.
double level_settings::target() const {
    return full_scale * static_cast<double>(reference_percent) / 100.0;
}

/// A longer exposure comes before more gain and less gain before a shorter exposure, because gain amplifies the noise.
/// \param mean 12-bit mean of the frame that was exposed with `exposure` and `gain`
/// \param target 12-bit mean to come to
level_control::result level_control::next(double mean, double target, brightness_part const& exposure,
                                          brightness_part const& gain) {
    double const error = std::log(std::max(target, darkest_mean) / std::max(mean, darkest_mean));
    brightness_part new_exposure = exposure;
    brightness_part new_gain = gain;
    multiply(new_exposure, 1.0);  // limits may have moved since
    multiply(new_gain, 1.0);
    bool const good = std::abs(error) < dead_band;
    if (!good) {
        double const factor = std::exp(step_for(error));
        brightness_part& first = factor > 1.0 ? new_exposure : new_gain;
        brightness_part& second = factor > 1.0 ? new_gain : new_exposure;
        multiply(second, multiply(first, factor));
    }
    bool const stuck = new_exposure.value == exposure.value && new_gain.value == gain.value;
    last_error_ = error;
    return {new_exposure.value, new_gain.value, good || stuck};
}

void level_control::reset() {
    last_error_ = 0.0;
    effort_ = first_effort;
}

/// How far to go, as a logarithm. Less than the whole way, because a table can make the picture answer more strongly
/// than the exposure changes. A picture that hardly answers, saturated or deep in the dark, is pushed harder each time
/// until it does.
double level_control::step_for(double error) {
    bool const same_side = error * last_error_ > 0.0;
    bool const hardly_answered = std::abs(error) > 0.7 * std::abs(last_error_);
    effort_ = same_side && hardly_answered ? effort_ * 1.6 : first_effort;
    return std::clamp(effort_ * error, -largest_step, largest_step);
}

}  // namespace camsim
