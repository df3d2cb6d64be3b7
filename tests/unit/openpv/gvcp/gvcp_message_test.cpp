// SPDX-License-Identifier: MIT
#include "gvcp/gvcp_message.hpp"

#include <algorithm>
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace gvcp = openpv::gvcp;
using bytes = std::vector<std::byte>;

namespace {

bytes make_bytes(std::initializer_list<unsigned> values) {
    bytes made;
    for (unsigned const value : values) {
        made.push_back(static_cast<std::byte>(value));
    }
    return made;
}

void put_text(bytes& message, std::size_t offset, std::string_view text) {
    std::ranges::transform(text, message.begin() + static_cast<std::ptrdiff_t>(offset),
                           [](char character) { return static_cast<std::byte>(character); });
}

/// Acknowledge of discovery 0x1234: header of 8 bytes, then 248 bytes of identity, as GigE Vision defines them.
bytes discovery_ack() {
    bytes message = make_bytes({0x00, 0x00, 0x00, 0x03, 0x00, 0xF8, 0x12, 0x34});
    message.resize(8 + 248);
    auto const mac = make_bytes({0x00, 0x11, 0x1c, 0xf5, 0x41, 0x7e});
    std::ranges::copy(mac, message.begin() + 8 + 0x0A);
    put_text(message, 8 + 0x48, "JAI Corporation");
    put_text(message, 8 + 0x68, "GO-5100M-PGE");
    put_text(message, 8 + 0x88, "1.2.3");
    put_text(message, 8 + 0xD8, "U500123");
    put_text(message, 8 + 0xE8, "left");
    return message;
}

}  // namespace

TEST(GvcpDiscovery, CommandHasEightBytesAndRequestsAnAcknowledge) {
    EXPECT_EQ(gvcp::make_discovery(0x1234), make_bytes({0x42, 0x01, 0x00, 0x02, 0x00, 0x00, 0x12, 0x34}));
}

TEST(GvcpDiscovery, CommandMayAllowABroadcastAcknowledge) {
    EXPECT_EQ(gvcp::make_discovery(1, gvcp::ack_delivery::broadcast),
              make_bytes({0x42, 0x11, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01}));
}

TEST(GvcpDiscovery, ReadsACamerasAddressesAndHowItGetsThem) {
    bytes message = discovery_ack();
    auto const put = [&](std::size_t offset, std::initializer_list<unsigned> values) {
        std::ranges::copy(make_bytes(values), message.begin() + 8 + static_cast<std::ptrdiff_t>(offset));
    };
    put(0x00, {0, 2, 0, 1});
    put(0x14, {0, 0, 0, 5});
    put(0x24, {10, 0, 0, 5});
    put(0x34, {255, 255, 255, 0});
    put(0x44, {10, 0, 0, 1});
    auto const identity = gvcp::parse_discovery_ack(message, 0x1234);
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->ip, (gvcp::ip_settings{{0x0A000005}, {0xFFFFFF00}, {0x0A000001}}));
    EXPECT_EQ(identity->ip_methods, gvcp::ip_method::persistent | gvcp::ip_method::link_local);
    EXPECT_EQ(identity->version_major, 2);
    EXPECT_EQ(identity->version_minor, 1);
}

TEST(GvcpForceIp, NamesTheCameraAndItsAddressesAtTheOffsetsOfTheStandard) {
    auto const message = gvcp::make_force_ip(0x1234, 0x00111cf5417e, {{0x0A000005}, {0xFFFFFF00}, {0x0A000001}});
    bytes expected = make_bytes({0x42, 0x11, 0x00, 0x04, 0x00, 56, 0x12, 0x34});
    expected.resize(8 + 56);
    auto const put = [&](std::size_t offset, std::initializer_list<unsigned> values) {
        std::ranges::copy(make_bytes(values), expected.begin() + 8 + static_cast<std::ptrdiff_t>(offset));
    };
    put(2, {0x00, 0x11, 0x1c, 0xf5, 0x41, 0x7e});
    put(20, {10, 0, 0, 5});
    put(36, {255, 255, 255, 0});
    put(52, {10, 0, 0, 1});
    EXPECT_EQ(message, expected);
}

TEST(GvcpForceIp, HasAllBytesOfTheMacAddress) {
    auto const message = gvcp::make_force_ip(1, 0xa1b2c3d4e5f6, {});
    EXPECT_EQ(bytes(message.begin() + 8, message.begin() + 16), make_bytes({0, 0, 0xa1, 0xb2, 0xc3, 0xd4, 0xe5, 0xf6}));
}

TEST(GvcpAction, HasThreeKeys) {
    EXPECT_EQ(gvcp::make_action(7, {1, 2, 3}, std::nullopt),
              make_bytes({0x42, 0x01, 0x01, 0x00, 0, 12, 0, 7, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3}));
}

