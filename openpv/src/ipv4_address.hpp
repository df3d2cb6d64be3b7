#pragma once
/// \file
/// An IPv4 address: a number in host byte order with a text form.

#include <cstdint>
#include <optional>
#include <string>

namespace openpv {

struct ipv4_address {
    uint32_t value = 0;  ///< host byte order

    bool operator==(ipv4_address const&) const = default;
    auto operator<=>(ipv4_address const&) const = default;
};

/// \return null unless `text` is exactly four decimal numbers of 0 to 255 between dots
std::optional<ipv4_address> parse_ipv4(std::string const& text);
std::string to_text(ipv4_address address);

}  // namespace openpv
