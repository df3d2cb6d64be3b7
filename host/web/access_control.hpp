// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

#include "config/web_address.hpp"

namespace mediagrabber {

/// The headers of a request that reveal its origin; empty: the header is absent.
struct request_origin {
    std::string host;        ///< Host
    std::string origin;      ///< Origin
    std::string fetch_site;  ///< Sec-Fetch-Site
    std::string fetch_mode;  ///< Sec-Fetch-Mode
};

/// Protects against requests that a browser sends on behalf of another site (CSRF), and against other host names that
/// resolve to this machine (DNS rebinding).
/// \param here     the page's address
/// \param proxied  the origin at which a reverse proxy serves the page; null: none
/// \param changes  whether the request would change something
/// \return why the request is refused; empty if it is allowed
std::string reason_to_refuse(request_origin const& from, web_address const& here, public_origin const* proxied,
                             bool changes);

/// \param header  the value of a Cookie header
/// \return the value of the cookie `name`; empty if it is not there
std::string_view cookie_value(std::string_view header, std::string_view name);

}  // namespace mediagrabber
