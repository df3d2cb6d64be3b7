// SPDX-License-Identifier: MIT
#include "protocol/gvcp_packet.hpp"

#include <gmock/gmock.h>

#include "bytes.hpp"

namespace gvcp = camsim::gvcp;
using testing::ElementsAre;

TEST(GvcpCommand, HasItsHeaderInEightBytes) {
    auto const header = gvcp::decode_command_header(bytes({0x42, 0x11, 0x00, 0x84, 0x00, 0x08, 0xAB, 0xCD}));
    ASSERT_TRUE(header);
    EXPECT_EQ(header->flags, 0x11);
    EXPECT_TRUE(header->acknowledge_required());
    EXPECT_EQ(header->number, 0x0084);
    EXPECT_EQ(header->length, 8);
    EXPECT_EQ(header->request_id, 0xABCD);
}

TEST(GvcpCommand, IsRejectedWithAnotherKeyOrAnIncompleteHeader) {
    EXPECT_FALSE(gvcp::decode_command_header(bytes({0x00, 0x00, 0x00, 0x81, 0x00, 0x04, 0x00, 0x01})));
    EXPECT_FALSE(gvcp::decode_command_header(bytes({0x42, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00})));
    EXPECT_FALSE(gvcp::decode_command_header({}));
}

TEST(GvcpCommand, HasALengthThatMatchesTheDatagram) {
    std::vector<std::byte> const datagram(8 + 12);
    EXPECT_TRUE(gvcp::has_consistent_length({.length = 12}, datagram));
    EXPECT_FALSE(gvcp::has_consistent_length({.length = 8}, datagram));
    EXPECT_FALSE(gvcp::has_consistent_length({.length = 16}, datagram));
    EXPECT_FALSE(gvcp::has_consistent_length({.length = 6}, std::vector<std::byte>(8 + 6)));
    EXPECT_TRUE(gvcp::has_consistent_length({.length = 540}, std::vector<std::byte>(8 + 540)));
    EXPECT_FALSE(gvcp::has_consistent_length({.length = 544}, std::vector<std::byte>(8 + 544)));
}

TEST(GvcpReadreg, ListsAddresses) {
    auto const addresses = gvcp::decode_readreg(bytes({0x00, 0x00, 0x0A, 0x00, 0x00, 0x01, 0x00, 0x04}));
    ASSERT_TRUE(addresses);
    EXPECT_THAT(*addresses, ElementsAre(0x0A00, 0x10004));
    EXPECT_FALSE(gvcp::decode_readreg({}));
    EXPECT_FALSE(gvcp::decode_readreg(bytes({0, 0, 0})));
}

TEST(GvcpWritereg, PairsAddressesWithValues) {
    auto const writes = gvcp::decode_writereg(
        bytes({0x00, 0x00, 0x0D, 0x04, 0x80, 0x00, 0x05, 0xDC, 0x00, 0x00, 0x0A, 0x00, 0x00, 0x00, 0x00, 0x02}));
    ASSERT_TRUE(writes);
    ASSERT_EQ(writes->size(), 2U);
    EXPECT_EQ(writes->at(0).address, 0x0D04U);
    EXPECT_EQ(writes->at(0).value, 0x800005DCU);
    EXPECT_EQ(writes->at(1).value, 2U);
    EXPECT_FALSE(gvcp::decode_writereg(bytes({0, 0, 0x0A, 0})));
}

TEST(GvcpReadmem, HasAnAddressAndACount) {
    auto const read = gvcp::decode_readmem(bytes({0x00, 0x10, 0x00, 0x00, 0x00, 0x00, 0x02, 0x18}));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->address, 0x100000U);
    EXPECT_EQ(read->count, 536);
    EXPECT_FALSE(gvcp::decode_readmem(bytes({0, 0x10, 0, 0})));
}

TEST(GvcpWritemem, HasAnAddressAndData) {
    auto const datagram = bytes({0x00, 0x00, 0x00, 0xE8, 'l', 'e', 'f', 't'});
    auto const write = gvcp::decode_writemem(datagram);
    ASSERT_TRUE(write);
    EXPECT_EQ(write->address, 0xE8U);
    EXPECT_THAT(write->data, ElementsAre(std::byte{'l'}, std::byte{'e'}, std::byte{'f'}, std::byte{'t'}));
    EXPECT_FALSE(gvcp::decode_writemem(bytes({0, 0, 0, 0xE8})));
}

