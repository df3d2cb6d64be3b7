// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace mediagrabber {

/// The address of an MQTT broker.
struct broker_address {
    std::string host;  ///< name or IP address; IPv6 without brackets
    std::uint16_t port = 0;
    bool encrypted = false;  ///< TLS
};

/// Parses "mqtt://HOST[:PORT]" or "mqtts://HOST[:PORT]", with an IPv6 address in brackets.
/// \throws std::invalid_argument with the error and the expected form
broker_address parse_broker_address(std::string const& text);

}  // namespace mediagrabber
