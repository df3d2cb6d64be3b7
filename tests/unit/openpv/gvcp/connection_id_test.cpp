// SPDX-License-Identifier: MIT
#include "gvcp/connection_id.hpp"

#include <string>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

using openpv::connection_id;
using openpv::parse_connection_id;
using openpv::to_text;

TEST(ConnectionId, ContainsMacCameraAddressAndHostAddress) {
    connection_id const id{0x00111c000007, {0xC0A80114}, {0xC0A80101}};
    EXPECT_EQ(to_text(id), "00:11:1c:00:00:07@192.168.1.20%192.168.1.1");
}

RC_GTEST_PROP(ConnectionId, ParsesItsOwnText, (uint64_t mac, uint32_t camera, uint32_t host)) {
    connection_id const id{mac & 0xFFFFFFFFFFFF, {camera}, {host}};
    RC_ASSERT(parse_connection_id(to_text(id)) == id);
}

TEST(ConnectionId, RejectsOtherTexts) {
    for (char const* const text :
         {"", "@%", "192.168.1.20", "00:11:1c:00:00:07@192.168.1.20", "00:11:1c:00:00@192.168.1.20%192.168.1.1",
          "00:11:1c:00:00:07:08@192.168.1.20%192.168.1.1", "00-11-1c-00-00-07@192.168.1.20%192.168.1.1",
          "0g:11:1c:00:00:07@192.168.1.20%192.168.1.1", "00:11:1c:00:00:07@192.168.1%192.168.1.1",
          "00:11:1c:00:00:07@192.168.1.256%192.168.1.1", "00:11:1c:00:00:07%192.168.1.20@192.168.1.1",
          "00:11:1c:00:00:07@192.168.1.20%192.168.1.1 "}) {
        EXPECT_FALSE(parse_connection_id(text).has_value()) << text;
    }
}

RC_GTEST_PROP(ConnectionId, ParsesAnyTextSafely, (std::string text)) {
    if (auto const id = parse_connection_id(text)) {
        RC_ASSERT(parse_connection_id(to_text(*id)) == id);
    }
}
