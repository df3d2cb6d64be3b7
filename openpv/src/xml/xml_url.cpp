// SPDX-License-Identifier: MIT
#include "xml/xml_url.hpp"

#include <cctype>
#include <charconv>
#include <string_view>
#include <system_error>

#include <strings.h>

#include "base/printable_text.hpp"

namespace openpv {
namespace {

// Case does not matter.
bool starts_with(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && strncasecmp(text.data(), prefix.data(), prefix.size()) == 0;
}
bool ends_with(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && starts_with(text.substr(text.size() - suffix.size()), suffix);
}

std::string_view trim(std::string_view text) {
    auto const is_space = [](char each) { return std::isspace(static_cast<unsigned char>(each)) != 0; };
    while (!text.empty() && is_space(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_space(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::optional<std::uint64_t> parse_hexadecimal(std::string_view text) {
    text = trim(text);
    if (starts_with(text, "0x")) {
        text.remove_prefix(2);
    }
    std::uint64_t value = 0;
    char const* const end = text.data() + text.size();
    auto const parsed = std::from_chars(text.data(), end, value, 16);
    return !text.empty() && parsed.ec == std::errc() && parsed.ptr == end ? std::optional(value) : std::nullopt;
}

/// Splits off what precedes `separator`. Without one, all of `remaining`.
std::string_view take_until(std::string_view& remaining, char separator) {
    auto const at = remaining.find(separator);
    auto const taken = remaining.substr(0, at);
    remaining.remove_prefix(at == remaining.npos ? remaining.size() : at + 1);
    return taken;
}

}  // namespace

std::optional<xml_url> parse_xml_url(std::string const& text, std::string& error) {
    auto const refuse = [&](std::string const& reason) {
        error = "the URL \"" + printable(text) + "\" " + reason;
        return std::nullopt;
    };
    if (text.empty()) {
        error = "the URL is empty";
        return std::nullopt;
    }
    constexpr std::string_view local = "local:";
    std::string_view remaining = trim(text);
    if (!starts_with(remaining, local)) {
        return refuse("is not followed: only \"Local:\", which names memory of the camera, is supported");
    }
    remaining.remove_prefix(local.size());
    remaining = remaining.substr(0, remaining.find('?'));
    std::string_view const name = trim(take_until(remaining, ';'));
    auto const address = parse_hexadecimal(take_until(remaining, ';'));
    auto const bytes = parse_hexadecimal(remaining);
    if (!address || !bytes) {
        return refuse("is not valid, expected Local:NAME;ADDRESS;LENGTH with hexadecimal numbers");
    }
    if (*bytes == 0 || *bytes > xml_url::max_bytes) {
        return refuse("specifies a length outside 1 byte to 16 MiB");
    }
    constexpr std::uint64_t address_space = std::uint64_t{1} << 32;
    if (*address > address_space - *bytes) {
        return refuse("specifies an address beyond 32 bits");
    }
    return xml_url{static_cast<std::uint32_t>(*address), static_cast<std::uint32_t>(*bytes), ends_with(name, ".zip")};
}

}  // namespace openpv
