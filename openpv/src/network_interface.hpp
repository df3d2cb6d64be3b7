#pragma once
/// \file
/// The host's network interfaces, as far as cameras can be behind them.

#include <optional>
#include <string>
#include <vector>

#include "ipv4_address.hpp"

namespace openpv {

struct network_interface {
    unsigned index = 0;  ///< the kernel's number
    std::string name;
    std::vector<ipv4_address> addresses;  ///< at least one
};

/// Interfaces that are up and have an IPv4 address, loopback included, ordered by the kernel's number.
/// \return null when the kernel refuses the list; `errno` says why
std::optional<std::vector<network_interface>> list_network_interfaces();

}  // namespace openpv
