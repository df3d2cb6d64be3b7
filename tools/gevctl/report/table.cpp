// SPDX-License-Identifier: MIT
#include "report/table.hpp"

#include <algorithm>
#include <ostream>

namespace gevctl {

namespace {

/// Characters of a UTF-8 text: continuation bytes do not count.
std::size_t width_of(std::string const& text) {
    return static_cast<std::size_t>(std::ranges::count_if(text, [](char each) { return (each & 0xC0) != 0x80; }));
}

std::string const& shown(std::string const& cell) {
    static std::string const nothing = "-";
    return cell.empty() ? nothing : cell;
}

}  // namespace

void table::print(std::ostream& out) const {
    std::vector<std::size_t> widths;
    for (auto const& row : rows_) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], width_of(shown(row[i])));
        }
    }
    for (auto const& row : rows_) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            std::string const& cell = shown(row[i]);
            bool const last = i + 1 == row.size();
            out << cell << (last ? "" : std::string(widths[i] - width_of(cell) + 2, ' '));
        }
        out << '\n';
    }
}

}  // namespace gevctl