TEST(GvcpForceip, NamesADeviceAndItsAddresses) {
    std::vector<std::byte> payload(56);
    auto const put = [&](std::size_t at, std::vector<std::byte> const& part) {
        std::ranges::copy(part, payload.begin() + static_cast<std::ptrdiff_t>(at));
    };
    put(2, bytes({0x00, 0x0C, 0xDF, 0x12, 0x34, 0x56}));
    put(20, bytes({192, 168, 1, 9}));
    put(36, bytes({255, 255, 255, 0}));
    put(52, bytes({192, 168, 1, 1}));
    auto const force = gvcp::decode_forceip(payload);
    ASSERT_TRUE(force);
    EXPECT_EQ(force->mac, 0x000CDF123456U);
    EXPECT_EQ(force->address, 0xC0A80109U);
    EXPECT_EQ(force->subnet_mask, 0xFFFFFF00U);
    EXPECT_EQ(force->gateway, 0xC0A80101U);
    EXPECT_FALSE(gvcp::decode_forceip(std::vector<std::byte>(52)));
}

TEST(GvcpPacketresend, HasStandardIdsInTwelveBytes) {
    auto const resend = gvcp::decode_packetresend(
        false, bytes({0x00, 0x01, 0x12, 0x34, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00, 0x09}));
    ASSERT_TRUE(resend);
    EXPECT_EQ(resend->stream_channel, 1);
    EXPECT_EQ(resend->block_id, 0x1234U);
    EXPECT_EQ(resend->first_packet, 7U);
    EXPECT_EQ(resend->last_packet, 9U);
}

TEST(GvcpPacketresend, ExtendsToTheEndOfTheBlockWithTheMaximumPacketId) {
    auto const standard =
        gvcp::decode_packetresend(false, bytes({0, 0, 0, 1, 0x00, 0x00, 0x00, 0x02, 0x00, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(standard->last_packet, UINT32_MAX);
}

TEST(GvcpPacketresend, HasExtendedIdsInTwentyBytes) {
    auto const payload = bytes({0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x07, 0x01, 0x00,
                                0x00, 0x09, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88});
    auto const resend = gvcp::decode_packetresend(true, payload);
    ASSERT_TRUE(resend);
    EXPECT_EQ(resend->block_id, 0x1122334455667788U);
    EXPECT_EQ(resend->first_packet, 0x01000007U);
    EXPECT_EQ(resend->last_packet, 0x01000009U);
    EXPECT_FALSE(gvcp::decode_packetresend(false, payload));
    EXPECT_FALSE(gvcp::decode_packetresend(true, bytes({0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3})));
}

TEST(GvcpAcknowledge, CarriesStatusNumberLengthAndRequestId) {
    auto const payload = gvcp::encode_write_index_payload(3);
    EXPECT_EQ(gvcp::encode_acknowledge(gvcp::status::write_protect, 0x0082, 0x1234, payload),
              bytes({0x80, 0x04, 0x00, 0x83, 0x00, 0x04, 0x12, 0x34, 0x00, 0x00, 0x00, 0x03}));
}

TEST(GvcpAcknowledge, OfAReadCarriesValuesOrAddressAndData) {
    std::vector<std::uint32_t> const values{0x00020000, 0x80000001};
    EXPECT_EQ(gvcp::encode_readreg_payload(values), bytes({0x00, 0x02, 0x00, 0x00, 0x80, 0x00, 0x00, 0x01}));
    EXPECT_EQ(gvcp::encode_readmem_payload(0xD8, bytes({'C', 'S', '0', '1'})),
              bytes({0x00, 0x00, 0x00, 0xD8, 'C', 'S', '0', '1'}));
}

TEST(GvcpPending, CarriesTheTimeToCompletion) {
    EXPECT_EQ(gvcp::encode_pending(0x0102, 300),
              bytes({0x00, 0x00, 0x00, 0x89, 0x00, 0x04, 0x01, 0x02, 0x00, 0x00, 0x01, 0x2C}));
}

TEST(GvcpApplication, EncodesCommandsAndDecodesAcknowledges) {
    gvcp::register_write const write{0x0A00, 2};
    auto const payload = gvcp::encode_writereg_payload(std::span(&write, 1));
    EXPECT_EQ(gvcp::encode_command({0x01, 0x0082, 0, 7}, payload),
              bytes({0x42, 0x01, 0x00, 0x82, 0x00, 0x08, 0x00, 0x07, 0x00, 0x00, 0x0A, 0x00, 0x00, 0x00, 0x00, 0x02}));
    auto const acknowledge = gvcp::decode_acknowledge_header(bytes({0x80, 0x06, 0x00, 0x83, 0x00, 0x04, 0x00, 0x07}));
    ASSERT_TRUE(acknowledge);
    EXPECT_EQ(acknowledge->status, gvcp::status::access_denied);
    EXPECT_EQ(acknowledge->number, 0x0083);
    EXPECT_EQ(acknowledge->acknowledge_id, 7);
}
