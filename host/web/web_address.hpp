#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mediagrabber {

/// Where the live page is served: an address of this machine and a port, "127.0.0.1:8080" or "[::1]:8080".
struct web_address {
    std::string host;  ///< numeric, without brackets
    std::uint16_t port = 0;
    bool six = false;       ///< IPv6
    bool loopback = false;  ///< reached from this machine alone

    /// As it is written in a URL, with brackets where it needs them.
    std::string bracketed() const { return six ? "[" + host + "]" : host; }
    std::string url() const { return "http://" + bracketed() + ":" + std::to_string(port) + "/"; }
};

/// Reads "ADDRESS:PORT"; the address is numeric, or "localhost". \throws std::runtime_error that says what is expected
web_address parse_web_address(std::string_view text);

}  // namespace mediagrabber
