// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "lut/lookup_table_file.hpp"

namespace mediagrabber {

namespace {

constexpr std::string_view separators = ",; \t\r";
constexpr std::size_t max_shown = 40;  ///< characters of a word in a message

/// A number and its position.
struct field {
    double value = 0.0;
    bool fraction = false;  ///< has a decimal point or an exponent
    std::size_t line = 0;   ///< from 1
    std::size_t column = 0;
};
using row = std::vector<field>;

[[noreturn]] void fail(std::size_t line, std::size_t column, std::string const& what) {
    throw std::runtime_error(fmt::format("line {}, column {}: {}", line, column, what));
}

/// \return whether the word is a number
bool read_number(std::string_view word, field& into) {
    auto const [end, error] = std::from_chars(word.data(), word.data() + word.size(), into.value);
    into.fraction = word.find_first_of(".eE") != word.npos;
    return error == std::errc{} && end == word.data() + word.size();
}

bool has_digit(std::string_view text) {
    return text.find_first_of("0123456789") != text.npos;
}

row read_row(std::string_view line, std::size_t number) {
    row fields;
    std::size_t at = 0;
    while ((at = line.find_first_not_of(separators, at)) != line.npos) {
        std::size_t const end = std::min(line.find_first_of(separators, at), line.size());
        field one{.value = 0.0, .fraction = false, .line = number, .column = at + 1};
        auto const word = line.substr(at, end - at);
        if (!read_number(word, one)) {
            fail(number, at + 1, fmt::format("\"{}\" is not a number", word.substr(0, max_shown)));
        }
        fields.push_back(one);
        at = end;
    }
    return fields;
}

std::vector<row> read_rows(std::string_view text) {
    std::vector<row> rows;
    std::size_t number = 0;
    while (!text.empty()) {
        auto const line_end = std::min(text.find('\n'), text.size());
        auto const line = text.substr(0, std::min(line_end, text.find('#')));
        text.remove_prefix(std::min(line_end + 1, text.size()));
        ++number;
        bool const heading = rows.empty() && !has_digit(line);
        auto fields = heading ? row() : read_row(line, number);
        if (!fields.empty()) {
            rows.push_back(std::move(fields));
        }
    }
    return rows;
}

/// Selects the fields that are values.
std::vector<field> values_of(std::vector<row> const& rows) {
    if (rows.size() == 1) {
        return rows.front();
    }
    std::vector<field> values;
    for (row const& one : rows) {
        if (one.size() != rows.front().size() || one.size() > 2) {
            fail(
                one.front().line, one.front().column,
                fmt::format("has {} numbers, expected a value per line, an index and a value per line, or all values on"
                            " one line",
                            one.size()));
        }
        if (one.size() == 2 && one.front().value != static_cast<double>(values.size())) {
            fail(one.front().line, one.front().column, fmt::format("expected the index {}", values.size()));
        }
        values.push_back(one.back());
    }
    return values;
}

}  // namespace

raw_lut read_csv_lut(std::string_view text) {
    constexpr unsigned integer_bits = 16;
    auto const fields = values_of(read_rows(text));
    raw_lut table;
    bool const fractions = std::any_of(fields.begin(), fields.end(), [](field const& one) { return one.fraction; });
    if (!fractions) {
        table.bits = integer_bits;
    }
    for (field const& one : fields) {
        table.values.push_back(one.value);
    }
    return table;
}

}  // namespace mediagrabber
