// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <initializer_list>
#include <vector>

/// Bytes from a list of numbers.
inline std::vector<std::byte> bytes(std::initializer_list<unsigned> values) {
    std::vector<std::byte> result;
    for (unsigned const value : values) {
        result.push_back(static_cast<std::byte>(value));
    }
    return result;
}
