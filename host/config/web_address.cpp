// SPDX-License-Identifier: MIT
#include "config/web_address.hpp"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <stdexcept>

namespace mediagrabber {

namespace {

[[noreturn]] void refuse(std::string_view text) {
    throw std::runtime_error(fmt::format(
        "\"{}\" is not valid, expected ADDRESS:PORT with an IP address or \"localhost\" and a port from 0 to"
        " 65535 (0: any free port), for example 127.0.0.1:8080 or [::1]:8080",
        text));
}

bool is_loopback(in_addr const& address) {
    return (ntohl(address.s_addr) >> 24U) == 127U;
}

/// \param into  receives address family and host
/// \return whether `host` is an IP address
bool read_host(std::string_view host, bool in_brackets, web_address& into) {
    into.host = host == "localhost" ? "127.0.0.1" : std::string(host);
    in6_addr six{};
    in_addr four{};
    if (in_brackets && inet_pton(AF_INET6, into.host.c_str(), &six) == 1) {
        into.six = true;
        into.loopback = IN6_IS_ADDR_LOOPBACK(&six);
        return true;
    }
    if (!in_brackets && inet_pton(AF_INET, into.host.c_str(), &four) == 1) {
        into.loopback = is_loopback(four);
        return true;
    }
    return false;
}

}  // namespace

web_address parse_web_address(std::string_view text) {
    auto const colon = text.rfind(':');
    if (colon == text.npos) {
        refuse(text);
    }
    auto host = text.substr(0, colon);
    bool const in_brackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (in_brackets) {
        host = host.substr(1, host.size() - 2);
    }
    web_address read;
    auto const port = text.substr(colon + 1);
    auto const [end, error] = std::from_chars(port.data(), port.data() + port.size(), read.port);
    bool const is_port = error == std::errc() && end == port.data() + port.size();
    if (!is_port || !read_host(host, in_brackets, read)) {
        refuse(text);
    }
    return read;
}

namespace {

[[noreturn]] void refuse_origin(std::string_view text) {
    throw std::runtime_error(
        fmt::format("\"{}\" is not an origin, expected https://HOST or https://HOST:PORT without a path", text));
}

bool is_host_character(char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '[' || c == ']' || c == ':';
}

}  // namespace

public_origin parse_public_origin(std::string_view text) {
    constexpr std::string_view https = "https://";
    constexpr std::string_view http = "http://";
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    public_origin read{.origin = {}, .host = {}, .secure = lower.starts_with(https)};
    if (!read.secure && !lower.starts_with(http)) {
        refuse_origin(text);
    }
    std::string host = lower.substr((read.secure ? https : http).size());
    auto const bracket = host.find(']');
    auto const colon = host.find(':', bracket == host.npos ? 0 : bracket);
    if (colon != host.npos) {
        std::uint16_t port = 0;
        char const* const last = host.data() + host.size();
        auto const [end, error] = std::from_chars(host.data() + colon + 1, last, port);
        if (error != std::errc() || end != last || port == 0) {
            refuse_origin(text);
        }
        constexpr std::uint16_t https_port = 443;
        constexpr std::uint16_t http_port = 80;
        host.resize(port == (read.secure ? https_port : http_port) ? colon : host.size());
    }
    if (host.empty() || !std::ranges::all_of(host, is_host_character)) {
        refuse_origin(text);
    }
    read.host = host;
    read.origin = std::string(read.secure ? https : http) + host;
    return read;
}

}  // namespace mediagrabber
