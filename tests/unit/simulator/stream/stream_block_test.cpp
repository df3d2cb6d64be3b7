// SPDX-License-Identifier: MIT
#include "stream/stream_block.hpp"

#include <gtest/gtest.h>

#include "stream/sent_blocks.hpp"

using namespace camsim;

namespace {

scene_settings small_scene() {
    scene_settings scene;
    scene.sensor_width = 320;
    scene.sensor_height = 200;
    return scene;
}

stream_block small_block(gvsp::id_mode ids = gvsp::id_mode::standard) {
    stream_block block;
    block.block_id = 7;
    block.ids = ids;
    block.packet_size = 1400;
    block.timestamp = 123456;
    block.frame.area = {320, 200, 0, 0};
    block.frame.format = pixel_format::mono12_packed;
    return block;
}

std::vector<std::byte> joined(packet_run const& run, std::size_t packet) {
    std::vector<std::byte> bytes;
    for (iovec const& piece : run.pieces.subspan(packet * run.pieces_per_packet, run.pieces_per_packet)) {
        auto const* const data = static_cast<std::byte const*>(piece.iov_base);
        bytes.insert(bytes.end(), data, data + piece.iov_len);
    }
    return bytes;
}

}  // namespace

TEST(BlockLayout, FillsAllPacketsExceptTheLastOne) {
    block_layout const layout(10000, 1400, gvsp::id_mode::standard);
    EXPECT_EQ(layout.packet_payload(), 1400U - 20 - 8 - 8);
    EXPECT_EQ(layout.payload_packets(), 8U);
    EXPECT_EQ(layout.trailer_id(), 9U);
    EXPECT_EQ(layout.packet_count(), 10U);
    EXPECT_EQ(layout.bytes_of(1).begin, 0U);
    EXPECT_EQ(layout.bytes_of(1).end, 1364U);
    EXPECT_EQ(layout.bytes_of(8).begin, 7U * 1364U);
    EXPECT_EQ(layout.bytes_of(8).end, 10000U);
}

TEST(BlockLayout, HasNoEmptyPacketIfThePayloadFitsExactly) {
    block_layout const layout(2 * 1352, 1400, gvsp::id_mode::extended);
    EXPECT_EQ(layout.payload_packets(), 2U);
    EXPECT_EQ(layout.bytes_of(2).end, 2704U);
}

TEST(BlockPackets, CarryTheCompleteFrameInBothIdModes) {
    for (auto const ids : {gvsp::id_mode::standard, gvsp::id_mode::extended}) {
        stream_block const block = small_block(ids);
        block_layout const layout = block.layout();
        std::vector<std::byte> expected(frame_bytes(block.frame.area, block.frame.format));
        render_frame({small_scene(), block.frame}, expected);
        block_packets packets(small_scene());
        packets.begin(block);
        std::vector<std::byte> received;
        for (std::uint32_t first = 1; first < layout.trailer_id(); first += 5) {
            std::uint32_t const count = std::min(5U, layout.trailer_id() - first);
            packet_run const run = packets.payload(first, count);
            ASSERT_EQ(run.packet_count(), count);
            for (std::uint32_t index = 0; index < count; ++index) {
                auto const packet = joined(run, index);
                EXPECT_LE(packet.size(), 1400U - 28);
                auto const header = gvsp::decode_header(packet);
                EXPECT_EQ(header->packet_id, first + index);
                EXPECT_EQ(header->block_id, 7U);
                EXPECT_EQ(header->format, gvsp::packet_format::payload);
                EXPECT_EQ(header->ids, ids);
                received.insert(received.end(), packet.begin() + static_cast<std::ptrdiff_t>(gvsp::header_size_of(ids)),
                                packet.end());
            }
        }
        EXPECT_EQ(received, expected);
    }
}

TEST(BlockPackets, StartWithALeaderAndEndWithATrailer) {
    block_packets packets(small_scene());
    packets.begin(small_block());
    auto const leader = joined(packets.leader(), 0);
    EXPECT_EQ(gvsp::decode_header(leader)->packet_id, 0U);
    auto const image = gvsp::decode_image_leader(std::span(leader).subspan(8));
    EXPECT_EQ(image->timestamp, 123456U);
    EXPECT_EQ(image->format, pixel_format::mono12_packed);
    auto const trailer = joined(packets.trailer(), 0);
    EXPECT_EQ(gvsp::decode_header(trailer)->packet_id, small_block().layout().trailer_id());
    EXPECT_EQ(gvsp::decode_image_trailer(std::span(trailer).subspan(8))->height, 200U);
}

TEST(BlockPackets, AreMarkedAsResentByStatusOrByFlag) {
    block_packets packets(small_scene());
    packets.begin(small_block());
    EXPECT_EQ(gvsp::decode_header(joined(packets.payload(3, 1, true), 0))->status, 0x0100);
    packets.begin(small_block(gvsp::id_mode::extended));
    auto const header = gvsp::decode_header(joined(packets.payload(3, 1, true), 0));
    EXPECT_EQ(header->status, 0);
    EXPECT_EQ(header->flags, gvsp::flag_resent);
}

TEST(BlockPackets, FitRunsIntoOneSegmentedSend) {
    block_packets packets(small_scene());
    stream_block block = small_block();
    packets.begin(block);
    EXPECT_EQ(packets.max_packets_per_run(), 47U);  // 65507 / 1372
    block.packet_size = 8900;
    packets.begin(block);
    EXPECT_EQ(packets.max_packets_per_run(), 7U);
    block.packet_size = 576;
    packets.begin(block);
    EXPECT_EQ(packets.max_packets_per_run(), 64U);  // the kernel's limit
}

TEST(SentBlocks, KeepTheLastBlocksAndTheirProgress) {
    sent_blocks sent(2);
    stream_block block = small_block();
    for (std::uint64_t id = 1; id <= 3; ++id) {
        block.block_id = id;
        sent.begin(block);
        sent.advance(static_cast<std::uint32_t>(10 * id));
    }
    EXPECT_FALSE(sent.find(1, gvsp::id_mode::standard));
    ASSERT_TRUE(sent.find(2, gvsp::id_mode::standard));
    EXPECT_EQ(sent.find(2, gvsp::id_mode::standard)->packets_sent, 20U);
    EXPECT_EQ(sent.find(3, gvsp::id_mode::standard)->packets_sent, 30U);
    EXPECT_FALSE(sent.find(3, gvsp::id_mode::extended));
    sent.clear();
    EXPECT_FALSE(sent.find(3, gvsp::id_mode::standard));
}

TEST(SentBlocks, KeepNothingWithoutCapacity) {
    sent_blocks sent(0);
    sent.begin(small_block());
    sent.advance(3);
    EXPECT_FALSE(sent.find(7, gvsp::id_mode::standard));
}
