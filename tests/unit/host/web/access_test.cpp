#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "temporary_directory.hpp"
#include "web/access_token.hpp"
#include "web/login_sessions.hpp"
#include "web/request_rules.hpp"

using namespace mediagrabber;
using testing::HasSubstr;
using clock_type = login_sessions::clock;

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

TEST(AccessToken, IsItselfAndNothingElse) {
    access_token const token(long_enough);
    EXPECT_TRUE(token.is(long_enough));
    for (char const* const other :
         {"", "0", "0123456789abcdeF", "0123456789abcdef0", "0123456789abcde", "0123456789abcdef0123456789abcdef"}) {
        EXPECT_FALSE(token.is(other)) << other;
    }
}

TEST(AccessToken, IsRefusedWhenShortOrInvisible) {
    EXPECT_THROW(access_token("0123456789abcde"), std::runtime_error);
    EXPECT_THROW(access_token{secret}, std::runtime_error);
    EXPECT_THROW(access_token("0123456789abcde\x7F"), std::runtime_error);
}

TEST(AccessToken, OfNothingIsNobodys) {
    EXPECT_FALSE(same_in_constant_time("", ""));
}

TEST_F(TokenFile, IsReadWithoutItsLineEnd) {
    EXPECT_TRUE(access_token::read(write(std::string(long_enough) + "\r\n", own)).is(long_enough));
}

TEST_F(TokenFile, OfAGroupIsRead) {
    EXPECT_TRUE(access_token::read(write(long_enough, own | std::filesystem::perms::group_read)).is(long_enough));
}

TEST_F(TokenFile, ThatOthersReadIsRefused) {
    EXPECT_THAT(refusal(write(long_enough, own | std::filesystem::perms::others_read)), HasSubstr("chmod o-rw"));
}

TEST_F(TokenFile, ThatIsNotThereIsRefusedWithHowToMakeOne) {
    EXPECT_THAT(refusal(directory.path() / "none"), HasSubstr("make one: (umask 077; head -c 24 /dev/urandom"));
}

TEST_F(TokenFile, ThatIsTooShortIsRefusedByName) {
    EXPECT_THAT(refusal(write("short\n", own)), HasSubstr("token: a token of 5 characters is refused"));
}

TEST(WebValues, NeedATokenWhereOthersReachThePage) {
    configuration values;
    values.web_address = "0.0.0.0:8080";
    EXPECT_THROW(check_web_values(values), std::runtime_error);
    values.web_token_file = "token";
    EXPECT_NO_THROW(check_web_values(values));
    values.web_token_file.reset();
    values.web_address = "[::1]:8080";
    EXPECT_NO_THROW(check_web_values(values));
}

TEST(LoginSessions, KnowWhoHasBegunOneAndNobodyElse) {
    login_sessions sessions;
    auto const now = clock_type::now();
    auto const id = sessions.begin(now);
    EXPECT_EQ(id.size(), 64U);
    EXPECT_TRUE(sessions.is_open(id, now));
    EXPECT_FALSE(sessions.is_open("", now));
    EXPECT_FALSE(sessions.is_open(std::string(64, '0'), now));
    sessions.end(id);
    EXPECT_FALSE(sessions.is_open(id, now));
}

TEST(LoginSessions, AreNeverTheSame) {
    login_sessions sessions;
    std::set<std::string> ids;
    for (int i = 0; i < 100; ++i) {
        ids.insert(sessions.begin(clock_type::now()));
    }
    EXPECT_EQ(ids.size(), 100U);
}

TEST(LoginSessions, EndWhenTheyAreNotUsedForHalfADay) {
    login_sessions sessions;
    auto const now = clock_type::now();
    auto const id = sessions.begin(now);
    EXPECT_TRUE(sessions.is_open(id, now + std::chrono::hours(11)));
    EXPECT_TRUE(sessions.is_open(id, now + std::chrono::hours(22)));
    EXPECT_FALSE(sessions.is_open(id, now + std::chrono::hours(35)));
}

