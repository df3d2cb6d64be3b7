// SPDX-License-Identifier: MIT
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <string>

namespace camsim {

/// An IPv4 address in host byte order, as in GigE Vision registers: 127.0.0.1 is 0x7F000001.
using ipv4_address = std::uint32_t;

/// A UDP endpoint.
struct endpoint {
    ipv4_address address = 0;
    std::uint16_t port = 0;

    friend bool operator==(endpoint const&, endpoint const&) = default;
};

/// \return dotted decimal notation
std::string to_string(ipv4_address address);
/// \param text dotted decimal notation
/// \return empty if the text is not an address
std::optional<ipv4_address> parse_ipv4(std::string const& text);
sockaddr_in to_sockaddr(endpoint const& point);
endpoint from_sockaddr(sockaddr_in const& address);

/// A network interface of this host with one of its addresses.
struct network_interface {
    std::string name;
    unsigned index = 0;
    ipv4_address address = 0;
    ipv4_address subnet_mask = 0;

    ipv4_address broadcast_address() const { return address | ~subnet_mask; }
};

/// Finds the interface with an address. Every address of the loopback network belongs to the loopback interface: the
/// kernel delivers them all there, although it lists 127.0.0.1 only.
/// \throws std::system_error if the interfaces cannot be listed
std::optional<network_interface> interface_with_address(ipv4_address address);
/// \throws std::system_error if the interfaces cannot be listed
std::optional<network_interface> interface_named(std::string const& name);

}  // namespace camsim
