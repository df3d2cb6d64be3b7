// SPDX-License-Identifier: MIT
#include "device/sensor.hpp"
#include "features/camera_features.hpp"

namespace camsim {

namespace {

feature automatic_feature(std::string name, std::string category, std::string tooltip, camera_state& state,
                          automatic& mode) {
    return {.name = std::move(name),
            .category = std::move(category),
            .tooltip = std::move(tooltip),
            .cachable = false,  // Once changes to Off by itself
            .kind = enumeration_kind{.get = [&mode] { return static_cast<std::int64_t>(mode); },
                                     .set =
                                         [&state, &mode](std::int64_t value) {
                                             mode = static_cast<automatic>(value);
                                             state.level_loop.reset();
                                             return gvcp::status::success;
                                         },
                                     .entries = {{"Off", 0}, {"Once", 1}, {"Continuous", 2}}}};
}

feature number(std::string name, std::string category, std::string tooltip, std::string unit, std::int64_t& value,
               std::int64_t minimum, std::int64_t maximum) {
    return {.name = std::move(name),
            .category = std::move(category),
            .tooltip = std::move(tooltip),
            .unit = std::move(unit),
            .kind = integer_kind{.get = [&value] { return value; },
                                 .set =
                                     [&value](std::int64_t written) {
                                         value = written;
                                         return gvcp::status::success;
                                     },
                                 .minimum = minimum,
                                 .maximum = maximum}};
}

feature area_enable(bool& centre_only) {
    return {.name = "ALCAreaEnable",
            .category = "AnalogControl",
            .tooltip = "Measures only the centre of the image, half of its width and height",
            .kind = enumeration_kind{.get = [&centre_only] { return std::int64_t{centre_only}; },
                                     .set =
                                         [&centre_only](std::int64_t value) {
                                             centre_only = value == 1;
                                             return gvcp::status::success;
                                         },
                                     .entries = {{"Off", 0}, {"On", 1}}}};
}

constexpr std::int64_t hundredths(double factor) {
    return static_cast<std::int64_t>(factor * 100.0);
}

}  // namespace

std::vector<feature> level_features(camera_state& state) {
    constexpr std::int64_t min_gain = hundredths(sensor::min_gain);
    constexpr std::int64_t max_gain = hundredths(sensor::max_gains[0]);
    constexpr auto min_exposure = static_cast<std::int64_t>(sensor::min_exposure_us);
    constexpr auto max_exposure = static_cast<std::int64_t>(sensor::max_exposure_us);
    level_settings& level = state.level;
    std::string const analog = "AnalogControl";
    std::string const acquisition = "AcquisitionControl";
    std::vector<feature> features;
    features.push_back(
        automatic_feature("GainAuto", analog, "Adjusts AnalogAll to the brightness of the image", state, level.gain));
    features.push_back(automatic_feature("ExposureAuto", acquisition,
                                         "Adjusts ExposureTime to the brightness of the image", state, level.exposure));
    features.push_back(number("ALCReference", analog, "Target mean of the image for automatic gain and exposure", "%",
                              level.reference_percent, 1, 100));
    features.push_back(area_enable(level.centre_only));
    features.push_back(number("AutoGainControlGainRawMin", analog,
                              "Minimum automatic gain, in hundredths of the linear factor", "", level.min_gain_raw,
                              min_gain, max_gain));
    features.push_back(number("AutoGainControlGainRawMax", analog,
                              "Maximum automatic gain, in hundredths of the linear factor", "", level.max_gain_raw,
                              min_gain, max_gain));
    features.push_back(number("AutoShutterControlExposureMin", acquisition, "Minimum automatic exposure", "us",
                              level.min_exposure_us, min_exposure, max_exposure));
    features.push_back(number("AutoShutterControlExposureMax", acquisition, "Maximum automatic exposure", "us",
                              level.max_exposure_us, min_exposure, max_exposure));
    return features;
}

}  // namespace camsim