TEST(LoginSessions, AreBoundedTheOldestGoes) {
    login_sessions sessions;
    auto const now = clock_type::now();
    auto const first = sessions.begin(now);
    for (int i = 0; i < 64; ++i) {
        sessions.begin(now);
    }
    EXPECT_FALSE(sessions.is_open(first, now));
}

TEST(LoginSessions, MakeWrongTokensWaitLongerAndLonger) {
    login_sessions sessions;
    auto const now = clock_type::now();
    std::vector<unsigned> waits;
    for (int i = 0; i < 9; ++i) {
        sessions.failed("192.0.2.1", now);
        waits.push_back(sessions.wait_of("192.0.2.1", now));
    }
    EXPECT_EQ(waits, (std::vector<unsigned>{0, 0, 1, 2, 4, 8, 16, 32, 32}));
    EXPECT_EQ(sessions.wait_of("192.0.2.1", now + std::chrono::seconds(32)), 0U);
    EXPECT_EQ(sessions.wait_of("192.0.2.2", now), 0U);
    sessions.succeeded("192.0.2.1");
    EXPECT_EQ(sessions.wait_of("192.0.2.1", now), 0U);
}

TEST(LoginSessions, RememberABoundedNumberOfAddresses) {
    login_sessions sessions;
    auto const now = clock_type::now();
    for (int i = 0; i < 3; ++i) {
        sessions.failed("192.0.2.1", now);
    }
    for (int i = 0; i < 256; ++i) {
        sessions.failed("198.51.100." + std::to_string(i), now + std::chrono::milliseconds(1));
    }
    EXPECT_EQ(sessions.wait_of("192.0.2.1", now), 0U);
}

TEST(RequestRules, LetThisMachinesNamesInOnLoopback) {
    for (char const* const host : {"127.0.0.1:8080", "localhost:8080", "LOCALHOST", "[::1]:8080", "127.0.0.1"}) {
        EXPECT_EQ(reason_to_refuse({.host = host, .origin = "", .fetch_site = "", .fetch_mode = ""}, loopback, false),
                  "")
            << host;
    }
}

TEST(RequestRules, RefuseNamesThatWereMadeToMeanThisMachine) {
    for (char const* const host : {"", "evil.example:8080", "127.0.0.1.evil.example", "localhost.evil.example:8080"}) {
        EXPECT_NE(reason_to_refuse({.host = host, .origin = "", .fetch_site = "", .fetch_mode = ""}, loopback, false),
                  "")
            << host;
    }
}

TEST(RequestRules, DoNotKnowTheNamesOfAMachineThatOthersReach) {
    EXPECT_EQ(reason_to_refuse({.host = "recorder.example:8080", .origin = "", .fetch_site = "", .fetch_mode = ""},
                               outside, false),
              "");
}

TEST(RequestRules, RefuseChangesOfOtherSites) {
    auto const refused = [](char const* origin, char const* site) {
        return reason_to_refuse({.host = "127.0.0.1:8080", .origin = origin, .fetch_site = site, .fetch_mode = "cors"},
                                loopback, true) != "";
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

TEST(RequestRules, LetOthersLinkHereAndNotShowPictures) {
    auto const refused = [](char const* mode) {
        return reason_to_refuse(
                   {.host = "127.0.0.1:8080", .origin = "", .fetch_site = "cross-site", .fetch_mode = mode}, loopback,
                   false) != "";
    };
    EXPECT_FALSE(refused("navigate"));
    EXPECT_TRUE(refused("no-cors"));
}

TEST(CookieValue, IsFoundByItsWholeName) {
    EXPECT_EQ(cookie_value("a=1; mediagrabber_80=xyz; b=2", "mediagrabber_80"), "xyz");
    EXPECT_EQ(cookie_value("mediagrabber_8080=xyz", "mediagrabber_80"), "");
    EXPECT_EQ(cookie_value("", "a"), "");
    EXPECT_EQ(cookie_value(";;=;a", "a"), "");
}
