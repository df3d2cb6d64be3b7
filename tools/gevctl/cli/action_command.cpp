// SPDX-License-Identifier: MIT
#include "cli/action_command.hpp"

#include <chrono>
#include <ostream>
#include <random>

#include <nlohmann/json.hpp>

#include "camera/camera_finder.hpp"
#include "gvcp/gvcp_discovery.hpp"
#include "report/table.hpp"

namespace gevctl {

exit_status action_command(action_options const& options, std::ostream& out) {
    check_interface(options.interface);
    auto const request = static_cast<std::uint16_t>(std::random_device{}() % 0xFFFF + 1);
    constexpr std::chrono::milliseconds ack_time{500};  // cameras acknowledge at once, also a scheduled action
    auto const acks = openpv::broadcast_command(openpv::gvcp::make_action(request, options.keys, options.time),
                                                ack_time, options.interface);
    if (!acks || acks->empty()) {
        throw failure(
            exit_status::no_camera,
            "no camera acknowledged the action. A camera does if it has the same device key and group key, and"
            " one of the bits of the group mask (features ActionDeviceKey, ActionGroupKey, ActionGroupMask)");
    }
    auto json = nlohmann::ordered_json::array();
    table rows({"CAMERA", "RESULT"});
    bool refused = false;
    for (auto const& each : *acks) {
        auto const camera = camera_at(each.sender);
        std::string const name = camera ? name_of(*camera) : to_text(each.sender);
        std::string const result = each.status == 0 ? "accepted" : openpv::gvcp::status_text(each.status);
        refused = refused || each.status != 0;
        rows.add({name, result});
        json.push_back(
            {{"camera", name}, {"address", to_text(each.sender)}, {"status", each.status}, {"result", result}});
    }
    if (options.json) {
        out << json.dump(2) << '\n';
    } else {
        rows.print(out);
    }
    return refused ? exit_status::refused : exit_status::success;
}

}  // namespace gevctl
