// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "temporary_directory.hpp"
#include "web/access_control.hpp"
#include "web/access_token.hpp"
#include "web/web_sessions.hpp"

using namespace mediagrabber;
using testing::HasSubstr;
using clock_type = web_sessions::clock;

namespace {

constexpr char secret[] = "a token that is long enough";
constexpr char long_enough[] = "0123456789abcdef";

class TokenFile : public testing::Test {
protected:
    std::filesystem::path write(std::string const& text, std::filesystem::perms mode) {
        auto const file = directory.path() / "token";
        std::ofstream(file) << text;
        std::filesystem::permissions(file, mode);
        return file;
    }
    std::string refusal(std::filesystem::path const& file) {
        try {
            access_token::read(file);
        } catch (std::runtime_error const& error) {
            return error.what();
        }
        return "";
    }

    temporary_directory directory;
};

constexpr auto own = std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;

web_address const loopback = parse_web_address("127.0.0.1:8080");
web_address const outside = parse_web_address("192.168.1.5:8080");

}  // namespace

TEST(AccessToken, MatchesOnlyItself) {
    access_token const token(long_enough);
    EXPECT_TRUE(token.matches(long_enough));
    for (char const* const other :
         {"", "0", "0123456789abcdeF", "0123456789abcdef0", "0123456789abcde", "0123456789abcdef0123456789abcdef"}) {
        EXPECT_FALSE(token.matches(other)) << other;
    }
}

TEST(AccessToken, IsRefusedIfShortOrInvisible) {
    EXPECT_THROW(access_token("0123456789abcde"), std::runtime_error);
    EXPECT_THROW(access_token{secret}, std::runtime_error);
    EXPECT_THROW(access_token("0123456789abcde\x7F"), std::runtime_error);
}

TEST(AccessToken, NeverMatchesIfEmpty) {
    EXPECT_FALSE(same_in_constant_time("", ""));
}

TEST_F(TokenFile, IsReadWithoutItsLineEnd) {
    EXPECT_TRUE(access_token::read(write(std::string(long_enough) + "\r\n", own)).matches(long_enough));
}

TEST_F(TokenFile, MayBeReadableByTheGroup) {
    EXPECT_TRUE(access_token::read(write(long_enough, own | std::filesystem::perms::group_read)).matches(long_enough));
}

TEST_F(TokenFile, IsRefusedIfReadableByOthers) {
    EXPECT_THAT(refusal(write(long_enough, own | std::filesystem::perms::others_read)), HasSubstr("run `chmod o= "));
}

TEST_F(TokenFile, IsRefusedIfMissingWithAHint) {
    EXPECT_THAT(refusal(directory.path() / "none"), HasSubstr("create one with: (umask 077; head -c 24 /dev/urandom"));
}

TEST_F(TokenFile, IsRefusedIfTooShort) {
    EXPECT_THAT(refusal(write("short\n", own)), HasSubstr("token: the token has 5 characters"));
}

TEST(WebValues, NeedATokenForAReachableAddress) {
    configuration values;
    values.web.address = "0.0.0.0:8080";
    EXPECT_THROW(check_web_values(values.web), std::runtime_error);
    values.web.token_file = "token";
    EXPECT_NO_THROW(check_web_values(values.web));
    values.web.token_file.reset();
    values.web.address = "[::1]:8080";
    EXPECT_NO_THROW(check_web_values(values.web));
    values.web.public_origin = "https://camera.example";
    EXPECT_THROW(check_web_values(values.web), std::runtime_error);
    values.web.token_file = "token";
    EXPECT_NO_THROW(check_web_values(values.web));
}

TEST(WebSessions, AcceptOnlyTheirIdentifier) {
    web_sessions sessions;
    auto const now = clock_type::now();
    auto const id = sessions.start(now);
    EXPECT_EQ(id.size(), 64U);
    EXPECT_TRUE(sessions.is_valid(id, now));
    EXPECT_FALSE(sessions.is_valid("", now));
    EXPECT_FALSE(sessions.is_valid(std::string(64, '0'), now));
    sessions.end(id);
    EXPECT_FALSE(sessions.is_valid(id, now));
}

TEST(WebSessions, HaveDistinctIdentifiers) {
    web_sessions sessions;
    std::set<std::string> ids;
    for (int i = 0; i < 100; ++i) {
        ids.insert(sessions.start(clock_type::now()));
    }
    EXPECT_EQ(ids.size(), 100U);
}

TEST(WebSessions, ExpireAfterTwelveHoursWithoutUse) {
    web_sessions sessions;
    auto const now = clock_type::now();
    auto const id = sessions.start(now);
    EXPECT_TRUE(sessions.is_valid(id, now + std::chrono::hours(11)));
    EXPECT_TRUE(sessions.is_valid(id, now + std::chrono::hours(22)));
    EXPECT_FALSE(sessions.is_valid(id, now + std::chrono::hours(35)));
}

TEST(WebSessions, AreBoundedAndDropTheOldest) {
    web_sessions sessions;
    auto const now = clock_type::now();
    auto const first = sessions.start(now);
    for (int i = 0; i < 64; ++i) {
        sessions.start(now);
    }
    EXPECT_FALSE(sessions.is_valid(first, now));
}

