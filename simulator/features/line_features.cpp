// SPDX-License-Identifier: MIT
#include "features/camera_features.hpp"

namespace camsim {

namespace {

constexpr char const* category = "DigitalIOControl";

template <std::size_t Count>
std::vector<enumeration_entry> entries_named(std::array<std::string_view, Count> const& names) {
    std::vector<enumeration_entry> entries;
    entries.reserve(names.size());
    for (std::string_view const name : names) {
        entries.push_back({std::string(name), static_cast<std::int64_t>(entries.size())});
    }
    return entries;
}

feature selector(std::string name, std::string tooltip, std::vector<std::string> selects, std::size_t& selected,
                 std::vector<enumeration_entry> entries) {
    return {.name = std::move(name),
            .category = category,
            .tooltip = std::move(tooltip),
            .visible_to = visibility::expert,
            .selects = std::move(selects),
            .kind = enumeration_kind{.get = [&selected] { return static_cast<std::int64_t>(selected); },
                                     .set =
                                         [&selected](std::int64_t value) {
                                             selected = static_cast<std::size_t>(value);
                                             return gvcp::status::success;
                                         },
                                     .entries = std::move(entries)}};
}

feature line_source_feature(camera_state& state) {
    return {.name = "LineSource",
            .category = category,
            .tooltip = "Signal that drives the selected line",
            .visible_to = visibility::expert,
            .invalidated_by = {"LineSelector"},
            .kind = enumeration_kind{
                .get = [&state] { return static_cast<std::int64_t>(state.lines.lines[state.selected_line].source); },
                .set =
                    [&state](std::int64_t value) {
                        state.change_lines([line = state.selected_line, value](output_lines& lines) {
                            lines.lines[line].source = static_cast<line_source>(value);
                        });
                        return gvcp::status::success;
                    },
                .entries = entries_named(line_source_names)}};
}

feature line_inverter(camera_state& state) {
    return {.name = "LineInverter",
            .category = category,
            .tooltip = "Inverts the signal of the selected line",
            .visible_to = visibility::expert,
            .invalidated_by = {"LineSelector"},
            .kind = boolean_kind{.get = [&state] { return state.lines.lines[state.selected_line].inverted; },
                                 .set =
                                     [&state](bool on) {
                                         state.change_lines([line = state.selected_line, on](output_lines& lines) {
                                             lines.lines[line].inverted = on;
                                         });
                                         return gvcp::status::success;
                                     }}};
}

feature line_status(camera_state& state) {
    return {.name = "LineStatus",
            .category = category,
            .tooltip = "Present level of the selected line",
            .visible_to = visibility::expert,
            .access = access_mode::read_only,
            .cachable = false,
            .kind = boolean_kind{.get = [&state] { return state.lines.level(state.selected_line); }, .set = {}}};
}

feature user_output_value(camera_state& state) {
    return {.name = "UserOutputValue",
            .category = category,
            .tooltip = "Level of the selected user output signal",
            .visible_to = visibility::expert,
            .invalidated_by = {"UserOutputSelector"},
            .kind = boolean_kind{.get = [&state] { return state.lines.user_outputs[state.selected_output]; },
                                 .set =
                                     [&state](bool on) {
                                         state.change_lines([output = state.selected_output, on](output_lines& lines) {
                                             lines.user_outputs[output] = on;
                                         });
                                         return gvcp::status::success;
                                     }}};
}

}  // namespace

std::vector<feature> line_features(camera_state& state) {
    constexpr std::array<std::string_view, 2> outputs{"UserOutput0", "UserOutput1"};
    std::vector<feature> features;
    features.push_back(
        selector("LineSelector", "Selects the line that LineSource, LineInverter and LineStatus refer to",
                 {"LineSource", "LineInverter", "LineStatus"}, state.selected_line, entries_named(line_names)));
    features.push_back(line_source_feature(state));
    features.push_back(line_inverter(state));
    features.push_back(line_status(state));
    features.push_back(selector("UserOutputSelector", "Selects the signal that UserOutputValue controls",
                                {"UserOutputValue"}, state.selected_output, entries_named(outputs)));
    features.push_back(user_output_value(state));
    return features;
}

}  // namespace camsim
