#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// Numbers in network byte order (big endian), as GVCP, GVSP and the bootstrap registers carry them; and, for the data
/// of chunks, little-endian ones.
/// Offsets are in bytes; the caller has checked that the number lies inside the span.
namespace camsim {

template <typename Unsigned>
constexpr Unsigned load_big_endian(std::span<std::byte const> bytes, std::size_t offset) {
    std::uint64_t value = 0;
    for (std::byte const byte : bytes.subspan(offset, sizeof(Unsigned))) {
        value = value << 8U | std::to_integer<std::uint64_t>(byte);
    }
    return static_cast<Unsigned>(value);
}

template <typename Unsigned>
constexpr void store_big_endian(std::span<std::byte> bytes, std::size_t offset, Unsigned value) {
    std::uint64_t rest = value;
    std::span<std::byte> const target = bytes.subspan(offset, sizeof(Unsigned));
    for (std::size_t at = target.size(); at-- > 0; rest >>= 8U) {
        target[at] = static_cast<std::byte>(rest & 0xFFU);
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

/// Writes the lower bytes of `value`, as many as `bytes` has.
constexpr void store_little_endian(std::span<std::byte> bytes, std::uint64_t value) {
    for (std::byte& byte : bytes) {
        byte = static_cast<std::byte>(value & 0xFFU);
        value >>= 8U;
    }
}

}  // namespace camsim
