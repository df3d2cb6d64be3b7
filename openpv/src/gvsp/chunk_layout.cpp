// SPDX-License-Identifier: MIT
#include "gvsp/chunk_layout.hpp"

#include <algorithm>

namespace openpv {
namespace {

constexpr std::size_t trailer_bytes = 8;

std::uint32_t get32(std::span<std::uint8_t const> block, std::size_t offset) {
    return static_cast<std::uint32_t>(block[offset]) << 24 | static_cast<std::uint32_t>(block[offset + 1]) << 16 |
           static_cast<std::uint32_t>(block[offset + 2]) << 8 | static_cast<std::uint32_t>(block[offset + 3]);
}

}  // namespace

void find_chunks(std::span<std::uint8_t const> block, std::size_t image_bytes, std::vector<chunk>& chunks) {
    chunks.clear();
    std::size_t end = block.size();
    if (end == image_bytes) {
        return;
    }
    while (end != 0 && end != image_bytes) {
        if (end < trailer_bytes) {
            chunks.clear();
            return;
        }
        std::size_t const trailer = end - trailer_bytes;
        std::size_t const bytes = get32(block, trailer + 4);
        if (bytes == 0 || bytes > trailer) {
            chunks.clear();
            return;
        }
        end = trailer - bytes;
        chunks.push_back({get32(block, trailer), end, bytes});
    }
    std::ranges::reverse(chunks);
}

}  // namespace openpv
