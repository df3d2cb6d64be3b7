// SPDX-License-Identifier: MIT
#include "cli/list_command.hpp"

#include <algorithm>
#include <ostream>
#include <set>
#include <vector>

#include <nlohmann/json.hpp>

#include "camera/camera_finder.hpp"
#include "net/network_interface.hpp"
#include "report/table.hpp"

namespace gevctl {

namespace {

using json = nlohmann::ordered_json;

std::string address_of(found_camera const& camera) {
    auto const prefix = prefix_of(camera.identity.ip.mask);
    return to_text(camera.address) + (prefix ? "/" + std::to_string(*prefix) : "");
}

using interface_list = std::vector<openpv::network_interface>;

/// \param known addresses that no camera can get
/// \return the command that gives the camera an address in the subnet of this machine; empty if it is reachable, or
///     has one
std::string command_to_reach(found_camera const& camera, interface_list const& interfaces,
                             std::set<std::uint32_t>& known) {
    auto const found = std::ranges::find(interfaces, camera.interface, &openpv::network_interface::name);
    if (camera.reachable || found == interfaces.end() || is_in_subnet_of(*found, camera.address)) {
        return {};
    }
    auto const address = suggest_address(*found, known);
    return address ? "gevctl force-ip " + mac_of(camera) + " " + *address : std::string();
}

json to_json(found_camera const& camera, std::string const& command) {
    auto const& identity = camera.identity;
    json control = nullptr;
    if (camera.control) {
        control = {{"exclusive", camera.control->exclusive}};
        if (camera.control->address) {
            control["address"] = to_text(*camera.control->address);
            control["port"] = camera.control->port;
        }
    }
    json one{
        {"vendor", identity.vendor},
        {"model", identity.model},
        {"serial", identity.serial},
        {"user_name", identity.user_name},
        {"version", identity.version},
        {"gev_version", std::to_string(identity.version_major) + "." + std::to_string(identity.version_minor)},
        {"mac", mac_of(camera)},
        {"address", to_text(camera.address)},
        {"mask", to_text(identity.ip.mask)},
        {"gateway", to_text(identity.ip.gateway)},
        {"ip_mode", ip_mode_of(camera)},
        {"interface", camera.interface},
        {"reachable", camera.reachable},
        {"control", control},
    };
    if (!command.empty()) {
        one["command_to_reach"] = command;
    }
    return one;
}

}  // namespace

exit_status list_command(list_options const& options, std::ostream& out) {
    auto cameras = find_cameras(options.interface);
    std::ranges::stable_sort(cameras, {}, [](found_camera const& each) { return each.address.value; });
    auto const interfaces = openpv::list_network_interfaces().value_or(interface_list());
    auto known = known_addresses(cameras);
    json all = json::array();
    table rows({"MODEL", "SERIAL", "NAME", "MAC", "ADDRESS", "MODE", "INTERFACE", "REACHABLE", "CONTROL", "VERSION"});
    std::string commands;
    for (found_camera const& each : cameras) {
        std::string const command = command_to_reach(each, interfaces, known);
        all.push_back(to_json(each, command));
        rows.add({each.identity.model, each.identity.serial, each.identity.user_name, mac_of(each), address_of(each),
                  ip_mode_of(each), each.interface, each.reachable ? "yes" : "no",
                  each.control ? to_text(*each.control) : "", each.identity.version});
        if (!each.reachable) {
            commands += "\n" + name_of(each) + " does not respond at its address.";
            commands += command.empty() ? " Check that it is ready, and that no other device has this address.\n"
                                        : " To move it into the subnet of " + each.interface +
                                              ", if no other device has this address:\n    " + command + "\n";
        }
    }
    if (options.json) {
        out << all.dump(2) << '\n';
        return exit_status::success;
    }
    if (cameras.empty()) {
        throw failure(exit_status::no_camera,
                      "no camera found. Check power, cable, the firewall (UDP port 3956) and"
                      " that the interface has an IPv4 address");
    }
    rows.print(out);
    out << commands;
    return exit_status::success;
}

}  // namespace gevctl
