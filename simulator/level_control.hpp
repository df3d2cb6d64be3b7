#pragma once

#include <cstdint>

/// Automatic level control: exposure and gain follow the brightness of the picture.
namespace camsim {

enum class automatic : std::uint8_t { off = 0, once = 1, continuous = 2 };

/// What the application has set of it.
struct level_settings {
    automatic gain = automatic::off;
    automatic exposure = automatic::off;
    std::int64_t reference_percent = 50;  ///< mean of the picture, of full scale
    bool middle_only = false;             ///< ALCAreaEnable
    std::int64_t lowest_gain_raw = 100;   ///< hundredths of the linear factor
    std::int64_t highest_gain_raw = 1600;
    std::int64_t shortest_exposure_us = 10;
    std::int64_t longest_exposure_us = 50'000;

    bool active() const { return gain != automatic::off || exposure != automatic::off; }
    double target() const;
};

/// One of the two things that brightness depends on.
struct brightness_part {
    double value = 1.0;
    bool follows = false;  ///< the control may change it, and keeps it between the limits
    double lowest = 1.0;
    double highest = 1.0;  ///< counts before `lowest` when it is the smaller one
};

/// The control loop, from frame to frame. It knows numbers only: a frame's mean goes in, what the next frame is to be
/// exposed with comes out.
class level_control {
public:
    struct result {
        double exposure_us;
        double gain;
        bool settled;  ///< bright enough, or as near to it as the limits allow
    };

    result next(double mean, double target, brightness_part const& exposure, brightness_part const& gain);
    void reset();

private:
    double step_for(double error);

    double last_error_ = 0.0;  ///< logarithm of target / mean
    double effort_ = first_effort;

    static constexpr double first_effort = 0.6;
};

}  // namespace camsim
