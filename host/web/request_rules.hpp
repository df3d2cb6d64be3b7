#pragma once

#include <string>
#include <string_view>

#include "web/web_address.hpp"

namespace mediagrabber {

/// What the headers of a request tell of where it comes from; empty: the header is not there.
struct request_origin {
    std::string host;        ///< Host
    std::string origin;      ///< Origin
    std::string fetch_site;  ///< Sec-Fetch-Site
    std::string fetch_mode;  ///< Sec-Fetch-Mode
};

/// Whether a page of another site, or a name that somebody else made to mean this machine, sends a request.
/// \param changes  whether the request would change something
/// \return why it is refused, empty when it is not
std::string reason_to_refuse(request_origin const& from, web_address const& here, bool changes);

/// The value of one cookie in a Cookie header; empty when it is not there.
std::string_view cookie_value(std::string_view header, std::string_view name);

}  // namespace mediagrabber
