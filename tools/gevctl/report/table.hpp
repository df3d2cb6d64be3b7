// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Text in columns.

#include <iosfwd>
#include <string>
#include <vector>

namespace gevctl {

/// Rows of a table. Columns are separated by two spaces and are as wide as their longest text.
class table {
public:
    explicit table(std::vector<std::string> header) { rows_.push_back(std::move(header)); }

    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    void print(std::ostream& out) const;

private:
    std::vector<std::vector<std::string>> rows_;  ///< the header first; empty texts are printed as `-`
};

}  // namespace gevctl
