// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// Reads and writes numbers in big-endian byte order, which GVCP, GVSP and the bootstrap registers use, and writes
/// little-endian ones for the data of chunks. Offsets are in bytes; callers ensure that the number is inside the span.
namespace camsim {

template <typename unsigned_type>
constexpr unsigned_type load_big_endian(std::span<std::byte const> bytes, std::size_t offset) {
    std::uint64_t value = 0;
    for (std::byte const byte : bytes.subspan(offset, sizeof(unsigned_type))) {
        value = value << 8U | std::to_integer<std::uint64_t>(byte);
    }
    return static_cast<unsigned_type>(value);
}

template <typename unsigned_type>
constexpr void store_big_endian(std::span<std::byte> bytes, std::size_t offset, unsigned_type value) {
    std::uint64_t remaining = value;
    std::span<std::byte> const target = bytes.subspan(offset, sizeof(unsigned_type));
    for (std::size_t at = target.size(); at-- > 0; remaining >>= 8U) {
        target[at] = static_cast<std::byte>(remaining & 0xFFU);
    }
}

constexpr std::uint16_t load_be16(std::span<std::byte const> bytes, std::size_t offset) {
    return load_big_endian<std::uint16_t>(bytes, offset);
}

constexpr std::uint32_t load_be32(std::span<std::byte const> bytes, std::size_t offset) {
    return load_big_endian<std::uint32_t>(bytes, offset);
}

constexpr std::uint64_t load_be64(std::span<std::byte const> bytes, std::size_t offset) {
    return load_big_endian<std::uint64_t>(bytes, offset);
}

constexpr void store_be16(std::span<std::byte> bytes, std::size_t offset, std::uint16_t value) {
    store_big_endian(bytes, offset, value);
}

constexpr void store_be32(std::span<std::byte> bytes, std::size_t offset, std::uint32_t value) {
    store_big_endian(bytes, offset, value);
}

constexpr void store_be64(std::span<std::byte> bytes, std::size_t offset, std::uint64_t value) {
    store_big_endian(bytes, offset, value);
}

/// Fills `bytes` with the lower bytes of `value`.
constexpr void store_little_endian(std::span<std::byte> bytes, std::uint64_t value) {
    for (std::byte& byte : bytes) {
        byte = static_cast<std::byte>(value & 0xFFU);
        value >>= 8U;
    }
}

}  // namespace camsim
