// SPDX-License-Identifier: MIT
#include "camera/camera_finder.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cctype>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "gvcp/connection_id.hpp"
#include "gvcp/gvcp_discovery.hpp"
#include "report/failure.hpp"

namespace gevctl {

namespace {

using openpv::gvcp_channel;
using openpv::ipv4_address;
using openpv::register_outcome;
using std::chrono::milliseconds;
namespace gvcp = openpv::gvcp;

/// A camera acknowledges within a few milliseconds. Two attempts, because a datagram may be lost.
constexpr gvcp_channel::patience probing{milliseconds(80), 2, milliseconds(160)};
/// For cameras that do not acknowledge in that time: a busy one takes hundreds of milliseconds.
constexpr gvcp_channel::patience probing_slow{milliseconds(350), 1, milliseconds(350)};
/// Cameras that are probed at once, each with a socket. Below the usual limit of 1024 open files.
constexpr std::size_t max_probes = 256;

void probe(found_camera& camera) {
    auto const channel = gvcp_channel::open(camera.host, camera.address);
    if (channel == nullptr) {
        return;
    }
    std::uint32_t privilege = 0;
    auto result = channel->read_register(gvcp::reg::control_channel_privilege, privilege, probing);
    if (result.outcome == register_outcome::timeout) {
        result = channel->read_register(gvcp::reg::control_channel_privilege, privilege, probing_slow);
    }
    camera.reachable = result.ok() || result.outcome == register_outcome::refused;
    if (result.outcome == register_outcome::refused) {
        camera.control = controller{.exclusive = true, .address = std::nullopt};
    } else if (result.ok()) {
        camera.control = read_controller(*channel, privilege);
    }
}

void probe_all(std::vector<found_camera>& cameras) {
    std::atomic<std::size_t> next = 0;
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < std::min(cameras.size(), max_probes); ++i) {
        threads.emplace_back([&] {
            for (std::size_t at = next++; at < cameras.size(); at = next++) {
                probe(cameras[at]);
            }
        });
    }
}

std::string to_lower(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char each) { return std::tolower(each); });
    return text;
}

std::string list_names(std::vector<found_camera> const& cameras) {
    std::string names;
    for (found_camera const& each : cameras) {
        names += "\n  " + name_of(each) + ", MAC address " + mac_of(each);
        names += each.identity.user_name.empty() ? "" : ", name \"" + each.identity.user_name + "\"";
    }
    return names;
}

/// A camera that is found on several interfaces counts once; the one that is reachable is preferred.
std::vector<found_camera> without_duplicates(std::vector<found_camera> cameras) {
    std::ranges::stable_sort(cameras, std::ranges::greater{}, &found_camera::reachable);
    std::set<std::uint64_t> known;
    std::erase_if(cameras, [&](found_camera const& each) { return !known.insert(each.identity.mac).second; });
    return cameras;
}

}  // namespace

std::string to_text(controller const& one) {
    std::string const who = one.address ? to_text(*one.address) + ":" + std::to_string(one.port) : "another program";
    return one.exclusive ? who + " (exclusive)" : who;
}

std::string name_of(found_camera const& camera) {
    return camera.identity.model + " " + camera.identity.serial + " (" + to_text(camera.address) + ")";
}

std::string mac_of(found_camera const& camera) {
    return openpv::mac_to_text(camera.identity.mac);
}

std::string ip_mode_of(found_camera const& camera) {
    std::uint32_t const methods = camera.identity.ip_methods;
    if ((methods & gvcp::ip_method::persistent) != 0) {
        return "persistent";
    }
    return (methods & gvcp::ip_method::dhcp) != 0 ? "dhcp" : "link-local";
}

void check_interface(std::string const& name) {
    auto const interfaces = openpv::list_network_interfaces();
    if (!name.empty() && interfaces &&
        std::ranges::find(*interfaces, name, &openpv::network_interface::name) == interfaces->end()) {
        throw failure(exit_status::usage, "this machine has no network interface \"" + name +
                                              "\" that is up and has an IPv4 address. List them with: ip -4 address");
    }
}

std::vector<found_camera> find_cameras(std::string const& interface) {
    check_interface(interface);
    auto const interfaces = openpv::discover_cameras(gvcp::ack_delivery::broadcast, interface);
    if (!interfaces) {
        throw failure(exit_status::no_camera,
                      std::string("the network interfaces cannot be listed: ") + std::strerror(errno));
    }
    std::vector<found_camera> cameras;
    for (auto const& each : *interfaces) {
        for (auto const& one : each.cameras) {
            cameras.push_back({one.identity, one.camera, one.host, each.interface.name, false, std::nullopt});
        }
    }
    probe_all(cameras);
    return cameras;
}

bool is_called(found_camera const& camera, std::string const& name) {
    return name == camera.identity.serial || name == camera.identity.user_name || to_lower(name) == mac_of(camera) ||
           name == to_text(camera.address);
}