TEST(GvcpAction, HasATimeIfItIsScheduled) {
    EXPECT_EQ(
        gvcp::make_action(7, {1, 2, 3}, 0x0102030405060708U),
        make_bytes({0x42, 0x81, 0x01, 0x00, 0, 20, 0, 7, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(GvcpDiscovery, ReadsACamerasIdentity) {
    auto const identity = gvcp::parse_discovery_ack(discovery_ack(), 0x1234);
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->mac, 0x00111cf5417eU);
    EXPECT_EQ(identity->vendor, "JAI Corporation");
    EXPECT_EQ(identity->model, "GO-5100M-PGE");
    EXPECT_EQ(identity->version, "1.2.3");
    EXPECT_EQ(identity->serial, "U500123");
    EXPECT_EQ(identity->user_name, "left");
}

TEST(GvcpDiscovery, AcceptsTextThatFillsItsField) {
    auto message = discovery_ack();
    put_text(message, 8 + 0xD8, "0123456789abcdef");
    put_text(message, 8 + 0xE8, "ABCDEFGHIJKLMNOP");
    std::string const longest(32, 'x');
    put_text(message, 8 + 0x48, longest);
    put_text(message, 8 + 0x68, "y" + longest.substr(1));
    put_text(message, 8 + 0x88, "z" + longest.substr(1));
    auto const identity = gvcp::parse_discovery_ack(message, 0x1234);
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->serial, "0123456789abcdef");
    EXPECT_EQ(identity->user_name, "ABCDEFGHIJKLMNOP");
    EXPECT_EQ(identity->vendor, longest);
    EXPECT_EQ(identity->model, "y" + longest.substr(1));
    EXPECT_EQ(identity->version, "z" + longest.substr(1));
}

TEST(GvcpDiscovery, ReplacesUnprintableCharacters) {
    auto message = discovery_ack();
    put_text(message, 8 + 0x68, "GO\n\x1b[2J\xff");
    EXPECT_EQ(gvcp::parse_discovery_ack(message, 0x1234)->model, "GO??[2J?-PGE");
}

TEST(GvcpDiscovery, IgnoresTheAcknowledgeOfAnotherRequest) {
    EXPECT_FALSE(gvcp::parse_discovery_ack(discovery_ack(), 0x1235));
}

TEST(GvcpDiscovery, IgnoresTheAcknowledgeOfAnotherCommand) {
    auto message = discovery_ack();
    message[3] = std::byte{0x85};
    EXPECT_FALSE(gvcp::parse_discovery_ack(message, 0x1234));
}

TEST(GvcpDiscovery, IgnoresARefusal) {
    auto message = discovery_ack();
    message[0] = std::byte{0x80};
    EXPECT_FALSE(gvcp::parse_discovery_ack(message, 0x1234));
}

TEST(GvcpDiscovery, IgnoresTruncatedAcknowledges) {
    auto const message = discovery_ack();
    for (std::size_t length = 0; length < message.size(); ++length) {
        EXPECT_FALSE(gvcp::parse_discovery_ack(std::span(message).first(length), 0x1234)) << length;
    }
}

namespace {

bytes to_bytes(gvcp::command command, std::uint16_t request) {
    command.set_request(request);
    return {command.bytes().begin(), command.bytes().end()};
}

}  // namespace

TEST(GvcpCommand, ReadsOneRegister) {
    EXPECT_EQ(to_bytes(gvcp::make_read_register(0x00000A00), 7),
              make_bytes({0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, 0x07, 0x00, 0x00, 0x0A, 0x00}));
}

TEST(GvcpCommand, WritesOneRegister) {
    EXPECT_EQ(to_bytes(gvcp::make_write_register(0x00000A00, 2), 0x1234),
              make_bytes({0x42, 0x01, 0x00, 0x82, 0x00, 0x08, 0x12, 0x34, 0x00, 0x00, 0x0A, 0x00, 0, 0, 0, 2}));
}

TEST(GvcpCommand, ReadsMemory) {
    EXPECT_EQ(to_bytes(gvcp::make_read_memory(0x200, 512), 7),
              make_bytes({0x42, 0x01, 0x00, 0x84, 0x00, 0x08, 0x00, 0x07, 0x00, 0x00, 0x02, 0x00, 0, 0, 2, 0}));
}

TEST(GvcpCommand, WritesMemory) {
    EXPECT_EQ(to_bytes(gvcp::make_write_memory(0xE8, make_bytes({1, 2, 3, 4})), 7),
              make_bytes({0x42, 0x01, 0x00, 0x86, 0x00, 0x08, 0x00, 0x07, 0x00, 0x00, 0x00, 0xE8, 1, 2, 3, 4}));
}

TEST(GvcpCommand, FillsTheLargestPacketOfTheStandard) {
    constexpr std::size_t ip_and_udp_headers = 28;
    bytes const memory(gvcp::max_memory_bytes);
    EXPECT_EQ(to_bytes(gvcp::make_write_memory(0, memory), 7).size() + ip_and_udp_headers, 576U);
}

TEST(GvcpAcknowledge, IsParsed) {
    auto const message = make_bytes({0x80, 0x06, 0x00, 0x81, 0x00, 0x04, 0x00, 0x07, 0x12, 0x34, 0x56, 0x78});
    auto const ack = gvcp::parse_acknowledge(message);
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->status, 0x8006);
    EXPECT_EQ(ack->code, 0x81);
    EXPECT_EQ(ack->request, 7);
    EXPECT_EQ(gvcp::parse_register(ack->payload), 0x12345678U);
}

TEST(GvcpAcknowledge, MayBeOnlyAHeader) {
    auto const message = make_bytes({0, 0, 0, 0x83, 0, 0, 0, 7});
    auto const ack = gvcp::parse_acknowledge(message);
    ASSERT_TRUE(ack);
    EXPECT_TRUE(ack->payload.empty());
}

TEST(GvcpAcknowledge, EndsWhereItsHeaderSpecifies) {
    auto const message = make_bytes({0, 0, 0, 0x81, 0, 4, 0, 7, 0, 0, 0, 1, 0xFF, 0xFF});
    auto const ack = gvcp::parse_acknowledge(message);
    ASSERT_TRUE(ack);
    EXPECT_EQ(gvcp::parse_register(ack->payload), 1U);
}

TEST(GvcpAcknowledge, IsInvalidIfItIsShorterThanItsHeaderSpecifies) {
    EXPECT_FALSE(gvcp::parse_acknowledge(make_bytes({0, 0, 0, 0x81, 0, 4, 0, 7, 0, 0, 1})));
    EXPECT_FALSE(gvcp::parse_acknowledge(make_bytes({0, 0, 0, 0x81, 0, 0, 0})));
}

TEST(GvcpAcknowledge, IsARegisterOnlyWithExactlyOneValue) {
    EXPECT_FALSE(gvcp::parse_register({}));
    EXPECT_FALSE(gvcp::parse_register(make_bytes({0, 0, 0, 1, 0, 0, 0, 2})));
}

TEST(GvcpAcknowledge, IsMemoryOnlyOfTheAddressAndLengthThatWereRequested) {
    auto const payload = make_bytes({0, 0, 2, 0, 1, 2, 3, 4});
    auto const memory = gvcp::parse_memory(payload, 0x200, 4);
    ASSERT_TRUE(memory);
    EXPECT_EQ(bytes(memory->begin(), memory->end()), make_bytes({1, 2, 3, 4}));
    EXPECT_FALSE(gvcp::parse_memory(payload, 0x204, 4));
    EXPECT_FALSE(gvcp::parse_memory(payload, 0x200, 8));
    EXPECT_FALSE(gvcp::parse_memory(make_bytes({0, 0}), 0x200, 4));
}

TEST(GvcpAcknowledge, HasAPendingTimeInMilliseconds) {
    EXPECT_EQ(gvcp::parse_pending_time(make_bytes({0, 0, 1, 0})), 256);
    EXPECT_FALSE(gvcp::parse_pending_time(make_bytes({0, 0, 1})));
}

TEST(GvcpStatus, IsNamedAndNumbered) {
    EXPECT_EQ(gvcp::status_text(0x8006), "access is denied (status 0x8006)");
    EXPECT_EQ(gvcp::status_text(0x8FFF), "status 0x8FFF");
    EXPECT_EQ(gvcp::status_text(0x12), "status 0x0012");
}

RC_GTEST_PROP(GvcpMessage, AnyBytesAreParsedSafely, (std::vector<uint8_t> raw)) {
    auto const message = std::as_bytes(std::span(raw));
    RC_ASSERT(!gvcp::parse_acknowledge(message) || raw.size() >= 8);
    RC_ASSERT(!gvcp::parse_discovery_ack(message, 7) || raw.size() >= 256);
}

TEST(GvcpRequestId, WrapsToOne) {
    EXPECT_EQ(gvcp::next_request_id(0), 1);
    EXPECT_EQ(gvcp::next_request_id(0x1234), 0x1235);
    EXPECT_EQ(gvcp::next_request_id(0xFFFE), 0xFFFF);
    EXPECT_EQ(gvcp::next_request_id(0xFFFF), 1);
}
