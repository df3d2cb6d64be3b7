// SPDX-License-Identifier: MIT
#include <algorithm>

#include "device/sensor.hpp"
#include "features/camera_features.hpp"

namespace camsim {

namespace {

feature acquisition_mode_feature(camera_state& state) {
    return {.name = "AcquisitionMode",
            .category = "AcquisitionControl",
            .tooltip = "Number of frames of an acquisition",
            .locked_while_acquiring = true,
            .kind = enumeration_kind{.get = [&state] { return static_cast<std::int64_t>(state.image.mode); },
                                     .set =
                                         [&state](std::int64_t value) {
                                             state.image.mode = static_cast<acquisition_mode>(value);
                                             return gvcp::status::success;
                                         },
                                     .entries = {{"Continuous", 0}, {"SingleFrame", 1}, {"MultiFrame", 2}}}};
}

feature acquisition_frame_count(camera_state& state) {
    return {.name = "AcquisitionFrameCount",
            .category = "AcquisitionControl",
            .tooltip = "Number of frames of a multi-frame acquisition",
            .locked_while_acquiring = true,
            .kind = integer_kind{.get = [&state] { return std::int64_t{state.image.frame_count}; },
                                 .set =
                                     [&state](std::int64_t value) {
                                         state.image.frame_count = static_cast<std::uint32_t>(value);
                                         return gvcp::status::success;
                                     },
                                 .minimum = std::int64_t{1},
                                 .maximum = std::int64_t{65535}}};
}

feature command(std::string name, std::string tooltip, std::function<gvcp::status()> execute) {
    return {.name = std::move(name),
            .category = "AcquisitionControl",
            .tooltip = std::move(tooltip),
            .access = access_mode::write_only,
            .cachable = false,
            .kind = command_kind{std::move(execute)}};
}

limit<double> max_exposure(camera_state const& state) {
    if (!state.options.dependent_limits) {
        return sensor::max_exposure_us;
    }
    return [&state] { return std::min(sensor::max_exposure_us, sensor::max_exposure_at(state.image.frame_rate)); };
}

feature frame_rate_feature(camera_state& state) {
    return {.name = "AcquisitionFrameRate",
            .category = "AcquisitionControl",
            .tooltip = state.options.dependent_limits ? "Frames per second; limits the exposure time"
                                                      : "Frames per second; a longer exposure time reduces it",
            .unit = "Hz",
            .invalidated_by = {"Height"},
            .kind = float_kind{.get = [&state] { return state.image.frame_rate; },
                               .set =
                                   [&state](double value) {
                                       state.image.frame_rate = value;
                                       state.image.exposure_us =
                                           std::min(state.image.exposure_us, value_of(max_exposure(state)));
                                       return gvcp::status::success;
                                   },
                               .minimum = sensor::min_frame_rate,
                               .maximum = [&state] { return sensor::max_frame_rate(state.image.area.height); }}};
}

feature exposure_time_feature(camera_state& state) {
    return {.name = "ExposureTime",
            .category = "AcquisitionControl",
            .tooltip = "Exposure time of a frame",
            .unit = "us",
            .cachable = false,  // ExposureAuto changes it
            .invalidated_by = {"AcquisitionFrameRate", "Height"},
            .kind = float_kind{.get = [&state] { return state.image.exposure_us; },
                               .set =
                                   [&state](double value) {
                                       state.image.exposure_us = value;
                                       return gvcp::status::success;
                                   },
                               .minimum = sensor::min_exposure_us,
                               .maximum = max_exposure(state)}};
}

feature trigger_selector() {
    return {.name = "TriggerSelector",
            .category = "AcquisitionControl",
            .tooltip = "Selects the trigger that the following features configure; only the start of a frame has one",
            .selects = {"TriggerMode", "TriggerSource", "TriggerActivation", "TriggerSoftware"},
            .kind = enumeration_kind{.get = [] { return 0; },
                                     .set = [](std::int64_t) { return gvcp::status::success; },
                                     .entries = {{"FrameStart", 0}}}};
}

feature trigger_mode(camera_state& state) {
    return {.name = "TriggerMode",
            .category = "AcquisitionControl",
            .tooltip = "Each frame waits for a trigger; otherwise frames follow AcquisitionFrameRate",
            .locked_while_acquiring = true,
            .kind = enumeration_kind{.get = [&state] { return std::int64_t{state.trigger.settings.on}; },
                                     .set =
                                         [&state](std::int64_t value) {
                                             state.trigger.settings.on = value != 0;
                                             return gvcp::status::success;
                                         },
                                     .entries = {{"Off", 0}, {"On", 1}}}};
}

feature trigger_source_feature(camera_state& state) {
    std::vector<enumeration_entry> entries;
    for (std::string_view const name : trigger_source_names) {
        entries.push_back({std::string(name), static_cast<std::int64_t>(entries.size())});
    }
    return {
        .name = "TriggerSource",
        .category = "AcquisitionControl",
        .tooltip = "Signal of the trigger: TriggerSoftware, the input line, or an action command",
        .locked_while_acquiring = true,
        .kind = enumeration_kind{.get = [&state] { return static_cast<std::int64_t>(state.trigger.settings.source); },
                                 .set =
                                     [&state](std::int64_t value) {
                                         state.trigger.settings.source = static_cast<trigger_source>(value);
                                         return gvcp::status::success;
                                     },
                                 .entries = std::move(entries)}};
}

feature trigger_activation(camera_state& state) {
    return {.name = "TriggerActivation",
            .category = "AcquisitionControl",
            .tooltip = "Edge of the input line that triggers",
            .locked_while_acquiring = true,
            .kind = enumeration_kind{.get = [&state] { return static_cast<std::int64_t>(state.trigger.settings.edge); },
                                     .set =
                                         [&state](std::int64_t value) {
                                             state.trigger.settings.edge = static_cast<trigger_edge>(value);
                                             return gvcp::status::success;
                                         },
                                     .entries = {{"RisingEdge", 0}, {"FallingEdge", 1}}}};
}

}  // namespace

std::vector<feature> acquisition_features(camera_state& state) {
    std::vector<feature> features;
    features.push_back(acquisition_mode_feature(state));
    features.push_back(acquisition_frame_count(state));
    features.push_back(
        command("AcquisitionStart", "Starts sending frames", [&state] { return state.start_acquisition(); }));
    features.push_back(command("AcquisitionStop", "Stops after the current frame", [&state] {
        state.stop_acquisition();
        return gvcp::status::success;
    }));
    features.push_back(frame_rate_feature(state));
    features.push_back(exposure_time_feature(state));
    features.push_back(trigger_selector());
    features.push_back(trigger_mode(state));
    features.push_back(trigger_source_feature(state));
    features.push_back(trigger_activation(state));
    features.push_back(command("TriggerSoftware", "Triggers a frame", [&state] {
        state.fire_trigger(trigger_source::software);
        return gvcp::status::success;
    }));
    return features;
}

}  // namespace camsim
