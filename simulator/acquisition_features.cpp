#include "camera_features.hpp"
#include "sensor.hpp"

namespace camsim {

namespace {

feature acquisition_mode_feature(camera_state& state) {
    return {.name = "AcquisitionMode",
            .category = "AcquisitionControl",
            .tooltip = "How many frames an acquisition has",
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
            .tooltip = "Frames of a multi-frame acquisition",
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

feature frame_rate_feature(camera_state& state) {
    return {.name = "AcquisitionFrameRate",
            .category = "AcquisitionControl",
            .tooltip = "Frames a second, as long as the exposure time leaves room for them",
            .unit = "Hz",
            .invalidated_by = {"Height"},
            .kind = float_kind{.get = [&state] { return state.image.frame_rate; },
                               .set =
                                   [&state](double value) {
                                       state.image.frame_rate = value;
                                       return gvcp::status::success;
                                   },
                               .minimum = sensor::lowest_frame_rate,
                               .maximum = [&state] { return sensor::highest_frame_rate(state.image.area.height); }}};
}

feature exposure_time_feature(camera_state& state) {
    return {.name = "ExposureTime",
            .category = "AcquisitionControl",
            .tooltip = "Exposure time of a frame",
            .unit = "us",
            .cachable = false,  // moves by itself under ExposureAuto
            .kind = float_kind{.get = [&state] { return state.image.exposure_us; },
                               .set =
                                   [&state](double value) {
                                       state.image.exposure_us = value;
                                       return gvcp::status::success;
                                   },
                               .minimum = sensor::shortest_exposure_us,
                               .maximum = sensor::longest_exposure_us}};
}

}  // namespace

std::vector<feature> acquisition_features(camera_state& state) {
    std::vector<feature> features;
    features.push_back(acquisition_mode_feature(state));
    features.push_back(acquisition_frame_count(state));
    features.push_back(
        command("AcquisitionStart", "Begins to send frames", [&state] { return state.start_acquisition(); }));
    features.push_back(command("AcquisitionStop", "Ends after the frame in work", [&state] {
        state.stop_acquisition();
        return gvcp::status::success;
    }));
    features.push_back(frame_rate_feature(state));
    features.push_back(exposure_time_feature(state));
    return features;
}

}  // namespace camsim
