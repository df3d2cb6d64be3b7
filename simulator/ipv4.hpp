#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <string>

namespace camsim {

/// An IPv4 address in host byte order: 127.0.0.1 is 0x7F000001, as GigE Vision's registers hold it.
using ipv4_address = std::uint32_t;

/// A UDP endpoint.
struct endpoint {
    ipv4_address address = 0;
    std::uint16_t port = 0;

    friend bool operator==(endpoint const&, endpoint const&) = default;
};

std::string to_string(ipv4_address address);
std::optional<ipv4_address> parse_ipv4(std::string const& text);
sockaddr_in to_sockaddr(endpoint const& point);
endpoint from_sockaddr(sockaddr_in const& address);

/// The network interface that carries an address of this host.
struct network_interface {
    std::string name;
    unsigned index = 0;
    ipv4_address address = 0;
    ipv4_address subnet_mask = 0;

    ipv4_address broadcast_address() const { return address | ~subnet_mask; }
};

std::optional<network_interface> interface_with_address(ipv4_address address);
std::optional<network_interface> interface_named(std::string const& name);

}  // namespace camsim
