#pragma once
/// \file
/// Where the chunks of a block lie.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace openpv {

struct chunk {
    uint32_t id = 0;
    std::size_t offset = 0;  ///< of the data, from the beginning of the block
    std::size_t bytes = 0;
};

/// Finds the chunks of a block. A chunk is its data, then its ID and the data's length, both big-endian 32-bit; so the
/// last eight bytes of a block tell where its last chunk begins, the eight bytes before that the one before, and so on.
/// Nothing that the block says is trusted: a length that leads outside, or of nothing, makes it a block without chunks.
/// \param block what was received of the block
/// \param image_bytes size of the picture at the beginning, which may stand outside the chunks; 0 when unknown
/// \param chunks receives the chunks in the order in which they lie; empty for a block without
void find_chunks(std::span<uint8_t const> block, std::size_t image_bytes, std::vector<chunk>& chunks);

}  // namespace openpv
