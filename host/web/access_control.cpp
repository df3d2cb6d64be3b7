// SPDX-License-Identifier: MIT
#include "web/access_control.hpp"

#include <algorithm>
#include <cctype>

namespace mediagrabber {

namespace {

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// \return the host of a Host header, without the port
std::string host_without_port(std::string const& host) {
    auto const bracket = host.find(']');
    auto const colon = host.find(':', bracket == host.npos ? 0 : bracket);
    return lower(host.substr(0, colon));
}

bool names_this_machine(std::string const& host, web_address const& here, public_origin const* proxied) {
    auto const name = host_without_port(host);
    if (proxied != nullptr && name == host_without_port(proxied->host)) {
        return true;
    }
    return name == "localhost" || name == "127.0.0.1" || name == "[::1]" || name == lower(here.bracketed());
}

/// Both schemes are the same origin: behind a reverse proxy with TLS the browser uses https. A proxy may replace the
/// host, but not the origin.
bool is_same_origin(request_origin const& from, public_origin const* proxied) {
    auto const origin = lower(from.origin);
    if (proxied != nullptr && origin == proxied->origin) {
        return true;
    }
    auto const host = lower(from.host);
    return !host.empty() && (origin == "http://" + host || origin == "https://" + host);
}

}  // namespace

std::string reason_to_refuse(request_origin const& from, web_address const& here, public_origin const* proxied,
                             bool changes) {
    if (here.loopback && !names_this_machine(from.host, here, proxied)) {
        return "this page is only available at " + here.url();
    }
    bool const from_another_site = from.fetch_site == "cross-site" || from.fetch_site == "same-site";
    if (from_another_site && (changes || from.fetch_mode != "navigate")) {
        return "requests from other sites are refused";
    }
    if (changes && !from.origin.empty() && !is_same_origin(from, proxied)) {
        return "requests from other sites are refused";
    }
    return {};
}

std::string_view cookie_value(std::string_view header, std::string_view name) {
    while (!header.empty()) {
        auto const end = std::min(header.find(';'), header.size());
        auto one = header.substr(0, end);
        header.remove_prefix(std::min(end + 1, header.size()));
        one.remove_prefix(std::min(one.find_first_not_of(' '), one.size()));
        auto const equals = one.find('=');
        if (equals != one.npos && one.substr(0, equals) == name) {
            return one.substr(equals + 1);
        }
    }
    return {};
}

}  // namespace mediagrabber
