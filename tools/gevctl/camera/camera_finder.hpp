// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Finds cameras and chooses one.

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "gvcp/gvcp_channel.hpp"
#include "gvcp/gvcp_message.hpp"
#include "net/network_interface.hpp"

namespace gevctl {

/// The application that has control of a camera.
struct controller {
    bool exclusive = false;                       ///< other applications cannot even read
    std::optional<openpv::ipv4_address> address;  ///< null if the camera does not report it
    std::uint16_t port = 0;
};
/// \return for example `10.0.0.1:40123`
std::string to_text(controller const& one);

/// A camera that acknowledged a discovery. Its texts are printable ASCII.
struct found_camera {
    openpv::gvcp::identity identity;
    openpv::ipv4_address address;  ///< sender of the acknowledge
    openpv::ipv4_address host;     ///< address of this machine on its interface; 0 for a camera chosen by address
    std::string interface;         ///< empty for a camera chosen by address
    bool reachable = false;        ///< whether it acknowledged a read
    std::optional<controller> control;
};

/// \return for example `GO-5100M-PGE CS000001 (10.0.0.5)`
std::string name_of(found_camera const& camera);
/// \return for example `00:11:1c:00:00:07`
std::string mac_of(found_camera const& camera);
/// \return `persistent`, `dhcp` or `link-local`, the first of the enabled ways to get an address
std::string ip_mode_of(found_camera const& camera);

/// \param name empty: any
/// \throws failure if this machine has no such interface
void check_interface(std::string const& name);

/// Broadcasts a discovery that also reaches cameras in other subnets, and reads from each camera whether it can be
/// reached and which application controls it. Blocks for about 1.1 s, and 1.6 s if a camera does not respond. The
/// number of cameras is bounded as in `openpv::discover_cameras`. \param interface searches only the interface with
/// this name; empty: all \throws failure without such an interface
std::vector<found_camera> find_cameras(std::string const& interface);

/// \return whether `name` is the camera's serial number, user-defined name, MAC address or IPv4 address
bool is_called(found_camera const& camera, std::string const& name);

/// \param name as in `is_called`; empty: the only camera
/// \throws failure if no camera, or several, have this name
found_camera choose_camera(std::vector<found_camera> const& cameras, std::string const& name);

/// Reads the identity of the camera at an address, without a search.
/// \return null if no camera responds there
std::optional<found_camera> camera_at(openpv::ipv4_address address);

/// \return whether one of the interface's subnets contains the address
bool is_in_subnet_of(openpv::network_interface const& host, openpv::ipv4_address address);

/// \param routes in the format of `/proc/net/route`
std::set<std::uint32_t> gateways_in(std::istream& routes);
/// \param arp_table in the format of `/proc/net/arp`
/// \return the addresses at which a device has responded
std::set<std::uint32_t> neighbours_in(std::istream& arp_table);
/// \return addresses that this machine knows of: its own, those of gateways, neighbours and cameras
std::set<std::uint32_t> known_addresses(std::vector<found_camera> const& cameras);

/// \param host the machine's interface on which the camera was found
/// \param known addresses to leave out; the one that is suggested is added
/// \return the lowest other address with its prefix, for example `10.0.0.2/24`, in the subnet of `host`; null if there
///     is none. Another device may have it
std::optional<std::string> suggest_address(openpv::network_interface const& host, std::set<std::uint32_t>& known);

/// \return the number of leading ones; null if the mask is not contiguous
std::optional<unsigned> prefix_of(openpv::ipv4_address mask);

/// Reads which application has control.
std::optional<controller> read_controller(openpv::gvcp_channel& channel, std::uint32_t privilege);

}  // namespace gevctl
