// SPDX-License-Identifier: MIT
#include "protocol/chunk_data.hpp"

#include <gmock/gmock.h>

#include <algorithm>

#include "base/byte_order.hpp"
#include "bytes.hpp"
#include "stream/stream_block.hpp"

using namespace camsim;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr chunk_values some_values{
    .gain = 2.5, .exposure_us = 1234.5, .timestamp = 0x1122334455667788, .frame_number = 0x9'0A0B0C0D};

chunk_set all_chunks() {
    return chunk_set{}.set();
}

std::vector<std::byte> encoded(chunk_set const& enabled, std::size_t image_bytes) {
    std::vector<std::byte> out(chunk_bytes(enabled));
    EXPECT_EQ(encode_chunks(enabled, some_values, image_bytes, out), out.size());
    return out;
}

struct found_chunk {
    std::uint32_t id;
    std::size_t offset;
    std::size_t bytes;

    friend bool operator==(found_chunk const&, found_chunk const&) = default;
};

/// Parses a payload from its end, as a receiver does; empty if the chunks do not add up to the payload.
std::vector<found_chunk> walk(std::vector<std::byte> const& payload) {
    std::vector<found_chunk> chunks;
    for (std::size_t end = payload.size(); end != 0;) {
        if (end < 8 || load_be32(payload, end - 4) > end - 8) {
            return {};
        }
        std::size_t const length = load_be32(payload, end - 4);
        std::size_t const begin = end - 8 - length;
        chunks.push_back({load_be32(payload, end - 8), begin, length});
        end = begin;
    }
    std::ranges::reverse(chunks);
    return chunks;
}

}  // namespace

TEST(Chunks, FollowTheImageWithIdAndLengthAfterEach) {
    // An image of 0x00012340 bytes; 2.5 is 0x40200000, 1234.5 is 0x449A5000.
    auto const expected = bytes({0x00, 0x00, 0x20, 0x00, 0x00, 0x01, 0x23, 0x40,                          // image
                                 0x00, 0x00, 0x20, 0x40, 0x00, 0x00, 0x20, 0x05, 0x00, 0x00, 0x00, 0x04,  // gain
                                 0x00, 0x50, 0x9A, 0x44, 0x00, 0x00, 0x20, 0x04, 0x00, 0x00, 0x00, 0x04,  // exposure
                                 0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11, 0x00, 0x00, 0x20, 0x14,  // timestamp
                                 0x00, 0x00, 0x00, 0x08, 0x0D, 0x0C, 0x0B, 0x0A, 0x00, 0x00, 0x20, 0x0F,  // counter
                                 0x00, 0x00, 0x00, 0x04});
    EXPECT_EQ(encoded(all_chunks(), 0x12340), expected);
    EXPECT_EQ(expected.size(), max_chunk_bytes);
}

TEST(Chunks, AreOnlyTheEnabledOnes) {
    chunk_set only_counter;
    only_counter.set(static_cast<std::size_t>(chunk::exposure_start_counter));
    auto const expected = bytes({0x00, 0x00, 0x20, 0x00, 0x00, 0x00, 0x00, 0x10, 0x0D, 0x0C,
                                 0x0B, 0x0A, 0x00, 0x00, 0x20, 0x0F, 0x00, 0x00, 0x00, 0x04});
    EXPECT_EQ(encoded(only_counter, 16), expected);
}

TEST(Chunks, AddNothingIfNoneIsEnabled) {
    EXPECT_EQ(chunk_bytes({}), 0U);
    EXPECT_THAT(encoded({}, 16), IsEmpty());
}

TEST(Chunks, CanBeParsedFromTheEndOfThePayload) {
    std::vector<std::byte> payload(160, std::byte{0xAA});
    auto const behind = encoded(all_chunks(), payload.size());
    payload.insert(payload.end(), behind.begin(), behind.end());
    EXPECT_THAT(walk(payload),
                ElementsAre(found_chunk{image_chunk_id, 0, 160}, found_chunk{0x2005, 168, 4},
                            found_chunk{0x2004, 180, 4}, found_chunk{0x2014, 192, 8}, found_chunk{0x200F, 208, 4}));
}

TEST(ChunkLayoutId, ChangesWithImageSizeAndEnabledChunks) {
    std::vector<std::uint32_t> ids;
    for (std::size_t const image_bytes : {16U, 20U, 1024U, 1U << 29U}) {
        for (unsigned long set = 1; set < 16; ++set) {
            ids.push_back(chunk_layout_id(chunk_set(set), image_bytes));
        }
    }
    std::ranges::sort(ids);
    EXPECT_EQ(std::ranges::adjacent_find(ids), ids.end());
}

TEST(BlockPackets, CarryChunksAcrossPacketBoundaries) {
    scene_settings scene;
    scene.sensor_width = 320;
    scene.sensor_height = 200;
    stream_block block;
    block.block_id = 7;
    block.timestamp = 99;
    block.frame.area = {320, 200, 0, 0};
    block.chunks = all_chunks();
    std::vector<std::byte> expected(block.payload_bytes());
    render_frame({scene, block.frame}, std::span(expected).first(block.image_bytes()));
    encode_chunks(block.chunks, {block.frame.gain, block.frame.exposure_us, 99, 0}, block.image_bytes(),
                  std::span(expected).subspan(block.image_bytes()));
    // Packet sizes with all chunks in one packet, split chunks, and a last packet with chunks only.
    for (std::size_t const packet_size : {1400U, 1312U, 1316U, 1300U, 8900U, 576U}) {
        block.packet_size = packet_size;
        block_packets packets(scene);
        packets.begin(block);
        std::vector<std::byte> received;
        for (std::uint32_t packet = 1; packet < block.layout().trailer_id(); ++packet) {
            iovec const data = packets.payload(packet, 1).pieces[1];
            auto const* const begin = static_cast<std::byte const*>(data.iov_base);
            received.insert(received.end(), begin, begin + data.iov_len);
        }
        EXPECT_EQ(received, expected) << packet_size;
    }
}

TEST(BlockPackets, AnnounceChunksInLeaderAndTrailer) {
    scene_settings scene;
    stream_block block;
    block.packet_size = 1400;
    block.frame.area = {320, 200, 0, 0};
    block.chunks.set(static_cast<std::size_t>(chunk::timestamp));
    block.payload = gvsp::payload_type::image_with_chunks;
    block_packets packets(scene);
    auto const payload_of = [](packet_run const& run) {
        auto const* const data = static_cast<std::byte const*>(run.pieces[0].iov_base);
        return std::vector<std::byte>(data + gvsp::header_size, data + run.pieces[0].iov_len);
    };
    packets.begin(block);
    EXPECT_EQ(gvsp::decode_image_leader(payload_of(packets.leader()))->payload, gvsp::payload_type::image_with_chunks);
    auto const trailer = gvsp::decode_image_trailer(payload_of(packets.trailer()));
    ASSERT_TRUE(trailer);
    EXPECT_EQ(trailer->payload, gvsp::payload_type::image_with_chunks);
    EXPECT_EQ(trailer->payload_bytes, 320U * 200U + 8U + 16U);
    EXPECT_EQ(trailer->layout_id, chunk_layout_id(block.chunks, 320U * 200U));

    block.chunks.reset();
    block.payload = gvsp::payload_type::image;
    packets.begin(block);
    EXPECT_EQ(gvsp::decode_image_leader(payload_of(packets.leader()))->payload, gvsp::payload_type::image);
    EXPECT_EQ(payload_of(packets.trailer()).size(), gvsp::image_trailer_size);
}
