#include "gvcp_message.hpp"

#include <algorithm>
#include <array>
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

/// A camera's answer to discovery 0x1234, by the standard's table: header of 8 bytes, then 248 bytes of identity.
bytes discovery_answer() {
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

TEST(GvcpDiscovery, AsksWithAnEightByteMessageThatWantsAnAnswer) {
    EXPECT_EQ(gvcp::make_discovery(0x1234), make_bytes({0x42, 0x01, 0x00, 0x02, 0x00, 0x00, 0x12, 0x34}));
}

TEST(GvcpDiscovery, ReadsACamerasIdentity) {
    auto const identity = gvcp::read_discovery_answer(discovery_answer(), 0x1234);
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->mac, 0x00111cf5417eU);
    EXPECT_EQ(identity->vendor, "JAI Corporation");
    EXPECT_EQ(identity->model, "GO-5100M-PGE");
    EXPECT_EQ(identity->version, "1.2.3");
    EXPECT_EQ(identity->serial, "U500123");
    EXPECT_EQ(identity->user_name, "left");
}

TEST(GvcpDiscovery, EndsATextThatFillsItsFieldWithTheField) {
    auto message = discovery_answer();
    put_text(message, 8 + 0xD8, "0123456789abcdef");
    EXPECT_EQ(gvcp::read_discovery_answer(message, 0x1234)->serial, "0123456789abcdef");
}

TEST(GvcpDiscovery, ShowsAQuestionMarkForWhatCannotBePrinted) {
    auto message = discovery_answer();
    put_text(message, 8 + 0x68, "GO\n\x1b[2J\xff");
    EXPECT_EQ(gvcp::read_discovery_answer(message, 0x1234)->model, "GO??[2J?-PGE");
}

TEST(GvcpDiscovery, IgnoresTheAnswerToAnotherRequest) {
    EXPECT_FALSE(gvcp::read_discovery_answer(discovery_answer(), 0x1235));
}

TEST(GvcpDiscovery, IgnoresARefusal) {
    auto message = discovery_answer();
    message[0] = std::byte{0x80};
    EXPECT_FALSE(gvcp::read_discovery_answer(message, 0x1234));
}

TEST(GvcpDiscovery, IgnoresEveryAnswerThatWasCutShort) {
    auto const message = discovery_answer();
    for (std::size_t length = 0; length < message.size(); ++length) {
        EXPECT_FALSE(gvcp::read_discovery_answer(std::span(message).first(length), 0x1234)) << length;
    }
}

TEST(GvcpRegister, AsksForOneAddress) {
    EXPECT_EQ(gvcp::make_read_register(7, 0x00000A00),
              make_bytes({0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, 0x07, 0x00, 0x00, 0x0A, 0x00}));
}

TEST(GvcpRegister, ReadsTheValue) {
    auto const message = make_bytes({0x00, 0x00, 0x00, 0x81, 0x00, 0x04, 0x00, 0x07, 0x12, 0x34, 0x56, 0x78});
    auto const answer = gvcp::read_register_answer(message, 7);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 0);
    EXPECT_EQ(answer->value, 0x12345678U);
}

TEST(GvcpRegister, TellsARefusalByItsStatus) {
    auto const answer = gvcp::read_register_answer(make_bytes({0x80, 0x06, 0x00, 0x81, 0x00, 0x00, 0x00, 0x07}), 7);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 0x8006);
}

TEST(GvcpRegister, IgnoresASuccessWithoutExactlyOneValue) {
    EXPECT_FALSE(gvcp::read_register_answer(make_bytes({0, 0, 0, 0x81, 0, 0, 0, 7}), 7));
    EXPECT_FALSE(gvcp::read_register_answer(make_bytes({0, 0, 0, 0x81, 0, 8, 0, 7, 0, 0, 0, 1, 0, 0, 0, 2}), 7));
    EXPECT_FALSE(gvcp::read_register_answer(make_bytes({0, 0, 0, 0x81, 0, 4, 0, 7, 0, 0, 1}), 7));
}

RC_GTEST_PROP(GvcpMessage, AnyBytesAreReadWithoutHarm, (std::vector<uint8_t> raw)) {
    auto const message = std::as_bytes(std::span(raw));
    auto const answer = gvcp::read_register_answer(message, 7);
    RC_ASSERT(!answer || raw.size() >= 8);
    RC_ASSERT(!gvcp::read_discovery_answer(message, 7) || raw.size() >= 256);
}

TEST(GvcpRequestNumber, GoesRoundWithoutZero) {
    EXPECT_EQ(gvcp::next_request(0), 1);
    EXPECT_EQ(gvcp::next_request(0x1234), 0x1235);
    EXPECT_EQ(gvcp::next_request(0xFFFF), 1);
}
