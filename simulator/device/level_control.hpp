// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// Automatic level control (ALC): adjusts exposure and gain to the brightness of the image.
namespace camsim {

/// Entries of GainAuto and ExposureAuto (SFNC).
enum class automatic : std::uint8_t { off = 0, once = 1, continuous = 2 };

/// The application's settings.
struct level_settings {
    automatic gain = automatic::off;
    automatic exposure = automatic::off;
    std::int64_t reference_percent = 50;  ///< target for the mean of the image, in percent of full scale
    bool centre_only = false;             ///< ALCAreaEnable
    std::int64_t min_gain_raw = 100;      ///< hundredths of the linear factor
    std::int64_t max_gain_raw = 1600;
    std::int64_t min_exposure_us = 10;
    std::int64_t max_exposure_us = 50'000;

    bool active() const { return gain != automatic::off || exposure != automatic::off; }

    /// \return the target mean as a 12-bit value
    double target() const;
};

/// Exposure or gain as the control loop sees it.
struct controlled_value {
    double value = 1.0;
    bool adjustable = false;  ///< the loop may change it and keeps it within the limits
    double minimum = 1.0;
    double maximum = 1.0;  ///< takes precedence if it is less than `minimum`
};

/// The control loop: takes the mean of a frame and returns exposure and gain of the next one. A value type without
/// camera or clock; not synchronised, part of camera_state.
class level_control {
public:
    struct result {
        double exposure_us;
        double gain;
        bool settled;  ///< the target is reached, or as nearly as the limits allow
    };

    /// Prefers a longer exposure to more gain, and less gain to a shorter exposure, because gain amplifies noise.
    /// \param mean 12-bit mean of the frame that was exposed with `exposure` and `gain`
    /// \param target 12-bit target mean
    result next(double mean, double target, controlled_value const& exposure, controlled_value const& gain);

    void reset();

private:
    double step_for(double error);

    double last_error_ = 0.0;  ///< logarithm of target / mean
    double loop_gain_ = initial_loop_gain;

    /// Fraction of the error that a step corrects. Below 1, because a LUT can amplify changes of brightness.
    static constexpr double initial_loop_gain = 0.6;
};

}  // namespace camsim
