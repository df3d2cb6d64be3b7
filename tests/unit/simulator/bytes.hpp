#pragma once

#include <cstddef>
#include <initializer_list>
#include <vector>

/// Bytes as a test writes them down.
inline std::vector<std::byte> bytes(std::initializer_list<unsigned> values) {
    std::vector<std::byte> result;
    for (unsigned const value : values) {
        result.push_back(static_cast<std::byte>(value));
    }
    return result;
}
