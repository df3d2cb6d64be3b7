// SPDX-License-Identifier: MIT
#include "config/broker_address.hpp"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string_view>

namespace mediagrabber {

namespace {

// Ports that IANA has assigned to MQTT.
constexpr std::uint16_t plain_port = 1883;
constexpr std::uint16_t encrypted_port = 8883;
constexpr std::size_t max_name = 253;  ///< characters of a DNS name

[[noreturn]] void refuse(std::string const& what) {
    throw std::invalid_argument(what + R"(, expected "mqtt://HOST:PORT" or "mqtts://HOST:PORT")");
}

bool take_prefix(std::string_view& text, std::string_view prefix) {
    bool const there = text.starts_with(prefix);
    text.remove_prefix(there ? prefix.size() : 0);
    return there;
}

/// Removes the host from the front of `text`.
std::string take_host(std::string_view& text) {
    if (take_prefix(text, "[")) {
        auto const end = text.find(']');
        std::string host(text.substr(0, end));
        in6_addr ignored{};
        if (end == text.npos || inet_pton(AF_INET6, host.c_str(), &ignored) != 1) {
            refuse("the text in brackets is not an IPv6 address");
        }
        text.remove_prefix(end + 1);
        return host;
    }
    std::string host(text.substr(0, text.find(':')));
    text.remove_prefix(host.size());
    bool const plain = std::all_of(host.begin(), host.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == '-' ||
               c == '_';
    });
    if (host.empty() || host.size() > max_name || !plain) {
        refuse(fmt::format("\"{}\" is not a host name", host));
    }
    return host;
}

std::uint16_t port_of(std::string_view text) {
    std::uint16_t port = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port == 0) {
        refuse(fmt::format("\"{}\" is not a port from 1 to 65535", text));
    }
    return port;
}

}  // namespace

broker_address parse_broker_address(std::string const& text) {
    std::string_view remaining = text;
    broker_address found;
    found.encrypted = take_prefix(remaining, "mqtts://");
    if (!found.encrypted && !take_prefix(remaining, "mqtt://")) {
        refuse("it does not begin with mqtt:// or mqtts://");
    }
    found.host = take_host(remaining);
    found.port = found.encrypted ? encrypted_port : plain_port;
    if (take_prefix(remaining, ":")) {
        found.port = port_of(remaining);
    } else if (!remaining.empty()) {
        refuse(fmt::format("unexpected \"{}\" after the host name", remaining));
    }
    return found;
}

}  // namespace mediagrabber
