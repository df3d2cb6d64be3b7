// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// IPv4 addresses and their text form.

#include <cstdint>
#include <optional>
#include <string>

namespace openpv {

/// An IPv4 address, a value.
struct ipv4_address {
    std::uint32_t value = 0;  ///< host byte order

    bool operator==(ipv4_address const&) const = default;
    auto operator<=>(ipv4_address const&) const = default;
};

/// Whether the address names a group of receivers: 224.0.0.0 to 239.255.255.255.
constexpr bool is_multicast(ipv4_address address) {
    return address.value >> 28U == 0xE;
}

/// \return null unless `text` is four decimal numbers from 0 to 255, separated by dots, and nothing else
std::optional<ipv4_address> parse_ipv4(std::string const& text);
/// \return dotted decimal form, for example `192.168.1.20`
std::string to_text(ipv4_address address);

}  // namespace openpv
