#pragma once
/// \file
/// What every fuzzer needs: parts of an input, one after the other, and a way to say that something came out wrong.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

/// Takes an input apart from its beginning on. Past its end there are zeros and empty spans, so that every input means
/// something.
class fuzz_input {
public:
    fuzz_input(uint8_t const* data, std::size_t size) : rest_(data, size) {}

    bool empty() const { return rest_.empty(); }

    uint8_t byte() { return take(1).empty() ? uint8_t{0} : taken_.front(); }
    std::span<uint8_t const> bytes(std::size_t most) { return take(most); }
    std::span<uint8_t const> all() { return take(rest_.size()); }
    std::string text() {
        auto const rest = all();
        return {rest.begin(), rest.end()};
    }

private:
    std::span<uint8_t const> take(std::size_t most) {
        taken_ = rest_.first(std::min(most, rest_.size()));
        rest_ = rest_.subspan(taken_.size());
        return taken_;
    }

    std::span<uint8_t const> rest_;
    std::span<uint8_t const> taken_;
};

/// Ends the program, as a sanitizer does, when something that always holds does not.
inline void require(bool holds, char const* what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}
