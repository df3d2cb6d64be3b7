// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Discovers the cameras on the host's network interfaces.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "gvcp/gvcp_message.hpp"
#include "net/ipv4_address.hpp"
#include "net/network_interface.hpp"

namespace openpv {

/// A camera that acknowledged the discovery.
struct discovered_camera {
    gvcp::identity identity;
    ipv4_address camera;  ///< sender of the acknowledge
    ipv4_address host;    ///< local address that received it
};

/// An interface and the cameras found on it.
struct discovered_interface {
    network_interface interface;
    std::vector<discovered_camera>
        cameras;  ///< in order of their first acknowledge, at most 256 and at most 8 of a sender
};

/// Bounds the list of an interface, and its memory under a flood of acknowledges. Far above the number of cameras that
/// share a link.
constexpr std::size_t max_cameras = 256;

/// Bounds the cameras at one address, so that a device that sends a flood does not fill the list. Cameras with the same
/// address by mistake are all listed, as far as they are few.
constexpr std::ptrdiff_t max_cameras_of_sender = 8;

/// Adds the camera that sent `received`, unless that is not an acknowledge of discovery `request`, the camera is known,
/// the sender has too many, or the list is full.
/// \param host local address that received it
void add_acknowledge(discovered_interface& interface, std::span<std::byte const> received, ipv4_address sender,
                     ipv4_address host, std::uint16_t request);

/// Broadcasts GVCP DISCOVERY on every interface and collects acknowledges for one second, the longest time that the
/// GigE Vision standard allows a camera to delay its acknowledge. Blocks for that time, also under a flood of
/// datagrams. Uses sockets of its own; several threads may search at once.
///
/// \return every interface that is up, in the order of `list_network_interfaces`. An interface that cannot be searched,
///     for example without a broadcast route, has no cameras. Null if the interfaces cannot be listed; the reason is in
///     `errno`
/// \param how `broadcast` also finds cameras in other subnets, which this machine may not reach
/// \param interface searches only the interface with this name; empty: all
std::optional<std::vector<discovered_interface>> discover_cameras(gvcp::ack_delivery how = gvcp::ack_delivery::unicast,
                                                                  std::string const& interface = {});

/// Acknowledge of a broadcast command.
struct broadcast_ack {
    ipv4_address sender;
    std::uint16_t status = 0;  ///< GVCP status code; 0 is success
    bool operator==(broadcast_ack const&) const = default;
};

/// Broadcasts FORCEIP or ACTION once, and collects acknowledges for `time`. Blocks for that time.
/// \param interface sends only on the interface with this name; empty: on all
/// \return the acknowledges without duplicates, at most 256 of each interface. Null as `discover_cameras`
std::optional<std::vector<broadcast_ack>> broadcast_command(gvcp::message const& command,
                                                            std::chrono::milliseconds time,
                                                            std::string const& interface = {});

}  // namespace openpv
