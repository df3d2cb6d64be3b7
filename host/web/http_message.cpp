// SPDX-License-Identifier: MIT
#include "web/http_message.hpp"

#include <microhttpd.h>
#include <strings.h>

#include <algorithm>

namespace mediagrabber {

namespace {

template <typename Map>
std::string value_in(Map const& map, std::string_view name) {
    auto const found = map.find(name);
    return found == map.end() ? std::string() : found->second;
}

std::string form_decoded(std::string_view text) {
    std::string decoded(text);
    std::replace(decoded.begin(), decoded.end(), '+', ' ');
    decoded.resize(MHD_http_unescape(decoded.data()));
    return decoded;
}

}  // namespace

bool case_insensitive_less::operator()(std::string_view left, std::string_view right) const {
    auto const common = strncasecmp(left.data(), right.data(), std::min(left.size(), right.size()));
    return common != 0 ? common < 0 : left.size() < right.size();
}

std::string http_request::header(std::string_view name) const {
    return value_in(headers, name);
}

std::string http_request::parameter(std::string_view name) const {
    return value_in(parameters, name);
}

std::string http_request::form_field(std::string_view name) const {
    for (std::string_view left = body; !left.empty();) {
        auto const pair = left.substr(0, left.find('&'));
        left.remove_prefix(std::min(pair.size() + 1, left.size()));
        auto const equals = std::min(pair.find('='), pair.size());
        if (form_decoded(pair.substr(0, equals)) == name) {
            return form_decoded(pair.substr(std::min(equals + 1, pair.size())));
        }
    }
    return {};
}

}  // namespace mediagrabber
