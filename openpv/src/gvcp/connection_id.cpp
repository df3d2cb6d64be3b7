// SPDX-License-Identifier: MIT
#include "gvcp/connection_id.hpp"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <string_view>

namespace openpv {
namespace {

constexpr std::size_t mac_bytes = 6;
constexpr std::size_t mac_text_length = 3 * mac_bytes - 1;

std::optional<std::uint64_t> parse_mac(std::string_view text) {
    if (text.size() != mac_text_length) {
        return std::nullopt;
    }
    std::uint64_t mac = 0;
    for (std::size_t i = 0; i < mac_bytes; ++i) {
        char const* const digits = text.data() + 3 * i;
        std::uint8_t byte = 0;
        if (std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) {
            return std::nullopt;
        }
        if (i + 1 < mac_bytes && digits[2] != ':') {
            return std::nullopt;
        }
        mac = mac << 8 | byte;
    }
    return mac;
}

}  // namespace

std::string mac_to_text(std::uint64_t mac) {
    std::array<char, mac_text_length + 1> text{};
    auto const byte = [mac](int shift) { return static_cast<unsigned>(mac >> shift & 0xFFU); };
    std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", byte(40), byte(32), byte(24), byte(16),
                  byte(8), byte(0));
    return text.data();
}

std::string to_text(connection_id const& id) {
    return mac_to_text(id.mac) + "@" + to_text(id.camera) + "%" + to_text(id.host);
}

std::optional<connection_id> parse_connection_id(std::string const& text) {
    auto const at = text.find('@');
    auto const percent = text.find('%');
    if (at == std::string::npos || percent == std::string::npos || percent < at) {
        return std::nullopt;
    }
    auto const mac = parse_mac(std::string_view(text).substr(0, at));
    auto const camera = parse_ipv4(text.substr(at + 1, percent - at - 1));
    auto const host = parse_ipv4(text.substr(percent + 1));
    if (!mac || !camera || !host) {
        return std::nullopt;
    }
    return connection_id{*mac, *camera, *host};
}

}  // namespace openpv
