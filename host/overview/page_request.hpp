// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <stop_token>
#include <string>

namespace mediagrabber {

/// What a request may cost. The server at the other end is not trusted.
struct request_limits {
    std::chrono::milliseconds time{3'000};  ///< from the name's resolution to the last byte
    std::size_t header_bytes = 16 * 1024;
    std::size_t body_bytes = 256 * 1024;
};

struct page_answer {
    int status = 0;
    std::string type;         ///< Content-Type
    std::uint64_t frame = 0;  ///< X-Frame; 0: absent
    std::string body;
};

/// GET of http or https. Follows no redirect and uses no proxy. Certificates must be valid for the host and issued by
/// one of the system's authorities.
/// \param authorization  value of the header of this name; empty: none
/// \param stop           ends the request within about a second
/// \throws std::runtime_error with the reason
page_answer get_page(std::string const& url, std::string const& authorization, request_limits const& limits,
                     std::stop_token const& stop);

}  // namespace mediagrabber
