#include "chunk_data.hpp"

#include <bit>

#include "byte_order.hpp"

namespace camsim {

namespace {

constexpr std::size_t trailer_bytes = 8;  // ID and length, big-endian, behind each chunk's data

/// The number that a chunk carries, in the lower bits.
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

/// Bytes that the enabled chunks add to the picture's: its own trailer, and each chunk with its trailer.
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

/// Writes what stands behind the picture. A chunk is its data, then its ID and its length, both big-endian, so that a
/// receiver finds the chunks from the block's end; the numbers themselves are little-endian, as the receiving programs
/// read them.
///
/// \param out at least chunk_bytes(enabled) bytes
/// \return bytes written
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

/// A number that differs whenever a chunk lies elsewhere than it did: a receiver that has seen it knows the offsets.
/// The size of a picture is a multiple of 4, which leaves the lower bits of four times the size to the set.
std::uint32_t chunk_layout_id(chunk_set const& enabled, std::size_t image_bytes) {
    static_assert(chunk_kinds.size() <= 4);
    return static_cast<std::uint32_t>(image_bytes) * 4U | static_cast<std::uint32_t>(enabled.to_ulong());
}

}  // namespace camsim
