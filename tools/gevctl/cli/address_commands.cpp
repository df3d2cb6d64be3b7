// SPDX-License-Identifier: MIT
#include "cli/address_commands.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <ostream>
#include <random>

#include "cli/camera_argument.hpp"
#include "gvcp/connection_id.hpp"
#include "gvcp/gvcp_discovery.hpp"
#include "net/network_interface.hpp"
#include "report/interruption.hpp"

namespace gevctl {

namespace {

using openpv::ipv4_address;
namespace gvcp = openpv::gvcp;

constexpr std::uint16_t access_denied = 0x8006;  // GVCP status
/// A camera may restart its network stack after FORCEIP.
constexpr std::chrono::seconds max_restart{10};

std::string text_of(gvcp::ip_settings const& ip) {
    return to_text(ip.address) + "/" + std::to_string(prefix_of(ip.mask).value_or(0));
}

/// \return whether this machine has an address in the subnet
bool has_interface_in(gvcp::ip_settings const& ip) {
    auto const interfaces = openpv::list_network_interfaces();
    return interfaces && std::ranges::any_of(*interfaces, [&](openpv::network_interface const& each) {
               return std::ranges::any_of(each.addresses, [&](ipv4_address one) {
                   return (one.value & ip.mask.value) == (ip.address.value & ip.mask.value);
               });
           });
}

void check_ack(std::vector<openpv::broadcast_ack> const& acks) {
    for (auto const& each : acks) {
        if (each.status == access_denied) {
            throw failure(exit_status::controlled,
                          "the camera refuses another address while a program has control."
                          " \"gevctl list\" shows which; stop it first");
        }
        if (each.status != 0) {
            throw failure(exit_status::refused, "the camera refuses the address: " + gvcp::status_text(each.status));
        }
    }
}

/// \return the camera with this MAC address at the address; null if it does not appear there in time
std::optional<found_camera> find_again(std::uint64_t mac, ipv4_address address, std::string const& interface) {
    auto const end = std::chrono::steady_clock::now() + max_restart;
    do {
        for (found_camera const& each : find_cameras(interface)) {
            if (each.identity.mac == mac && each.address == address) {
                return each;
            }
        }
    } while (std::chrono::steady_clock::now() < end);
    return std::nullopt;
}

void warn_of_duplicate(found_camera const& camera, ipv4_address address, std::ostream& errors) {
    for (found_camera const& each : find_cameras({})) {
        if (each.address == address && each.identity.mac != camera.identity.mac) {
            errors << "gevctl: warning: camera " << name_of(each) << ", MAC address " << mac_of(each)
                   << ", has this address now\n";
        }
    }
}

}  // namespace

gvcp::ip_settings parse_ip_settings(std::string const& address, std::string const& gateway) {
    std::size_t const slash = address.find('/');
    auto const host = openpv::parse_ipv4(address.substr(0, slash));
    std::string const prefix_text = slash != std::string::npos ? address.substr(slash + 1) : "";
    unsigned prefix = 0;
    auto const [end, error] = std::from_chars(prefix_text.data(), prefix_text.data() + prefix_text.size(), prefix);
    bool const is_number = error == std::errc() && end == prefix_text.data() + prefix_text.size();
    constexpr unsigned max_prefix = 30;  // a subnet with at least two hosts
    if (!host || !is_number || prefix < 1 || prefix > max_prefix) {
        throw failure(exit_status::usage,
                      "\"" + address + "\" is not a valid address: use ADDRESS/PREFIX, for example 10.0.0.5/24");
    }
    gvcp::ip_settings ip{*host, {~std::uint32_t{0} << (32 - prefix)}, {}};
    constexpr std::uint32_t first_unicast = 0x01000000;
    constexpr std::uint32_t first_multicast = 0xE0000000;  // and reserved addresses above
    if (ip.address.value < first_unicast || ip.address.value >= first_multicast) {
        throw failure(exit_status::usage, address +
                                              " is not an address that a camera can have: use one from 1.0.0.0"
                                              " to 223.255.255.255");
    }
    std::uint32_t const host_part = ip.address.value & ~ip.mask.value;
    if (host_part == 0 || host_part == ~ip.mask.value) {
        throw failure(exit_status::usage, address + " is the address of a network or a broadcast, not of a camera");
    }
    if (!gateway.empty()) {
        auto const parsed = openpv::parse_ipv4(gateway);
        if (!parsed || (parsed->value & ip.mask.value) != (ip.address.value & ip.mask.value)) {
            throw failure(exit_status::usage, "\"" + gateway +
                                                  "\" is not a valid gateway: use an address in the subnet"
                                                  " of " +
                                                  address);
        }
        ip.gateway = *parsed;
    }
    return ip;
}

std::optional<std::uint64_t> parse_mac(std::string const& text) {
    constexpr std::size_t length = 17;
    std::uint64_t mac = 0;
    for (std::size_t at = 0; text.size() == length && at < length; at += 3) {
        unsigned byte = 0;
        auto const [end, error] = std::from_chars(text.data() + at, text.data() + at + 2, byte, 16);
        bool const separated = at + 2 == length || text[at + 2] == ':' || text[at + 2] == '-';
        if (error != std::errc() || end != text.data() + at + 2 || !separated) {
            return std::nullopt;
        }
        mac = mac << 8 | byte;
    }
    return text.size() == length ? std::optional(mac) : std::nullopt;
}

exit_status force_ip_command(force_ip_options const& options, std::ostream& out) {
    auto const mac = parse_mac(options.mac);
    if (!mac) {
        throw failure(exit_status::usage, "\"" + options.mac +
                                              "\" is not a valid MAC address: use six bytes as in"
                                              " 00:11:1c:00:00:07. \"gevctl list\" shows them");
    }
    auto const wanted = parse_ip_settings(options.address, options.gateway);
    check_interface(options.interface);
    auto const request = static_cast<std::uint16_t>(std::random_device{}() % 0xFFFF + 1);
    constexpr std::chrono::milliseconds ack_time{500};
    auto const acks =
        openpv::broadcast_command(gvcp::make_force_ip(request, *mac, wanted), ack_time, options.interface);
    if (!acks) {
        throw failure(exit_status::no_camera, "the network interfaces cannot be listed");
    }
    check_ack(*acks);
    auto const found = find_again(*mac, wanted.address, options.interface);
    if (!found) {
        throw failure(exit_status::no_camera, "camera " + openpv::mac_to_text(*mac) + " did not appear at " +
                                                  to_text(wanted.address) +
                                                  ". Check with \"gevctl list\" that this MAC"
                                                  " address exists");
    }
    out << name_of(*found) << " has address " << text_of(wanted) << " until its power is switched off"
        << (found->reachable ? "\n" : "; this machine cannot reach it there\n");
    return exit_status::success;
}

exit_status set_ip_command(set_ip_options options, std::ostream& out, std::ostream& errors) {
    struct mode {
        char const* name;
        std::uint32_t methods;
        std::size_t words;  ///< of the mode and its argument
    };
    static constexpr std::array modes{mode{"dhcp", gvcp::ip_method::dhcp, 1}, mode{"link-local", 0, 1},
                                      mode{"persistent", gvcp::ip_method::persistent, 2}};
    auto const find_mode = [](std::string const& word) { return std::ranges::find(modes, word, &mode::name); };
    auto& words = options.words;
    bool const has_camera = !words.empty() && find_mode(words.front()) == modes.end();
    std::size_t const at = has_camera ? 1 : 0;
    auto const* const chosen = at < words.size() ? find_mode(words[at]) : modes.end();
    if (chosen == modes.end() || words.size() != at + chosen->words) {
        throw failure(exit_status::usage,
                      "usage: gevctl set-ip [CAMERA] dhcp|link-local|persistent ADDRESS/PREFIX [--gateway G]");
    }
    bool const persistent = chosen->methods == gvcp::ip_method::persistent;
    if (!persistent && !options.gateway.empty()) {
        throw failure(exit_status::usage, std::string("--gateway belongs to a persistent address. With ") +
                                              chosen->name + ", the camera does not use it");
    }
    auto const wanted = persistent ? parse_ip_settings(words.back(), options.gateway) : gvcp::ip_settings();
    camera_connection camera(find_camera(has_camera ? words.front() : std::string()));
    auto const set = [&camera](std::uint32_t address, std::uint32_t value, char const* what) {
        check_interruption();
        camera.write_register(address, value);
        if (std::uint32_t const present = camera.read_register(address); present != value) {
            throw failure(exit_status::refused, std::string("the camera accepted the ") + what +
                                                    " and has another one: " + to_text(ipv4_address{present}));
        }
    };
    if (persistent) {
        set(gvcp::reg::persistent_address, wanted.address.value, "persistent address");
        set(gvcp::reg::persistent_mask, wanted.mask.value, "subnet mask");
        set(gvcp::reg::persistent_gateway, wanted.gateway.value, "gateway");
    }
    constexpr std::uint32_t methods = gvcp::ip_method::persistent | gvcp::ip_method::dhcp | gvcp::ip_method::link_local;
    std::uint32_t const others = camera.read_register(gvcp::reg::ip_configuration) & ~methods;
    set(gvcp::reg::ip_configuration, others | chosen->methods | gvcp::ip_method::link_local, "way to get an address");
    out << name_of(camera.camera()) << " uses " << chosen->name << (persistent ? " " + text_of(wanted) : std::string())
        << " from the next power-up on\n";
    if (persistent && !has_interface_in(wanted)) {
        errors << "gevctl: warning: no interface of this machine has an address in the subnet of " << text_of(wanted)
               << ". Add one before the camera starts with this address\n";
    }
    if (persistent) {
        warn_of_duplicate(camera.camera(), wanted.address, errors);
    }
    return exit_status::success;
}

}  // namespace gevctl
