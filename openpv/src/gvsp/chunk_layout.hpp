// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Locates the chunks of a block.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace openpv {

/// One chunk within a block. A value: valid as long as the block's memory holds the same block.
struct chunk {
    std::uint32_t id = 0;
    std::size_t offset = 0;  ///< of the data, from the start of the block
    std::size_t bytes = 0;
};

/// Finds the chunks of a block, from the last to the first.
///
/// A chunk is its data, followed by its ID and the data length, both big-endian 32-bit numbers. The last eight bytes of
/// a block therefore locate its last chunk, the eight bytes before that chunk the previous one, and so on. The block
/// comes from the network: a length of zero, or one that leads outside the block, makes the result empty.
///
/// \param block the bytes received
/// \param image_bytes size of an image that precedes the chunks without being a chunk itself; 0 if unknown
/// \param chunks receives the chunks in memory order; empty for a block without chunks. Its capacity is reused.
void find_chunks(std::span<std::uint8_t const> block, std::size_t image_bytes, std::vector<chunk>& chunks);

}  // namespace openpv
