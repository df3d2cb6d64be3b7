// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mediagrabber {

/// The address at which the live page is served: an address of this machine and a port, "127.0.0.1:8080" or
/// "[::1]:8080".
struct web_address {
    std::string host;  ///< numeric, without brackets
    std::uint16_t port = 0;
    bool six = false;       ///< IPv6
    bool loopback = false;  ///< only this machine can connect

    /// The host as in a URL, with brackets around IPv6.
    std::string bracketed() const { return six ? "[" + host + "]" : host; }
    std::string url() const { return "http://" + bracketed() + ":" + std::to_string(port) + "/"; }
};

/// Parses "ADDRESS:PORT"; the address is numeric, or "localhost". \throws std::runtime_error with the expected form
web_address parse_web_address(std::string_view text);

/// The origin at which a reverse proxy serves the page, as browsers send it: lower case, without a default port.
struct public_origin {
    std::string origin;   ///< "https://camera.example" or "https://camera.example:8443"
    std::string host;     ///< "camera.example" or "camera.example:8443", as in a Host header
    bool secure = false;  ///< https
};

/// Parses "https://HOST[:PORT]" or "http://HOST[:PORT]". \throws std::runtime_error with the expected form
public_origin parse_public_origin(std::string_view text);

}  // namespace mediagrabber
