// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// The host's network interfaces.

#include <optional>
#include <string>
#include <vector>

#include "net/ipv4_address.hpp"

namespace openpv {

/// One network interface and its IPv4 addresses. A snapshot: later changes of the host's configuration do not show.
struct network_interface {
    unsigned index = 0;                   ///< the kernel's interface index
    std::string name;                     ///< for example `eth0`, without the label of an additional address
    std::vector<ipv4_address> addresses;  ///< at least one
    std::vector<ipv4_address> masks;      ///< subnet mask of each address, in the same order
};

/// Lists the interfaces that are up and have an IPv4 address, loopback included, ordered by interface index. The order
/// is therefore the same each time.
/// \return null if the kernel does not return the list; the reason is in `errno`
std::optional<std::vector<network_interface>> list_network_interfaces();

}  // namespace openpv
