#pragma once

#include <cstdint>
#include <string>

namespace mediagrabber {

/// Where a broker is.
struct broker_address {
    std::string host;  ///< a name or an address, IPv6 without brackets
    std::uint16_t port = 0;
    bool encrypted = false;
};

/// Reads "mqtt://HOST[:PORT]" or "mqtts://HOST[:PORT]"; an IPv6 address stands in brackets.
/// \throws std::invalid_argument with what is wrong and what is expected
broker_address parse_broker_address(std::string const& text);

}  // namespace mediagrabber
