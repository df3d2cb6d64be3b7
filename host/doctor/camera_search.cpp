// SPDX-License-Identifier: MIT
#include "doctor/camera_search.hpp"

#include <nlohmann/json.hpp>

#include "doctor/command_output.hpp"

namespace mediagrabber {

std::optional<std::vector<listed_camera>> search_cameras(std::string const& interface) {
    // The shell's parent is this program.
    auto const list =
        output_of("PATH=\"$(dirname \"$(readlink /proc/$PPID/exe)\"):$PATH\" && gevctl list --json 2>/dev/null");
    auto cameras = list ? parse_camera_list(*list) : std::nullopt;
    if (cameras && !interface.empty()) {
        std::erase_if(*cameras, [&](listed_camera const& each) { return each.interface != interface; });
    }
    return cameras;
}

std::optional<std::vector<listed_camera>> parse_camera_list(std::string_view json) {
    try {
        std::vector<listed_camera> cameras;
        for (auto const& each : nlohmann::json::parse(json)) {
            listed_camera one;
            one.name = each.at("model").get<std::string>() + " " + each.at("serial").get<std::string>();
            one.address = each.at("address");
            one.interface = each.at("interface");
            one.reachable = each.at("reachable");
            one.command_to_reach = each.value("command_to_reach", "");
            if (auto const& control = each.at("control"); !control.is_null()) {
                one.controlled_by = control.value("address", "another program");
            }
            cameras.push_back(std::move(one));
        }
        return cameras;
    } catch (nlohmann::json::exception const&) {
        return std::nullopt;
    }
}

}  // namespace mediagrabber
