// SPDX-License-Identifier: MIT
/// \file
/// Blocks with chunks, whose trailers may have any content.
///
/// Input: two bytes, the image size according to the leader; then the block.

#include <vector>

#include "fuzz_input.hpp"
#include "gvsp/chunk_layout.hpp"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    constexpr std::size_t trailer_bytes = 8;
    fuzz_input input(data, size);
    std::size_t const image_bytes = std::size_t{input.byte()} << 8U | input.byte();
    auto const block = input.all();
    static std::vector<openpv::chunk> chunks;
    openpv::find_chunks(block, image_bytes, chunks);

    std::size_t begin = chunks.empty() ? 0 : chunks.front().offset;
    require(chunks.empty() || begin == 0 || begin == image_bytes, "chunks begin with the block or after the image");
    for (openpv::chunk const& one : chunks) {
        require(one.bytes > 0 && one.offset == begin, "each chunk begins at the end of the previous one");
        require(one.bytes <= block.size() && one.offset <= block.size() - one.bytes, "chunks lie inside the block");
        begin = one.offset + one.bytes + trailer_bytes;
    }
    require(chunks.empty() || begin == block.size(), "the last chunk ends with the block");
    return 0;
}
