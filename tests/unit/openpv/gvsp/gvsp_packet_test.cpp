// SPDX-License-Identifier: MIT
#include "gvsp/gvsp_packet.hpp"

#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

using namespace openpv;

namespace {

std::vector<std::byte> bytes(std::initializer_list<int> values) {
    std::vector<std::byte> made;
    for (int const value : values) {
        made.push_back(static_cast<std::byte>(value));
    }
    return made;
}

std::vector<std::byte> encoded(gvsp::resend_request const& request, uint16_t id) {
    std::array<std::byte, gvsp::max_resend_request_bytes> command{};
    command.fill(std::byte{0xA5});  // of an earlier request
    std::size_t const length = gvsp::encode(request, id, command);
    return {command.begin(), command.begin() + static_cast<std::ptrdiff_t>(length)};
}

}  // namespace

TEST(GvspPacket, WithShortIds) {
    auto const datagram = bytes({0, 0, 0x12, 0x34, 3, 0x0A, 0x0B, 0x0C, 0xDE, 0xAD});
    auto const packet = gvsp::parse(datagram);
    ASSERT_TRUE(packet);
    EXPECT_FALSE(packet->extended);
    EXPECT_EQ(packet->block, 0x1234U);
    EXPECT_EQ(packet->number, 0x0A0B0CU);
    EXPECT_EQ(packet->kind, gvsp::packet_kind::payload);
    EXPECT_EQ(packet->status, gvsp::packet_status::present);
    EXPECT_EQ(packet->content.size(), 2U);
    EXPECT_EQ(packet->content.data(), datagram.data() + 8);
}

TEST(GvspPacket, WithExtendedIds) {
    auto const datagram = bytes({0, 0, 0, 0, 0x82, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0x42});
    auto const packet = gvsp::parse(datagram);
    ASSERT_TRUE(packet);
    EXPECT_TRUE(packet->extended);
    EXPECT_EQ(packet->block, 0x0102030405060708U);
    EXPECT_EQ(packet->number, 0x090A0B0CU);
    EXPECT_EQ(packet->kind, gvsp::packet_kind::trailer);
    EXPECT_EQ(packet->content.size(), 1U);
}

