#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/// Chunks: numbers about a frame that its block carries behind the picture.
namespace camsim {

enum class chunk : std::uint8_t { gain_all, exposure_time, timestamp, exposure_start_counter };

struct chunk_kind {
    chunk which;
    std::string_view name;  ///< as GenICam's ChunkSelector spells it
    std::uint32_t id;
    std::uint32_t bytes;  ///< of the number itself
};

/// In the order in which they follow the picture.
inline constexpr std::array<chunk_kind, 4> chunk_kinds{{
    {chunk::gain_all, "GainAll", 0x2005, 4},                             // 32-bit float, linear factor
    {chunk::exposure_time, "ExposureTime", 0x2004, 4},                   // 32-bit float, microseconds
    {chunk::timestamp, "Timestamp", 0x2014, 8},                          // ticks
    {chunk::exposure_start_counter, "ExposureStartCounter", 0x200F, 4},  // the frame's number
}};

/// The picture is a chunk too, the first one. No standard gives it an ID; this one is camsim's.
inline constexpr std::uint32_t image_chunk_id = 0x2000;

/// Which chunks a block carries, by `chunk`. With none of them the picture stands alone, and is no chunk itself.
using chunk_set = std::bitset<chunk_kinds.size()>;

/// What the chunks of a frame say.
struct chunk_values {
    double gain = 1.0;  ///< linear factor, all gains multiplied
    double exposure_us = 0.0;
    std::uint64_t timestamp = 0;     ///< ticks
    std::uint64_t frame_number = 0;  ///< its lower 32 bits are the exposure start counter
};

/// Room for what stands behind the picture when every chunk is enabled.
inline constexpr std::size_t most_chunk_bytes = 8 + (4 + 8) + (4 + 8) + (8 + 8) + (4 + 8);

std::size_t chunk_bytes(chunk_set const& enabled);
std::size_t encode_chunks(chunk_set const& enabled, chunk_values const& values, std::size_t image_bytes,
                          std::span<std::byte> out);
std::uint32_t chunk_layout_id(chunk_set const& enabled, std::size_t image_bytes);

}  // namespace camsim
