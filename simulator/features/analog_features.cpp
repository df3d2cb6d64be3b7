// SPDX-License-Identifier: MIT
#include "device/sensor.hpp"
#include "features/camera_features.hpp"

namespace camsim {

namespace {

std::size_t selected(camera_state const& state) {
    return static_cast<std::size_t>(state.image.selected_gain);
}

feature gain_selector(camera_state& state) {
    return {.name = "GainSelector",
            .category = "AnalogControl",
            .tooltip = "Selects the gain that Gain controls",
            .selects = {"Gain"},
            .kind = enumeration_kind{.get = [&state] { return static_cast<std::int64_t>(state.image.selected_gain); },
                                     .set =
                                         [&state](std::int64_t value) {
                                             state.image.selected_gain = static_cast<gain_kind>(value);
                                             return gvcp::status::success;
                                         },
                                     .entries = {{"AnalogAll", 0}, {"DigitalAll", 1}}}};
}

feature gain(camera_state& state) {
    return {.name = "Gain",
            .category = "AnalogControl",
            .tooltip = "Gain as a linear factor",
            .cachable = false,  // GainAuto changes it
            .invalidated_by = {"GainSelector"},
            .kind = float_kind{.get = [&state] { return state.image.gains[selected(state)]; },
                               .set =
                                   [&state](double value) {
                                       state.image.gains[selected(state)] = value;
                                       return gvcp::status::success;
                                   },
                               .minimum = sensor::min_gain,
                               .maximum = [&state] { return sensor::max_gains[selected(state)]; }}};
}

}  // namespace

std::vector<feature> analog_features(camera_state& state) {
    std::vector<feature> features;
    features.push_back(gain_selector(state));
    features.push_back(gain(state));
    return features;
}

}  // namespace camsim