TEST(GvspPacket, MayEndAfterItsHeader) {
    auto const datagram = bytes({0, 0, 0, 0, 0x83, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    auto const packet = gvsp::parse(datagram);
    ASSERT_TRUE(packet);
    EXPECT_TRUE(packet->content.empty());
}

TEST(GvspPacket, MayHaveReservedBits) {
    auto const packet = gvsp::parse(bytes({0, 0, 0, 1, 0x72, 0, 0, 1}));
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->kind, gvsp::packet_kind::trailer);
}

TEST(GvspPacket, ThatWasResentIsPresent) {
    EXPECT_EQ(gvsp::parse(bytes({1, 0, 0, 1, 3, 0, 0, 1}))->status, gvsp::packet_status::present);
}

TEST(GvspPacket, ReportsUnavailableAndDelayedPackets) {
    EXPECT_EQ(gvsp::parse(bytes({0x80, 0x0C, 0, 1, 3, 0, 0, 1}))->status, gvsp::packet_status::unavailable);
    EXPECT_EQ(gvsp::parse(bytes({0x80, 0x11, 0, 1, 3, 0, 0, 1}))->status, gvsp::packet_status::unavailable);
    EXPECT_EQ(gvsp::parse(bytes({0x80, 0x12, 0, 1, 3, 0, 0, 1}))->status, gvsp::packet_status::unavailable);
    EXPECT_EQ(gvsp::parse(bytes({0x80, 0x10, 0, 1, 3, 0, 0, 1}))->status, gvsp::packet_status::not_yet);
}

TEST(GvspPacket, OfAnotherKindOrTooShortIsRejected) {
    EXPECT_FALSE(gvsp::parse({}));
    EXPECT_FALSE(gvsp::parse(bytes({0, 0, 0, 1, 3, 0, 0})));
    EXPECT_FALSE(gvsp::parse(bytes({0, 0, 0, 1, 0, 0, 0, 1})));
    EXPECT_FALSE(gvsp::parse(bytes({0, 0, 0, 1, 4, 0, 0, 1})));
    EXPECT_FALSE(gvsp::parse(bytes({0, 0, 0, 0, 0x83, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11})));
}

RC_GTEST_PROP(GvspPacket, IsNeverReadBeyondItsEnd, (std::vector<uint8_t> const& datagram)) {
    auto const packet = gvsp::parse(std::as_bytes(std::span(datagram)));
    if (packet) {
        std::size_t const header = packet->extended ? 20 : 8;
        RC_ASSERT(packet->content.size() == datagram.size() - header);
    }
    (void)gvsp::parse_leader(std::as_bytes(std::span(datagram)));
}

TEST(GvspLeader, OfAnImage) {
    auto const content = bytes({0, 0,    0x40, 1,               // image, chunks follow
                                0, 0,    0,    1,  0, 0, 0, 2,  // timestamp
                                1, 0x0C, 0,    6,               // Mono12Packed
                                0, 0,    0,    10, 0, 0, 0, 3,  // size
                                0, 0,    0,    0,  0, 0, 0, 0,  // offset
                                0, 2,    0,    0});             // padding of a line
    auto const leader = gvsp::parse_leader(content);
    ASSERT_TRUE(leader);
    EXPECT_EQ(leader->timestamp, 0x0000000100000002U);
    EXPECT_EQ(leader->image.width, 10U);
    EXPECT_EQ(leader->image.height, 3U);
    EXPECT_EQ(leader->image.bytes, 45U + 6U);
}

TEST(GvspLeader, RoundsTheImageUpToWholeBytes) {
    auto const leader = gvsp::parse_leader(bytes({0, 0,    0, 1,              // image
                                                  0, 0,    0, 0, 0, 0, 0, 0,  // timestamp
                                                  1, 0x0C, 0, 6,              // Mono12Packed
                                                  0, 0,    0, 3, 0, 0, 0, 1,  // size
                                                  0, 0,    0, 0, 0, 0, 0, 0,  // offset
                                                  0, 0,    0, 9}));           // padding of the image, not of a line
    ASSERT_TRUE(leader);
    EXPECT_EQ(leader->image.bytes, 5U);
}

TEST(GvspLeader, OfChunkDataDescribesNoImage) {
    auto const leader = gvsp::parse_leader(bytes({0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 9}));
    ASSERT_TRUE(leader);
    EXPECT_EQ(leader->timestamp, 9U);
    EXPECT_TRUE(leader->chunk_data);
    EXPECT_EQ(leader->image, gvsp::image_size{});
}

TEST(GvspLeader, OfExtendedChunkDataDescribesTheImage) {
    auto const leader = gvsp::parse_leader(bytes({0, 0,    0, 5,               // extended chunk data
                                                  0, 0,    0, 0,  0, 0, 0, 9,  // timestamp
                                                  1, 0x10, 0, 5,               // Mono12
                                                  0, 0,    0, 10, 0, 0, 0, 3,  // size
                                                  0, 0,    0, 0,  0, 0, 0, 0,  // offset
                                                  0, 0,    0, 0}));            // padding
    ASSERT_TRUE(leader);
    EXPECT_FALSE(leader->chunk_data);
    EXPECT_EQ(leader->image, (gvsp::image_size{10, 3, 60}));
}

TEST(GvspLeader, OfAnotherPayloadIsNoImage) {
    auto const leader = gvsp::parse_leader(bytes({0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 9}));  // raw data
    ASSERT_TRUE(leader);
    EXPECT_FALSE(leader->chunk_data);
    EXPECT_EQ(leader->image, gvsp::image_size{});
}

TEST(GvspLeader, ThatIsTooShortIsRejected) {
    EXPECT_FALSE(gvsp::parse_leader(bytes({0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0})));
    std::vector<std::byte> const image(35, std::byte{1});
    auto cut = image;
    cut[2] = std::byte{0};
    EXPECT_FALSE(gvsp::parse_leader(cut));
}

TEST(GvspLeader, OfAHugeImageDoesNotOverflow) {
    std::vector<std::byte> content(36, std::byte{0xFF});
    content[2] = std::byte{0};
    content[3] = std::byte{1};
    auto const leader = gvsp::parse_leader(content);
    ASSERT_TRUE(leader);
    EXPECT_EQ(leader->image.bytes, std::numeric_limits<std::size_t>::max());
}

TEST(GvspBlocks, ShortIdsWrapToOne) {
    EXPECT_EQ(gvsp::blocks_between(65'535, 1, false), 1);
    EXPECT_EQ(gvsp::blocks_between(1, 65'535, false), -1);
    EXPECT_EQ(gvsp::blocks_between(65'530, 4, false), 9);
    EXPECT_EQ(gvsp::blocks_between(7, 7, false), 0);
}

TEST(GvspBlocks, ShortIdsAreWithinHalfOfTheirRange) {
    EXPECT_EQ(gvsp::blocks_between(1, 32'768, false), 32'767);
    EXPECT_EQ(gvsp::blocks_between(1, 32'769, false), -32'767);
    EXPECT_EQ(gvsp::blocks_between(32'768, 1, false), -32'767);
    EXPECT_EQ(gvsp::blocks_between(32'769, 1, false), 32'767);
}

TEST(GvspBlocks, ExtendedIdsDoNotWrap) {
    EXPECT_EQ(gvsp::blocks_between(65'535, 1, true), -65'534);
    EXPECT_EQ(gvsp::blocks_between(0xFFFFFFFFFFFFFFFF, 1, true), 2);
}

TEST(GvspResend, RequestWithShortIds) {
    EXPECT_EQ(encoded({false, 0x1234, 0x0A0B0C, 0x0D0E0F}, 0x5678),
              bytes({0x42, 0, 0, 0x40, 0, 12, 0x56, 0x78, 0, 0, 0x12, 0x34, 0, 0x0A, 0x0B, 0x0C, 0, 0x0D, 0x0E, 0x0F}));
}

TEST(GvspResend, RequestWithExtendedIds) {
    EXPECT_EQ(
        encoded({true, 0x0102030405060708, 0x090A0B0C, 0x0D0E0F10}, 1),
        bytes({0x42, 0x10, 0, 0x40, 0, 20, 0, 1, 0, 0, 0, 0, 9, 10, 11, 12, 13, 14, 15, 16, 1, 2, 3, 4, 5, 6, 7, 8}));
}
