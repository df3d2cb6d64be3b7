#include "web/web_address.hpp"

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

TEST(WebAddress, KeepsTheBracketsOfSixInItsUrl) {
    auto const at = parse_web_address("[::1]:0");
    EXPECT_TRUE(at.six);
    EXPECT_TRUE(at.loopback);
    EXPECT_EQ(at.url(), "http://[::1]:0/");
}

TEST(WebAddress, TakesLocalhostForThisMachine) {
    EXPECT_EQ(parse_web_address("localhost:80").host, "127.0.0.1");
}

TEST(WebAddress, KnowsWhatOtherMachinesReach) {
    for (char const* const text : {"0.0.0.0:80", "192.168.1.5:80", "[::]:80", "[fe80::1]:80"}) {
        EXPECT_FALSE(parse_web_address(text).loopback) << text;
    }
    EXPECT_TRUE(parse_web_address("127.9.9.9:80").loopback);
}

TEST(WebAddress, RefusesWhatIsNone) {
    for (char const* const text :
         {"", "8080", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1", "127.0.0.1:80x", "::1:8080",
          "[127.0.0.1]:80", "[::1:80", "camera.example:80", ":8080", "1.2.3:80"}) {
        EXPECT_THROW(parse_web_address(text), std::runtime_error) << text;
    }
}

TEST(WebAddress, SaysWhatIsExpected) {
    try {
        parse_web_address("page:8080");
        FAIL();
    } catch (std::runtime_error const& error) {
        EXPECT_STREQ(error.what(),
                     "\"page:8080\" is refused, expected ADDRESS:PORT, the address in numbers or \"localhost\" and the"
                     " port from 0 to 65535 (0: any that is free), as 127.0.0.1:8080 or [::1]:8080");
    }
}
