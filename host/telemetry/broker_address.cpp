#include "telemetry/broker_address.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string_view>

namespace mediagrabber {

namespace {

constexpr std::uint16_t plain_port = 1883;
constexpr std::uint16_t encrypted_port = 8883;
constexpr std::size_t longest_name = 253;  ///< what the name system knows

[[noreturn]] void refuse(std::string const& what) {
    throw std::invalid_argument(what + R"(, expected "mqtt://HOST:PORT" or "mqtts://HOST:PORT")");
}

bool take_prefix(std::string_view& text, std::string_view prefix) {
    bool const there = text.starts_with(prefix);
    text.remove_prefix(there ? prefix.size() : 0);
    return there;
}

/// What stands before the port; the text goes on behind it.
std::string take_host(std::string_view& text) {
    if (take_prefix(text, "[")) {
        auto const end = text.find(']');
        std::string host(text.substr(0, end));
        in6_addr ignored{};
        if (end == text.npos || inet_pton(AF_INET6, host.c_str(), &ignored) != 1) {
            refuse("there is no IPv6 address in the brackets");
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
    if (host.empty() || host.size() > longest_name || !plain) {
        refuse("\"" + host + "\" is no name of a machine");
    }
    return host;
}

std::uint16_t port_of(std::string_view text) {
    std::uint16_t port = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port == 0) {
        refuse("\"" + std::string(text) + "\" is no port from 1 to 65535");
    }
    return port;
}

}  // namespace

broker_address parse_broker_address(std::string const& text) {
    std::string_view rest = text;
    broker_address found;
    found.encrypted = take_prefix(rest, "mqtts://");
    if (!found.encrypted && !take_prefix(rest, "mqtt://")) {
        refuse("it does not begin with mqtt:// or mqtts://");
    }
    found.host = take_host(rest);
    found.port = found.encrypted ? encrypted_port : plain_port;
    if (take_prefix(rest, ":")) {
        found.port = port_of(rest);
    } else if (!rest.empty()) {
        refuse("\"" + std::string(rest) + "\" follows the name of the machine");
    }
    return found;
}

}  // namespace mediagrabber
