// SPDX-License-Identifier: MIT
#include "protocol/gvsp_packet.hpp"

#include <gtest/gtest.h>

#include <array>

#include "bytes.hpp"

namespace gvsp = camsim::gvsp;

namespace {

template <typename encoder>
std::vector<std::byte> encoded(encoder encode) {
    std::array<std::byte, 64> memory;
    memory.fill(std::byte{0xEE});  // encoders must not rely on zeroed memory
    std::size_t const size = encode(std::span<std::byte>(memory));
    return {memory.begin(), memory.begin() + static_cast<std::ptrdiff_t>(size)};
}

}  // namespace

TEST(GvspHeader, TakesEightBytesWithStandardIds) {
    gvsp::packet_header const header{
        0, 0xFFFF, 0x1234, gvsp::packet_format::payload, 0xABCDEF, gvsp::id_mode::standard};
    auto const expected = bytes({0x00, 0x00, 0x12, 0x34, 0x03, 0xAB, 0xCD, 0xEF});
    EXPECT_EQ(encoded([&](auto out) { return gvsp::encode_header(header, out); }), expected);
}

TEST(GvspHeader, TakesTwentyBytesWithExtendedIds) {
    gvsp::packet_header const header{
        0, 0x0001, 0x1122334455667788, gvsp::packet_format::trailer, 0x01020304, gvsp::id_mode::extended};
    auto const expected = bytes({0x00, 0x00, 0x00, 0x01, 0x82, 0x00, 0x00, 0x00, 0x11, 0x22,
                                 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x01, 0x02, 0x03, 0x04});
    EXPECT_EQ(encoded([&](auto out) { return gvsp::encode_header(header, out); }), expected);
}

TEST(GvspHeader, IsDecodedInBothIdModes) {
    auto const standard = gvsp::decode_header(bytes({0x01, 0x00, 0xFF, 0xFF, 0x01, 0x00, 0x00, 0x00}));
    ASSERT_TRUE(standard);
    EXPECT_EQ(standard->status, 0x0100);
    EXPECT_EQ(standard->block_id, 0xFFFFU);
    EXPECT_EQ(standard->format, gvsp::packet_format::leader);
    EXPECT_EQ(standard->ids, gvsp::id_mode::standard);
    auto const extended = gvsp::decode_header(bytes({0x80, 0x0C, 0x00, 0x00, 0x83, 0x00, 0x00, 0x00, 0x00, 0x00,
                                                     0x00, 0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x01, 0x00}));
    ASSERT_TRUE(extended);
    EXPECT_EQ(extended->status, 0x800C);
    EXPECT_EQ(extended->block_id, 0x0000000100000002U);
    EXPECT_EQ(extended->packet_id, 0x100U);
    EXPECT_EQ(extended->ids, gvsp::id_mode::extended);
    EXPECT_FALSE(gvsp::decode_header(bytes({0, 0, 0, 1, 0x83, 0, 0, 0, 0, 0, 0, 0})));
    EXPECT_FALSE(gvsp::decode_header(bytes({0, 0, 0, 1, 3, 0, 0})));
}

TEST(GvspLeader, DescribesAnImageIn36Bytes) {
    gvsp::image_leader const leader{0x0102030405060708, camsim::pixel_format::mono12_packed, {1280, 1024, 8, 2}};
    auto const expected = bytes({0x00, 0x00, 0x00, 0x01, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,
                                 0x01, 0x0C, 0x00, 0x06, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 0x04, 0x00,
                                 0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00});
    EXPECT_EQ(encoded([&](auto out) { return gvsp::encode_image_leader(leader, out); }), expected);
    auto const decoded = gvsp::decode_image_leader(expected);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->timestamp, 0x0102030405060708U);
    EXPECT_EQ(decoded->format, camsim::pixel_format::mono12_packed);
    EXPECT_EQ(decoded->area, leader.area);
}