TEST(WebSessions, DelayWrongTokensIncreasingly) {
    web_sessions sessions;
    auto const now = clock_type::now();
    std::vector<unsigned> waits;
    for (int i = 0; i < 9; ++i) {
        sessions.failed("192.0.2.1", now);
        waits.push_back(sessions.retry_after("192.0.2.1", now));
    }
    EXPECT_EQ(waits, (std::vector<unsigned>{0, 0, 1, 2, 4, 8, 16, 32, 32}));
    EXPECT_EQ(sessions.retry_after("192.0.2.1", now + std::chrono::seconds(32)), 0U);
    EXPECT_EQ(sessions.retry_after("192.0.2.2", now), 0U);
    sessions.succeeded("192.0.2.1");
    EXPECT_EQ(sessions.retry_after("192.0.2.1", now), 0U);
}

TEST(WebSessions, RetainABoundedNumberOfAddresses) {
    web_sessions sessions;
    auto const now = clock_type::now();
    for (int i = 0; i < 3; ++i) {
        sessions.failed("192.0.2.1", now);
    }
    for (int i = 0; i < 256; ++i) {
        sessions.failed("198.51.100." + std::to_string(i), now + std::chrono::milliseconds(1));
    }
    EXPECT_EQ(sessions.retry_after("192.0.2.1", now), 0U);
}

TEST(AccessControl, AllowLocalHostNamesOnLoopback) {
    for (char const* const host : {"127.0.0.1:8080", "localhost:8080", "LOCALHOST", "[::1]:8080", "127.0.0.1"}) {
        EXPECT_EQ(reason_to_refuse({.host = host, .origin = "", .fetch_site = "", .fetch_mode = ""}, loopback, nullptr,
                                   false),
                  "")
            << host;
    }
}

TEST(AccessControl, RefuseForeignHostNamesOnLoopback) {
    for (char const* const host : {"", "evil.example:8080", "127.0.0.1.evil.example", "localhost.evil.example:8080"}) {
        EXPECT_NE(reason_to_refuse({.host = host, .origin = "", .fetch_site = "", .fetch_mode = ""}, loopback, nullptr,
                                   false),
                  "")
            << host;
    }
}

TEST(AccessControl, AllowAnyHostNameOnAReachableAddress) {
    EXPECT_EQ(reason_to_refuse({.host = "recorder.example:8080", .origin = "", .fetch_site = "", .fetch_mode = ""},
                               outside, nullptr, false),
              "");
}

TEST(AccessControl, RefuseChangesFromOtherSites) {
    auto const refused = [](char const* origin, char const* site) {
        return reason_to_refuse({.host = "127.0.0.1:8080", .origin = origin, .fetch_site = site, .fetch_mode = "cors"},
                                loopback, nullptr, true) != "";
    };
    EXPECT_FALSE(refused("", ""));  // no browser
    EXPECT_FALSE(refused("http://127.0.0.1:8080", "same-origin"));
    EXPECT_FALSE(refused("https://127.0.0.1:8080", ""));
    EXPECT_TRUE(refused("http://127.0.0.1:8081", ""));
    EXPECT_TRUE(refused("http://evil.example", ""));
    EXPECT_TRUE(refused("null", ""));
    EXPECT_TRUE(refused("", "cross-site"));
    EXPECT_TRUE(refused("http://127.0.0.1:8080", "same-site"));
}

TEST(AccessControl, AllowLinksButNotEmbeddingFromOtherSites) {
    auto const refused = [](char const* mode) {
        return reason_to_refuse(
                   {.host = "127.0.0.1:8080", .origin = "", .fetch_site = "cross-site", .fetch_mode = mode}, loopback,
                   nullptr, false) != "";
    };
    EXPECT_FALSE(refused("navigate"));
    EXPECT_TRUE(refused("no-cors"));
}

TEST(AccessControl, AllowThePublicOriginOfAProxy) {
    auto const proxied = parse_public_origin("https://camera.example:8443");
    auto const refused = [&](char const* host, char const* origin) {
        return reason_to_refuse({.host = host, .origin = origin, .fetch_site = "same-origin", .fetch_mode = "cors"},
                                loopback, &proxied, true) != "";
    };
    EXPECT_FALSE(refused("camera.example:8443", "https://camera.example:8443"));
    EXPECT_FALSE(refused("camera.example", "https://camera.example:8443")) << "the proxy has removed the port";
    EXPECT_FALSE(refused("127.0.0.1:8080", "https://camera.example:8443")) << "the proxy has replaced the host";
    EXPECT_FALSE(refused("127.0.0.1:8080", "http://127.0.0.1:8080")) << "without the proxy";
    EXPECT_TRUE(refused("127.0.0.1:8080", "https://camera.example"));
    EXPECT_TRUE(refused("127.0.0.1:8080", "http://camera.example:8443"));
    EXPECT_TRUE(refused("evil.example", "https://camera.example:8443"));
}

TEST(CookieValue, IsFoundByItsFullName) {
    EXPECT_EQ(cookie_value("a=1; mediagrabber_80=xyz; b=2", "mediagrabber_80"), "xyz");
    EXPECT_EQ(cookie_value("mediagrabber_8080=xyz", "mediagrabber_80"), "");
    EXPECT_EQ(cookie_value("", "a"), "");
    EXPECT_EQ(cookie_value(";;=;a", "a"), "");
}