found_camera choose_camera(std::vector<found_camera> const& cameras, std::string const& name) {
    auto matching = without_duplicates(cameras);
    if (matching.empty()) {
        throw failure(exit_status::no_camera,
                      "no camera found. Check power, cable, the firewall (UDP port 3956) and"
                      " that the interface has an IPv4 address");
    }
    auto const all = matching;
    if (!name.empty()) {
        std::erase_if(matching, [&](found_camera const& each) { return !is_called(each, name); });
    }
    if (matching.empty()) {
        throw failure(exit_status::no_camera, "no camera has the serial number, name, MAC address or address \"" +
                                                  name + "\". Found:" + list_names(all));
    }
    if (matching.size() > 1) {
        throw failure(exit_status::no_camera,
                      name.empty()
                          ? "several cameras found. Name one by its serial number, name, MAC address or address:" +
                                list_names(matching)
                          : "several cameras are called \"" + name + "\". Use the MAC address:" + list_names(matching));
    }
    return matching.front();
}

std::optional<found_camera> camera_at(ipv4_address address) {
    auto const channel = gvcp_channel::open({}, address);
    std::array<std::byte, gvcp::discovery_data_bytes> registers{};
    auto const limit = gvcp_channel::clock::now() + milliseconds(1200);  // as for a search
    if (channel == nullptr || !channel->read(0, registers, limit).ok()) {
        return std::nullopt;
    }
    return found_camera{gvcp::parse_identity(registers), address, {}, {}, true, std::nullopt};
}

bool is_in_subnet_of(openpv::network_interface const& host, ipv4_address address) {
    for (std::size_t i = 0; i < host.addresses.size(); ++i) {
        if ((address.value & host.masks[i].value) == (host.addresses[i].value & host.masks[i].value)) {
            return true;
        }
    }
    return false;
}

std::set<std::uint32_t> gateways_in(std::istream& routes) {
    std::set<std::uint32_t> found;
    std::string line;
    std::getline(routes, line);  // header
    while (std::getline(routes, line)) {
        std::istringstream fields(line);
        std::string interface;
        std::string destination;
        std::uint32_t gateway = 0;  // in the byte order of the network
        if (fields >> interface >> destination >> std::hex >> gateway && gateway != 0) {
            found.insert(ntohl(gateway));
        }
    }
    return found;
}

std::set<std::uint32_t> neighbours_in(std::istream& arp_table) {
    std::set<std::uint32_t> found;
    std::string line;
    std::getline(arp_table, line);  // header
    while (std::getline(arp_table, line)) {
        std::istringstream fields(line);
        std::string address;
        std::string type;
        unsigned flags = 0;
        fields >> address >> type >> std::hex >> flags;
        auto const parsed = openpv::parse_ipv4(address);
        if (fields && parsed && flags != 0) {  // 0: nothing responded at this address
            found.insert(parsed->value);
        }
    }
    return found;
}

std::set<std::uint32_t> known_addresses(std::vector<found_camera> const& cameras) {
    std::ifstream routes("/proc/net/route");
    std::ifstream arp_table("/proc/net/arp");
    auto known = gateways_in(routes);
    known.merge(neighbours_in(arp_table));
    for (found_camera const& each : cameras) {
        known.insert(each.address.value);
        known.insert(each.identity.ip.gateway.value);
    }
    if (auto const interfaces = openpv::list_network_interfaces()) {
        for (auto const& each : *interfaces) {
            std::ranges::transform(each.addresses, std::inserter(known, known.end()), &ipv4_address::value);
        }
    }
    return known;
}

std::optional<std::string> suggest_address(openpv::network_interface const& host, std::set<std::uint32_t>& known) {
    for (std::size_t i = 0; i < host.addresses.size(); ++i) {
        std::uint32_t const mask = host.masks[i].value;
        std::uint32_t const network = host.addresses[i].value & mask;
        auto const prefix = prefix_of(host.masks[i]);
        for (std::uint32_t one = network + 1; prefix && one < (network | ~mask); ++one) {
            if (one != host.addresses[i].value && known.insert(one).second) {
                return to_text(ipv4_address{one}) + "/" + std::to_string(*prefix);
            }
        }
    }
    return std::nullopt;
}

std::optional<unsigned> prefix_of(ipv4_address mask) {
    auto const ones = static_cast<unsigned>(std::countl_one(mask.value));
    return std::popcount(mask.value) == static_cast<int>(ones) ? std::optional(ones) : std::nullopt;
}

std::optional<controller> read_controller(gvcp_channel& channel, std::uint32_t privilege) {
    if ((privilege & (gvcp::privilege_control | gvcp::privilege_exclusive)) == 0) {
        return std::nullopt;
    }
    controller one{.exclusive = (privilege & gvcp::privilege_exclusive) != 0, .address = std::nullopt};
    std::uint32_t address = 0;
    std::uint32_t port = 0;
    // Optional registers.
    if (channel.read_register(gvcp::reg::primary_application_address, address, probing).ok() && address != 0 &&
        channel.read_register(gvcp::reg::primary_application_port, port, probing).ok()) {
        one.address = ipv4_address{address};
        one.port = static_cast<std::uint16_t>(port);
    }
    return one;
}

}  // namespace gevctl
