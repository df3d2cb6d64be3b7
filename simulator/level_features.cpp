#include "camera_features.hpp"
#include "sensor.hpp"

namespace camsim {

namespace {

feature automatic_feature(std::string name, std::string category, std::string tooltip, camera_state& state,
                          automatic& mode) {
    return {.name = std::move(name),
            .category = std::move(category),
            .tooltip = std::move(tooltip),
            .cachable = false,  // Once becomes Off by itself
            .kind = enumeration_kind{.get = [&mode] { return static_cast<std::int64_t>(mode); },
                                     .set =
                                         [&state, &mode](std::int64_t value) {
                                             mode = static_cast<automatic>(value);
                                             state.control_of_level.reset();
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

feature area_enable(bool& middle_only) {
    return {.name = "ALCAreaEnable",
            .category = "AnalogControl",
            .tooltip = "Whether only the middle of the picture, half its width and height, is measured",
            .kind = enumeration_kind{.get = [&middle_only] { return std::int64_t{middle_only}; },
                                     .set =
                                         [&middle_only](std::int64_t value) {
                                             middle_only = value == 1;
                                             return gvcp::status::success;
                                         },
                                     .entries = {{"Off", 0}, {"On", 1}}}};
}

constexpr std::int64_t hundredths(double factor) {
    return static_cast<std::int64_t>(factor * 100.0);
}

}  // namespace

std::vector<feature> level_features(camera_state& state) {
    constexpr std::int64_t lowest_gain = hundredths(sensor::lowest_gain);
    constexpr std::int64_t highest_gain = hundredths(sensor::highest_gains[0]);
    constexpr auto shortest = static_cast<std::int64_t>(sensor::shortest_exposure_us);
    constexpr auto longest = static_cast<std::int64_t>(sensor::longest_exposure_us);
    level_settings& level = state.level;
    std::string const analog = "AnalogControl";
    std::string const acquisition = "AcquisitionControl";
    std::vector<feature> features;
    features.push_back(
        automatic_feature("GainAuto", analog, "AnalogAll follows the picture's brightness", state, level.gain));
    features.push_back(automatic_feature("ExposureAuto", acquisition, "ExposureTime follows the picture's brightness",
                                         state, level.exposure));
    features.push_back(number("ALCReference", analog, "Mean of the picture that automatic gain and exposure aim at",
                              "%", level.reference_percent, 1, 100));
    features.push_back(area_enable(level.middle_only));
    features.push_back(number("AutoGainControlGainRawMin", analog, "Lowest automatic gain, in hundredths", "",
                              level.lowest_gain_raw, lowest_gain, highest_gain));
    features.push_back(number("AutoGainControlGainRawMax", analog, "Highest automatic gain, in hundredths", "",
                              level.highest_gain_raw, lowest_gain, highest_gain));
    features.push_back(number("AutoShutterControlExposureMin", acquisition, "Shortest automatic exposure", "us",
                              level.shortest_exposure_us, shortest, longest));
    features.push_back(number("AutoShutterControlExposureMax", acquisition, "Longest automatic exposure", "us",
                              level.longest_exposure_us, shortest, longest));
    return features;
}

}  // namespace camsim
