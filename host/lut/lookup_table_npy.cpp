// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <stdexcept>

#include "lut/lookup_table_file.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t max_header = 4'096;  ///< bytes; NumPy writes about 128

/// The type and size of the array.
struct npy_header {
    std::string type;        ///< "<u2"
    std::size_t count = 0;   ///< of elements
    std::size_t offset = 0;  ///< of the first element in the file
};

[[noreturn]] void fail(std::string const& what) {
    throw std::runtime_error(what);
}

/// Parses the beginning of the file: magic, version, length of the description in 2 or 4 bytes, description.
std::string_view description_of(std::string_view bytes, std::size_t& offset) {
    constexpr std::string_view magic("\x93NUMPY", 6);
    constexpr std::size_t version_at = 6;
    constexpr std::size_t length_at = 8;
    if (!bytes.starts_with(magic) || bytes.size() < length_at + 4) {
        fail("is not a NumPy file");
    }
    auto const version = static_cast<unsigned char>(bytes[version_at]);
    if (version < 1 || version > 3) {
        fail(fmt::format("has version {} of the NumPy format, expected 1 to 3", version));
    }
    std::size_t const length_bytes = version == 1 ? 2 : 4;
    std::size_t length = 0;
    for (std::size_t i = 0; i < length_bytes; ++i) {
        length |= std::size_t{static_cast<unsigned char>(bytes[length_at + i])} << (8 * i);
    }
    offset = length_at + length_bytes + length;
    if (length > max_header || offset > bytes.size()) {
        fail("has a damaged header");
    }
    return bytes.substr(length_at + length_bytes, length);
}

/// The value of a key of the description, between a character of `opening` and the next character of `closing`.
std::string_view value_in(std::string_view description, std::string_view key, char const* opening,
                          char const* closing) {
    constexpr char const* quotes = "'\"";
    for (std::size_t at = description.find(key); at != description.npos; at = description.find(key, at + 1)) {
        std::size_t const colon = description.find_first_not_of(' ', at + key.size() + 1);
        bool const is_key = at > 0 && description.find_first_of(quotes, at - 1) == at - 1 &&
                            description.find_first_of(quotes, at + key.size()) == at + key.size() &&
                            colon != description.npos && description[colon] == ':';
        if (!is_key) {
            continue;
        }
        std::size_t const begin = description.find_first_not_of(' ', colon + 1);
        std::size_t const end = begin != description.npos ? description.find_first_of(closing, begin + 1) : begin;
        if (end != description.npos && description.find_first_of(opening, begin) == begin) {
            return description.substr(begin + 1, end - begin - 1);
        }
    }
    fail(fmt::format("has a header without a valid \"{}\"", key));
}

std::string_view without_blanks(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

/// The size of a one-dimensional shape, which Python prints with a trailing comma.
std::size_t count_of(std::string_view shape) {
    constexpr std::size_t max_digits = 9;
    auto digits = without_blanks(shape);
    if (digits.ends_with(',')) {
        digits = without_blanks(digits.substr(0, digits.size() - 1));
    }
    std::size_t count = 0;
    auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), count);
    if (error != std::errc{} || end != digits.data() + digits.size() || digits.size() > max_digits) {
        fail(fmt::format("has the shape ({}), expected one dimension", shape));
    }
    return count;
}

npy_header read_header(std::string_view bytes) {
    npy_header header;
    auto const description = description_of(bytes, header.offset);
    header.type = value_in(description, "descr", "'\"", "'\"");
    header.count = count_of(value_in(description, "shape", "(", ")"));
    return header;
}

/// Element `i` of an array.
template <typename number>
double element(std::string_view data, std::size_t i, bool swapped) {
    std::array<char, sizeof(number)> bytes{};
    std::memcpy(bytes.data(), data.data() + i * sizeof(number), sizeof(number));
    if (swapped) {
        std::reverse(bytes.begin(), bytes.end());
    }
    return static_cast<double>(std::bit_cast<number>(bytes));
}

template <typename number>
std::vector<double> elements(std::string_view data, std::size_t count, bool swapped) {
    if (data.size() != count * sizeof(number)) {
        fail(fmt::format("has {} bytes of data, expected {} for {} entries", data.size(), count * sizeof(number),
                         count));
    }
    std::vector<double> values(count);
    for (std::size_t i = 0; i < count; ++i) {
        values[i] = element<number>(data, i, swapped);
    }
    return values;
}

}  // namespace

raw_lut read_npy_lut(std::string_view bytes) {
    auto const header = read_header(bytes);
    auto const data = bytes.substr(header.offset);
    bool const swapped = header.type.starts_with('>');
    std::string const type = header.type.substr(std::min<std::size_t>(1, header.type.size()));
    if (header.type.find_first_of("<>|=") != 0) {
        fail(fmt::format("has the unknown type {}", header.type));
    }
    if (type == "u1") {
        return {.values = elements<std::uint8_t>(data, header.count, swapped), .bits = 8};
    }
    if (type == "u2") {
        return {.values = elements<std::uint16_t>(data, header.count, swapped), .bits = 16};
    }
    if (type == "f4") {
        return {.values = elements<float>(data, header.count, swapped), .bits = {}};
    }
    if (type == "f8") {
        return {.values = elements<double>(data, header.count, swapped), .bits = {}};
    }
    fail(fmt::format("has the type {}, expected uint8, uint16, float32 or float64", header.type));
}

}  // namespace mediagrabber
