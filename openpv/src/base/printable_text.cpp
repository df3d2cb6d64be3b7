// SPDX-License-Identifier: MIT
#include "base/printable_text.hpp"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace openpv {
namespace {

constexpr char replacement = '?';

bool is_control(std::uint32_t character) {
    bool const ascii_or_c1 = character < 0x20 || (character >= 0x7F && character <= 0x9F);
    bool const marks = character == 0x200E || character == 0x200F;
    bool const breaks_and_overrides = character >= 0x2028 && character <= 0x202E;
    bool const isolates = character >= 0x2066 && character <= 0x2069;
    return ascii_or_c1 || marks || breaks_and_overrides || isolates;
}

bool is_white_space(char character) {
    return character == '\t' || character == '\n' || character == '\r';
}

struct decoded {
    std::uint32_t character = 0;
    std::size_t bytes = 0;  ///< 0: not UTF-8
};

/// Decodes the UTF-8 character at the start of `text`, which is not empty.
decoded decode(std::string_view text) {
    auto const byte_at = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned const first = byte_at(0);
    if (first < 0x80) {
        return {first, 1};
    }
    std::size_t const bytes = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < bytes) {
        return {};
    }
    std::uint32_t character = first & (0xFFU >> (bytes + 1));
    for (std::size_t i = 1; i < bytes; ++i) {
        if ((byte_at(i) & 0xC0U) != 0x80) {
            return {};
        }
        character = character << 6 | (byte_at(i) & 0x3FU);
    }
    constexpr std::uint32_t min_of_three_bytes = 0x800;
    constexpr std::uint32_t min_of_four_bytes = 0x10000;
    bool const overlong =
        (bytes == 3 && character < min_of_three_bytes) || (bytes == 4 && character < min_of_four_bytes);
    bool const surrogate = character >= 0xD800 && character <= 0xDFFF;
    return overlong || surrogate || character > 0x10FFFF ? decoded{} : decoded{character, bytes};
}

template <class predicate>
std::string replace_controls(std::string text, predicate&& may_stay) {
    for (std::size_t at = 0; at < text.size();) {
        decoded const found = decode(std::string_view(text).substr(at));
        std::size_t const bytes = std::max<std::size_t>(found.bytes, 1);
        if ((found.bytes == 0 || is_control(found.character)) && !may_stay(text[at])) {
            std::fill_n(text.begin() + static_cast<std::ptrdiff_t>(at), bytes, replacement);
        }
        at += bytes;
    }
    return text;
}

/// \return bytes of the numeric reference at the start of `text` if it names a control character; otherwise 0
std::size_t control_reference(std::string_view text) {
    std::size_t const prefix = text.starts_with("&#x") || text.starts_with("&#X") ? 3 : 2;
    char const* const begin = text.data() + std::min(prefix, text.size());
    char const* const end = text.data() + text.size();
    std::uint32_t character = 0;
    auto const parsed = std::from_chars(begin, end, character, prefix == 3 ? 16 : 10);
    bool const complete = parsed.ec == std::errc() && parsed.ptr != end && *parsed.ptr == ';';
    return complete && is_control(character) ? static_cast<std::size_t>(parsed.ptr + 1 - text.data()) : 0;
}

}  // namespace

std::string printable(std::string text) {
    return replace_controls(std::move(text), [](char) { return false; });
}

std::string printable_ascii(std::string text) {
    std::ranges::replace_if(
        text,
        [](char each) {
            auto const code = static_cast<unsigned char>(each);
            return code < 0x20 || code >= 0x7F;
        },
        replacement);
    return text;
}

std::string printable_xml(std::string document) {
    document = replace_controls(std::move(document), is_white_space);
    for (std::size_t at = document.find("&#"); at != std::string::npos; at = document.find("&#", at + 1)) {
        std::size_t const bytes = control_reference(std::string_view(document).substr(at));
        std::fill_n(document.begin() + static_cast<std::ptrdiff_t>(at), bytes, replacement);
    }
    return document;
}

}  // namespace openpv
