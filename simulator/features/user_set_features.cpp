// SPDX-License-Identifier: MIT
#include "features/camera_features.hpp"

namespace camsim {

namespace {

constexpr char const* category = "UserSetControl";

feature set_enumeration(std::string name, std::string tooltip, std::vector<std::string> selects, std::size_t& value) {
    std::vector<enumeration_entry> entries;
    for (std::string_view const one : user_set_names) {
        entries.push_back({std::string(one), static_cast<std::int64_t>(entries.size())});
    }
    return {.name = std::move(name),
            .category = category,
            .tooltip = std::move(tooltip),
            .selects = std::move(selects),
            .kind = enumeration_kind{.get = [&value] { return static_cast<std::int64_t>(value); },
                                     .set =
                                         [&value](std::int64_t chosen) {
                                             value = static_cast<std::size_t>(chosen);
                                             return gvcp::status::success;
                                         },
                                     .entries = std::move(entries)}};
}

feature set_command(std::string name, std::string tooltip, std::function<gvcp::status()> execute) {
    return {.name = std::move(name),
            .category = category,
            .tooltip = std::move(tooltip),
            .access = access_mode::write_only,
            .cachable = false,
            .kind = command_kind{std::move(execute)}};
}

}  // namespace

std::vector<feature> user_set_features(camera_state& state) {
    std::vector<feature> features;
    features.push_back(set_enumeration("UserSetSelector", "User set that is loaded or saved",
                                       {"UserSetLoad", "UserSetSave"}, state.selected_user_set));
    features.push_back(set_command("UserSetLoad", "Replaces all settings by those of the user set",
                                   [&state] { return state.load_user_set(state.selected_user_set); }));
    features.push_back(set_command("UserSetSave", "Stores all settings in the user set",
                                   [&state] { return state.save_user_set(state.selected_user_set); }));
    features.push_back(
        set_enumeration("UserSetDefault", "User set that is loaded at power-up", {}, state.memory->default_user_set));
    return features;
}

}  // namespace camsim
