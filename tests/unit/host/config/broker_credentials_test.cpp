// SPDX-License-Identifier: MIT
#include "config/broker_credentials.hpp"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>

#include "config/configuration_file.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class BrokerLogin : public testing::Test {
protected:
    std::string file(std::string const& name, std::string const& text, mode_t rights = 0600) const {
        auto const path = directory_.path() / name;
        std::ofstream(path) << text;
        chmod(path.c_str(), rights);
        return path.string();
    }

    /// The error message for a configuration beside these files, "" if it is valid.
    std::string complaint(std::string const& text) const {
        try {
            parse_configuration("mqtt.broker = \"mqtts://a\"\nmqtt.username = \"me\"\n" + text,
                                directory_.path() / "run.toml");
            return {};
        } catch (configuration_error const& error) {
            return error.what();
        }
    }

    static std::string complaint_about_password(std::string const& path) {
        try {
            read_password(path);
            return {};
        } catch (std::exception const& error) {
            return error.what();
        }
    }

    temporary_directory directory_;
};

constexpr char certificate[] = "-----BEGIN CERTIFICATE-----\n";

}  // namespace

TEST_F(BrokerLogin, HasTheFirstLineOfItsFileAsPassword) {
    EXPECT_EQ(read_password(file("a", "secret\nsecond line\n")), "secret");
    EXPECT_EQ(read_password(file("b", "s e\xC3\xA4 \r\n")), "s e\xC3\xA4 ");
    EXPECT_EQ(read_password(file("c", "secret", 0640)), "secret");
}

TEST_F(BrokerLogin, RefusesAPasswordFileAccessibleToOtherUsers) {
    for (mode_t const rights : {0604U, 0602U, 0644U, 0666U}) {
        EXPECT_THAT(complaint_about_password(file("a", "secret", rights)),
                    AllOf(HasSubstr("accessible to every user"), HasSubstr("chmod o=")))
            << rights;
    }
}

TEST_F(BrokerLogin, RefusesAFileWithoutAPassword) {
    EXPECT_THAT(complaint_about_password(file("a", "")), HasSubstr("does not have a password of 1 to 1024 bytes"));
    EXPECT_THAT(complaint_about_password(file("b", "\nsecret")),
                HasSubstr("does not have a password of 1 to 1024 bytes"));
    EXPECT_THAT(complaint_about_password(file("c", std::string(1025, 'x'))),
                HasSubstr("does not have a password of 1 to 1024 bytes"));
    EXPECT_THAT(complaint_about_password(file("d", std::string("a\0b", 3))),
                HasSubstr("does not have a password of 1 to 1024 bytes"));
    EXPECT_THAT(complaint_about_password("/dev/null"), HasSubstr("accessible to every user"));
    EXPECT_THAT(complaint_about_password(directory_.path() / "none"), HasSubstr("No such file"));
}

TEST_F(BrokerLogin, IsMadeOfWhatIsConfigured) {
    file("password", "secret\n");
    file("ca.pem", certificate, 0644);
    auto const values = parse_configuration(
                            "mqtt.broker = \"mqtts://a:99\"\nmqtt.username = \"me\"\n"
                            "mqtt.password_file = \"password\"\nmqtt.ca_file = \"ca.pem\"\n",
                            directory_.path() / "run.toml")
                            .values;
    auto const login = credentials_of(values.mqtt);
    EXPECT_EQ(login.address.port, 99);
    EXPECT_EQ(login.username, "me");
    EXPECT_EQ(login.password, "secret");
    EXPECT_EQ(login.ca_file, directory_.path() / "ca.pem");
    EXPECT_FALSE(login.certificate_file || login.key_file);
}

TEST_F(BrokerLogin, IsRefusedWithThePlaceWhereAFileIsMissingOrUseless) {
    auto const place = (directory_.path() / "run.toml").string() + ":3:";
    auto const path = [this](char const* name) { return (directory_.path() / name).string(); };
    EXPECT_THAT(
        complaint("mqtt.password_file = \"none\""),
        AllOf(StartsWith(place), HasSubstr("mqtt.password_file: " + path("none") + ": cannot be opened: No such")));
    EXPECT_THAT(complaint("mqtt.ca_file = \"none\""),
                AllOf(StartsWith(place), HasSubstr("mqtt.ca_file: " + path("none"))));
    file("text", "no certificate");
    EXPECT_THAT(complaint("mqtt.ca_file = \"text\""), AllOf(StartsWith(place), HasSubstr("does not contain PEM")));
    file("open", certificate, 0644);
    EXPECT_THAT(
        complaint("mqtt.key_file = \"open\"\nmqtt.certificate_file = \"open\""),
        AllOf(StartsWith(place), HasSubstr("mqtt.key_file: " + path("open") + ": is accessible to every user")));
    EXPECT_THAT(complaint("mqtt.certificate_file = \"open\""), HasSubstr("mqtt.key_file require each other"));
    EXPECT_EQ(complaint("mqtt.ca_file = \"open\""), "");
}
