// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/// Chunk data: values that describe a frame, which its block carries after the image.
namespace camsim {

/// The chunks that a block can carry, apart from the image.
enum class chunk : std::uint8_t { gain_all, exposure_time, timestamp, exposure_start_counter };

/// A kind of chunk and its format.
struct chunk_kind {
    chunk which;
    std::string_view name;  ///< as GenICam's ChunkSelector spells it
    std::uint32_t id;
    std::uint32_t bytes;  ///< of the number itself
};

/// In the order in which they follow the image. GigE Vision leaves chunk IDs to the manufacturer; these are camsim's
/// own choice.
inline constexpr std::array<chunk_kind, 4> chunk_kinds{{
    {chunk::gain_all, "GainAll", 0x2005, 4},                             // 32-bit float, linear factor
    {chunk::exposure_time, "ExposureTime", 0x2004, 4},                   // 32-bit float, microseconds
    {chunk::timestamp, "Timestamp", 0x2014, 8},                          // ticks
    {chunk::exposure_start_counter, "ExposureStartCounter", 0x200F, 4},  // frame number
}};

/// The image is the first chunk. Its ID is camsim's own choice, too.
inline constexpr std::uint32_t image_chunk_id = 0x2000;

/// The chunks that a block carries, indexed by `chunk`. Without any, the block is a plain image without chunk trailers.
using chunk_set = std::bitset<chunk_kinds.size()>;

/// The values in the chunks of a frame.
struct chunk_values {
    double gain = 1.0;  ///< linear factor, all gains multiplied
    double exposure_us = 0.0;
    std::uint64_t timestamp = 0;     ///< ticks
    std::uint64_t frame_number = 0;  ///< its lower 32 bits are the exposure start counter
};

/// Bytes after the image if all chunks are enabled: the image's chunk trailer, and data and trailer of each chunk.
inline constexpr std::size_t max_chunk_bytes = 8 + (4 + 8) + (4 + 8) + (8 + 8) + (4 + 8);

/// \return bytes that the enabled chunks add to the image: its chunk trailer, and data and trailer of each chunk
std::size_t chunk_bytes(chunk_set const& enabled);
/// Writes the bytes that follow the image. A chunk is its data, its ID and its length, so receivers parse chunks from
/// the end of the block. IDs and lengths are big-endian (GigE Vision); data is little-endian.
/// \param out at least chunk_bytes(enabled) bytes
/// \return bytes written
std::size_t encode_chunks(chunk_set const& enabled, chunk_values const& values, std::size_t image_bytes,
                          std::span<std::byte> out);
/// The chunk layout ID of the trailer: a number that changes whenever the position of a chunk changes, so that a
/// receiver may reuse the positions of an earlier block with the same ID.
std::uint32_t chunk_layout_id(chunk_set const& enabled, std::size_t image_bytes);

}  // namespace camsim