TEST(GvspTrailer, RepeatsTheHeightInEightBytes) {
    auto const expected = bytes({0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x04, 0x00});
    EXPECT_EQ(encoded([](auto out) { return gvsp::encode_image_trailer({.height = 1024}, out); }), expected);
    EXPECT_EQ(gvsp::decode_image_trailer(expected)->height, 1024U);
    EXPECT_FALSE(gvsp::decode_image_trailer(bytes({0, 0, 0, 2, 0, 0, 4, 0})));
}

TEST(GvspLeader, HasAPayloadTypeForChunks) {
    gvsp::image_leader const leader{
        1, camsim::pixel_format::mono8, {16, 16, 0, 0}, gvsp::payload_type::image_with_chunks};
    auto const data = encoded([&](auto out) { return gvsp::encode_image_leader(leader, out); });
    EXPECT_EQ((std::vector(data.begin(), data.begin() + 4)), bytes({0x00, 0x00, 0x40, 0x01}));
    EXPECT_EQ(data.size(), 36U);
    EXPECT_EQ(gvsp::decode_image_leader(data)->payload, gvsp::payload_type::image_with_chunks);
}

TEST(GvspLeader, OfChunkDataHasOnlyTypeAndTimestamp) {
    gvsp::image_leader const leader{
        0x0102030405060708, camsim::pixel_format::mono8, {16, 16, 0, 0}, gvsp::payload_type::chunk_data};
    auto const expected = bytes({0x00, 0x00, 0x00, 0x04, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08});
    EXPECT_EQ(encoded([&](auto out) { return gvsp::encode_image_leader(leader, out); }), expected);
    auto const decoded = gvsp::decode_image_leader(expected);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->payload, gvsp::payload_type::chunk_data);
    EXPECT_EQ(decoded->timestamp, 0x0102030405060708U);
    EXPECT_FALSE(gvsp::decode_image_leader(std::span(expected).first(11)));
}

TEST(GvspTrailer, CarriesPayloadSizeAndLayoutOfChunks) {
    gvsp::image_trailer const trailer{gvsp::payload_type::image_with_chunks, 1024, 0x14003C, 0xA1B2C3D4};
    struct row {
        gvsp::payload_type payload;
        std::vector<std::byte> expected;
        std::uint32_t height;
        std::uint32_t layout_id;
    };
    for (row const& one :
         {row{gvsp::payload_type::image_with_chunks,
              bytes({0x00, 0x00, 0x40, 0x01, 0x00, 0x00, 0x04, 0x00, 0x00, 0x14, 0x00, 0x3C, 0xA1, 0xB2, 0xC3, 0xD4}),
              1024, 0xA1B2C3D4},
          row{gvsp::payload_type::extended_chunk_data,
              bytes({0x00, 0x00, 0x00, 0x05, 0x00, 0x14, 0x00, 0x3C, 0x00, 0x00, 0x04, 0x00, 0xA1, 0xB2, 0xC3, 0xD4}),
              1024, 0xA1B2C3D4},
          row{gvsp::payload_type::chunk_data, bytes({0x00, 0x00, 0x00, 0x04, 0x00, 0x14, 0x00, 0x3C}), 0, 0}}) {
        gvsp::image_trailer sent = trailer;
        sent.payload = one.payload;
        EXPECT_EQ(encoded([&](auto out) { return gvsp::encode_image_trailer(sent, out); }), one.expected);
        auto const decoded = gvsp::decode_image_trailer(one.expected);
        ASSERT_TRUE(decoded);
        EXPECT_EQ(decoded->payload, one.payload);
        EXPECT_EQ(decoded->payload_bytes, 0x14003CU);
        EXPECT_EQ(decoded->height, one.height);
        EXPECT_EQ(decoded->layout_id, one.layout_id);
        EXPECT_FALSE(gvsp::decode_image_trailer(std::span(one.expected).first(one.expected.size() - 1)));
    }
}

TEST(GvspBlockId, SkipsZeroWhenStandardIdsWrap) {
    EXPECT_EQ(gvsp::next_block_id(1, gvsp::id_mode::standard), 2U);
    EXPECT_EQ(gvsp::next_block_id(65535, gvsp::id_mode::standard), 1U);
    EXPECT_EQ(gvsp::next_block_id(65535, gvsp::id_mode::extended), 65536U);
}
