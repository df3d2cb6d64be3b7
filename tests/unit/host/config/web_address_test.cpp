// SPDX-License-Identifier: MIT
#include "config/web_address.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace mediagrabber;

TEST(WebAddress, IsReadWithItsPort) {
    auto const at = parse_web_address("127.0.0.1:8080");
    EXPECT_EQ(at.host, "127.0.0.1");
    EXPECT_EQ(at.port, 8080);
    EXPECT_TRUE(at.loopback);
    EXPECT_EQ(at.url(), "http://127.0.0.1:8080/");
}

TEST(WebAddress, PutsBracketsAroundIPv6InItsUrl) {
    auto const at = parse_web_address("[::1]:0");
    EXPECT_TRUE(at.six);
    EXPECT_TRUE(at.loopback);
    EXPECT_EQ(at.url(), "http://[::1]:0/");
}

TEST(WebAddress, AcceptsLocalhost) {
    EXPECT_EQ(parse_web_address("localhost:80").host, "127.0.0.1");
}

TEST(WebAddress, DistinguishesLoopbackFromReachableAddresses) {
    for (char const* const text : {"0.0.0.0:80", "192.168.1.5:80", "[::]:80", "[fe80::1]:80"}) {
        EXPECT_FALSE(parse_web_address(text).loopback) << text;
    }
    EXPECT_TRUE(parse_web_address("127.9.9.9:80").loopback);
}

TEST(WebAddress, RefusesInvalidText) {
    for (char const* const text :
         {"", "8080", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1", "127.0.0.1:80x", "::1:8080",
          "[127.0.0.1]:80", "[::1:80", "camera.example:80", ":8080", "1.2.3:80"}) {
        EXPECT_THROW(parse_web_address(text), std::runtime_error) << text;
    }
}

TEST(WebAddress, ReportsTheExpectedForm) {
    try {
        parse_web_address("page:8080");
        FAIL();
    } catch (std::runtime_error const& error) {
        EXPECT_STREQ(
            error.what(),
            "\"page:8080\" is not valid, expected ADDRESS:PORT with an IP address or \"localhost\" and a port from 0"
            " to 65535 (0: any free port), for example 127.0.0.1:8080 or [::1]:8080");
    }
}

TEST(PublicOrigin, IsReadAsBrowsersSendIt) {
    auto const plain = parse_public_origin("https://Camera.example");
    EXPECT_EQ(plain.origin, "https://camera.example");
    EXPECT_EQ(plain.host, "camera.example");
    EXPECT_TRUE(plain.secure);
    EXPECT_EQ(parse_public_origin("https://camera.example:443").origin, "https://camera.example");
    EXPECT_EQ(parse_public_origin("https://camera.example:8443").host, "camera.example:8443");
    EXPECT_EQ(parse_public_origin("http://[2001:db8::1]:8080").host, "[2001:db8::1]:8080");
    EXPECT_FALSE(parse_public_origin("http://camera.example:80").secure);
}

TEST(PublicOrigin, RefusesOtherText) {
    for (char const* const text :
         {"", "camera.example", "ftp://camera.example", "https://", "https://a/", "https://a/b", "https://a:0",
          "https://a:x", "https://a:", "https://a b", "https://u@a"}) {
        EXPECT_THROW(parse_public_origin(text), std::runtime_error) << text;
    }
}
