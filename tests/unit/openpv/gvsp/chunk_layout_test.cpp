// SPDX-License-Identifier: MIT
#include "gvsp/chunk_layout.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

using openpv::chunk;
using openpv::find_chunks;

namespace openpv {
static bool operator==(chunk const& left, chunk const& right) {
    return left.id == right.id && left.offset == right.offset && left.bytes == right.bytes;
}
}  // namespace openpv

namespace {

std::vector<chunk> chunks_of(std::vector<uint8_t> const& block, std::size_t image_bytes) {
    std::vector<chunk> chunks{{1, 2, 3}};  // of an earlier block
    find_chunks(block, image_bytes, chunks);
    return chunks;
}

void append_chunk(std::vector<uint8_t>& block, uint32_t id, std::vector<uint8_t> const& data) {
    block.insert(block.end(), data.begin(), data.end());
    for (uint32_t const number : {id, static_cast<uint32_t>(data.size())}) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            block.push_back(static_cast<uint8_t>(number >> shift));
        }
    }
}

}  // namespace

TEST(ChunkLayout, IsEmptyForAnImageAlone) {
    EXPECT_TRUE(chunks_of({0, 0, 0, 0, 0, 0, 0, 0, 0}, 9).empty());
}

TEST(ChunkLayout, IsEmptyForAnEmptyBlock) {
    EXPECT_TRUE(chunks_of({}, 0).empty());
}

TEST(ChunkLayout, FindsChunksAfterAnImageInMemoryOrder) {
    std::vector<uint8_t> const block{
        'p', 'i', 'c',  't',                                       // the image
        7,   0,   0,    0,    0x00, 0x00, 0x20, 0x0F, 0, 0, 0, 4,  // 0x200F, 4 bytes
        1,   2,   3,    4,    5,    6,    7,    8,                 // data of
        0,   0,   0x20, 0x14, 0,    0,    0,    8,                 // 0x2014, 8 bytes
    };
    EXPECT_EQ(chunks_of(block, 4), (std::vector<chunk>{{0x200F, 4, 4}, {0x2014, 16, 8}}));
}

TEST(ChunkLayout, IsEmptyIfTooFewBytesPrecedeAChunk) {
    std::vector<uint8_t> block{'p', 'i', 'c', 't', 0, 0};  // the image, and two bytes that belong to nothing
    append_chunk(block, 0x200F, {7, 0, 0, 0});
    EXPECT_TRUE(chunks_of(block, 4).empty());
}

TEST(ChunkLayout, IsEmptyIfAnEmptyChunkPrecedesAChunk) {
    std::vector<uint8_t> block{'p', 'i', 'c', 't'};
    append_chunk(block, 1, {});
    append_chunk(block, 0x200F, {7, 0, 0, 0});
    EXPECT_TRUE(chunks_of(block, 4).empty());
}

TEST(ChunkLayout, FindsAnImageThatIsAChunkItself) {
    std::vector<uint8_t> block;
    append_chunk(block, 1, {'p', 'i', 'c', 't'});
    append_chunk(block, 0x200F, {7, 0, 0, 0});
    EXPECT_EQ(chunks_of(block, 4), (std::vector<chunk>{{1, 0, 4}, {0x200F, 12, 4}}));
}

TEST(ChunkLayout, FindsAChunkInABlockThatIsSmallerThanItsImage) {
    std::vector<uint8_t> block;
    append_chunk(block, 0x200F, {7, 0, 0, 0});
    EXPECT_EQ(chunks_of(block, 100), (std::vector<chunk>{{0x200F, 0, 4}}));
}

TEST(ChunkLayout, ReadsWholeNumbers) {
    std::vector<uint8_t> block(0x010203, 1);
    block.insert(block.end(), {0x0A, 0x0B, 0x0C, 0x0D, 0, 1, 2, 3});
    EXPECT_EQ(chunks_of(block, 0), (std::vector<chunk>{{0x0A0B0C0D, 0, 0x010203}}));
}

TEST(ChunkLayout, IsEmptyWhenALengthLeadsOutOfTheBlock) {
    std::vector<uint8_t> block{'p', 'i', 'c', 't'};
    append_chunk(block, 0x200F, {7, 0, 0, 0});
    block.back() = 9;
    EXPECT_TRUE(chunks_of(block, 4).empty());
    block[block.size() - 4] = 0xFF;
    EXPECT_TRUE(chunks_of(block, 4).empty());
}

TEST(ChunkLayout, IsEmptyWhenTheBlockStartsWithinATrailer) {
    std::vector<uint8_t> block{1, 2, 3};
    append_chunk(block, 0x200F, {7, 0, 0, 0});
    EXPECT_TRUE(chunks_of(block, 0).empty());
}

TEST(ChunkLayout, FindsNoChunksInABlackImageOfUnknownSize) {
    EXPECT_TRUE(chunks_of(std::vector<uint8_t>(64, 0), 0).empty());
}

RC_GTEST_PROP(ChunkLayout, FindsWhatWasAppended, (std::vector<uint8_t> image)) {
    auto const sizes = *rc::gen::container<std::vector<uint8_t>>(rc::gen::inRange<uint8_t>(1, 20));
    std::vector<uint8_t> block = image;
    std::vector<chunk> expected;
    for (uint8_t const size : sizes) {
        expected.push_back({0x2000U + size, block.size(), size});
        append_chunk(block, 0x2000U + size, std::vector<uint8_t>(size, 0xAA));
    }
    RC_ASSERT(chunks_of(block, image.size()) == expected);
}

RC_GTEST_PROP(ChunkLayout, StaysInsideAnyBlock, (std::vector<uint8_t> block, std::size_t image_bytes)) {
    if (block.size() >= 8 && *rc::gen::arbitrary<bool>()) {
        block[block.size() - 2] = block[block.size() - 3] = block[block.size() - 4] = 0;
    }
    for (chunk const& each : chunks_of(block, image_bytes)) {
        RC_ASSERT(each.bytes > 0U);
        RC_ASSERT(each.offset + each.bytes + 8 <= block.size());
    }
}
