// SPDX-License-Identifier: MIT
#include "cli/address_commands.hpp"

#include <gtest/gtest.h>

#include "model_camera.hpp"

using gevctl::exit_status;
using gevctl::parse_ip_settings;
using gevctl::parse_mac;

TEST(IpSettings, HaveTheMaskOfThePrefix) {
    auto const ip = parse_ip_settings("10.1.2.3/24", "10.1.2.1");
    EXPECT_EQ(ip.address.value, 0x0A010203U);
    EXPECT_EQ(ip.mask.value, 0xFFFFFF00U);
    EXPECT_EQ(ip.gateway.value, 0x0A010201U);
    EXPECT_EQ(parse_ip_settings("10.1.2.3/8", "").gateway.value, 0U);
}

TEST(IpSettings, RefuseWhatIsNotAHostInItsSubnet) {
    for (char const* const text : {"10.1.2.3", "10.1.2.3/", "10.1.2.3/31", "10.1.2.3/0", "10.1.2.3/x", "10.1.2/24",
                                   "10.1.2.0/24", "10.1.2.255/24", "/24", ""}) {
        EXPECT_EQ(status_of([&] { parse_ip_settings(text, ""); }), exit_status::usage) << text;
    }
}

TEST(IpSettings, RefuseWhatIsNotTheAddressOfADevice) {
    for (char const* const text : {"0.1.2.3/24", "224.0.0.5/24", "239.1.2.3/24", "255.255.255.254/24"}) {
        EXPECT_EQ(status_of([&] { parse_ip_settings(text, ""); }), exit_status::usage) << text;
    }
    EXPECT_EQ(parse_ip_settings("223.255.255.1/24", "").address.value, 0xDFFFFF01U);
}

TEST(IpSettings, RefuseAGatewayOutsideTheSubnet) {
    EXPECT_EQ(status_of([] { parse_ip_settings("10.1.2.3/24", "10.1.3.1"); }), exit_status::usage);
    EXPECT_EQ(status_of([] { parse_ip_settings("10.1.2.3/24", "gateway"); }), exit_status::usage);
}

TEST(MacAddress, HasSixBytes) {
    EXPECT_EQ(parse_mac("00:11:1c:F5:41:7e"), 0x00111cf5417eU);
    EXPECT_EQ(parse_mac("00-11-1c-f5-41-7e"), 0x00111cf5417eU);
    for (char const* const text :
         {"", "00:11:1c:f5:41", "00:11:1c:f5:41:7e:00", "00:11:1c:f5:41:7g", "001:1:1c:f5:41:7e"}) {
        EXPECT_EQ(parse_mac(text), std::nullopt) << text;
    }
}
