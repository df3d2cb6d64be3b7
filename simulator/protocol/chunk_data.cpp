// SPDX-License-Identifier: MIT
#include "protocol/chunk_data.hpp"

#include <bit>

#include "base/byte_order.hpp"

namespace camsim {

namespace {

constexpr std::size_t trailer_bytes = 8;  // ID and length, 32 bits each

/// The value of a chunk, in the lower bits.
std::uint64_t raw_value(chunk which, chunk_values const& values) {
    switch (which) {
        case chunk::gain_all:
            return std::bit_cast<std::uint32_t>(static_cast<float>(values.gain));
        case chunk::exposure_time:
            return std::bit_cast<std::uint32_t>(static_cast<float>(values.exposure_us));
        case chunk::timestamp:
            return values.timestamp;
        case chunk::exposure_start_counter:
            return values.frame_number & 0xFFFF'FFFFU;
    }
    return 0;
}

std::size_t write_trailer(std::uint32_t id, std::size_t length, std::span<std::byte> out) {
    store_be32(out, 0, id);
    store_be32(out, 4, static_cast<std::uint32_t>(length));
    return trailer_bytes;
}

}  // namespace

std::size_t chunk_bytes(chunk_set const& enabled) {
    if (enabled.none()) {
        return 0;
    }
    std::size_t bytes = trailer_bytes;
    for (chunk_kind const& kind : chunk_kinds) {
        bytes += enabled.test(static_cast<std::size_t>(kind.which)) ? kind.bytes + trailer_bytes : 0;
    }
    return bytes;
}

std::size_t encode_chunks(chunk_set const& enabled, chunk_values const& values, std::size_t image_bytes,
                          std::span<std::byte> out) {
    if (enabled.none()) {
        return 0;
    }
    std::size_t at = write_trailer(image_chunk_id, image_bytes, out);
    for (chunk_kind const& kind : chunk_kinds) {
        if (enabled.test(static_cast<std::size_t>(kind.which))) {
            store_little_endian(out.subspan(at, kind.bytes), raw_value(kind.which, values));
            at += kind.bytes;
            at += write_trailer(kind.id, kind.bytes, out.subspan(at));
        }
    }
    return at;
}

std::uint32_t chunk_layout_id(chunk_set const& enabled, std::size_t image_bytes) {
    // Image sizes are multiples of 4, so four times the size has four free bits for the set.
    static_assert(chunk_kinds.size() <= 4);
    return static_cast<std::uint32_t>(image_bytes) * 4U | static_cast<std::uint32_t>(enabled.to_ulong());
}

}  // namespace camsim
