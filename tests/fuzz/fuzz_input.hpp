// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Shared by the fuzzers: a reader of the input, and the check of properties.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

/// Reads an input from its beginning. Past its end there are zeros and empty spans, so that every input is valid.
class fuzz_input {
public:
    fuzz_input(uint8_t const* data, std::size_t size) : remaining_(data, size) {}

    bool empty() const { return remaining_.empty(); }

    uint8_t byte() { return take(1).empty() ? uint8_t{0} : taken_.front(); }
    std::span<uint8_t const> bytes(std::size_t max_count) { return take(max_count); }
    std::span<uint8_t const> all() { return take(remaining_.size()); }
    std::string text() {
        auto const bytes = all();
        return {bytes.begin(), bytes.end()};
    }

private:
    std::span<uint8_t const> take(std::size_t max_count) {
        taken_ = remaining_.first(std::min(max_count, remaining_.size()));
        remaining_ = remaining_.subspan(taken_.size());
        return taken_;
    }

    std::span<uint8_t const> remaining_;
    std::span<uint8_t const> taken_;
};

/// Aborts the program, as a sanitizer does, if a property does not hold.
inline void require(bool holds, char const* property) {
    if (!holds) {
        std::fprintf(stderr, "property violated: %s\n", property);
        std::abort();
    }
}
