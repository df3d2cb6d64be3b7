// SPDX-License-Identifier: MIT
#include "features/camera_features.hpp"

namespace camsim {

namespace {

constexpr char const* category = "LUTControl";

/// Some cameras reject changes of tone mapping during an acquisition; `--lut-locked-while-grabbing` makes this one do
/// so.
bool locked(camera_state const& state) {
    return state.options.lut_locked_while_acquiring;
}

feature lut_mode_feature(camera_state& state) {
    return {.name = "JAILUTMode",
            .category = category,
            .tooltip = "Tone mapping of the image: off, look-up table, or gamma",
            .locked_while_acquiring = locked(state),
            .kind = enumeration_kind{.get = [&state] { return static_cast<std::int64_t>(state.lut.mode); },
                                     .set =
                                         [&state](std::int64_t value) {
                                             state.lut.mode = static_cast<lut_mode>(value);
                                             return gvcp::status::success;
                                         },
                                     .entries = {{"Off", 0}, {"LUT", 1}, {"Gamma", 2}}}};
}

feature lut_selector(camera_state& state) {
    return {.name = "LUTSelector",
            .category = category,
            .tooltip = "Selects the colour whose LUT is accessed by LUTValue; monochrome formats have one LUT",
            .visible_to = visibility::expert,
            .selects = {"LUTIndex", "LUTValue"},
            .kind = enumeration_kind{.get = [&state] { return static_cast<std::int64_t>(state.lut.selected); },
                                     .set =
                                         [&state](std::int64_t value) {
                                             state.lut.selected = static_cast<lut_channel>(value);
                                             return gvcp::status::success;
                                         },
                                     .entries = {{"R", 0}, {"G", 1}, {"B", 2}}}};
}

feature lut_index(camera_state& state) {
    return {.name = "LUTIndex",
            .category = category,
            .tooltip = "Entry of the LUT that LUTValue accesses",
            .visible_to = visibility::expert,
            .selects = {"LUTValue"},
            .kind = integer_kind{.get = [&state] { return static_cast<std::int64_t>(state.lut.index); },
                                 .set =
                                     [&state](std::int64_t value) {
                                         state.lut.index = static_cast<std::size_t>(value);
                                         return gvcp::status::success;
                                     },
                                 .maximum = std::int64_t{lut_entries - 1}}};
}

feature lut_value(camera_state& state) {
    return {.name = "LUTValue",
            .category = category,
            .tooltip = "12-bit output value of the selected entry",
            .visible_to = visibility::expert,
            .locked_while_acquiring = locked(state),
            .invalidated_by = {"LUTSelector", "LUTIndex", "PixelFormat"},
            .kind = integer_kind{.get = [&state] { return std::int64_t{state.lut_entry()}; },
                                 .set =
                                     [&state](std::int64_t value) {
                                         state.lut_entry() = static_cast<std::uint16_t>(value);
                                         return gvcp::status::success;
                                     },
                                 .maximum = std::int64_t{state.options.max_lut_value}}};
}

feature gamma_feature(camera_state& state) {
    std::vector<enumeration_entry> entries;
    entries.reserve(gammas.size());
    for (named_gamma const& one : gammas) {
        entries.push_back({std::string(one.name), static_cast<std::int64_t>(entries.size())});
    }
    return {.name = "JAIGamma",
            .category = category,
            .tooltip = "Gamma of the image while JAILUTMode is Gamma",
            .locked_while_acquiring = locked(state),
            .kind = enumeration_kind{.get = [&state] { return static_cast<std::int64_t>(state.lut.gamma); },
                                     .set =
                                         [&state](std::int64_t value) {
                                             state.lut.gamma = static_cast<std::size_t>(value);
                                             return gvcp::status::success;
                                         },
                                     .entries = std::move(entries)}};
}

}  // namespace

std::vector<feature> lut_features(camera_state& state) {
    std::vector<feature> features;
    features.push_back(lut_mode_feature(state));
    features.push_back(lut_selector(state));
    features.push_back(lut_index(state));
    features.push_back(lut_value(state));
    features.push_back(gamma_feature(state));
    return features;
}

}  // namespace camsim
