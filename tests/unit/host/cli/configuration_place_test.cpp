// SPDX-License-Identifier: MIT
#include "cli/configuration_place.hpp"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "base/failures.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::HasSubstr;

namespace {

class ConfigurationPlace : public testing::Test {
protected:
    ConfigurationPlace() {
        setenv("XDG_CONFIG_HOME", home_.path().c_str(), 1);
        std::filesystem::create_directory(home_.path() / "mediagrabber");
        std::ofstream(home_.path() / "mediagrabber/left.toml") << "";
    }
    ~ConfigurationPlace() override {
        unsetenv("XDG_CONFIG_HOME");
        unsetenv(configuration_variable);
    }
    std::string in_home(char const* name) const { return (home_.path() / "mediagrabber" / name).string(); }

    temporary_directory const home_;
};

}  // namespace

TEST_F(ConfigurationPlace, IsFoundByItsName) {
    EXPECT_EQ(find_configuration("left"), in_home("left.toml"));
    EXPECT_EQ(find_configuration("left.toml"), in_home("left.toml"));
}

TEST_F(ConfigurationPlace, IsThePathThatIsGiven) {
    EXPECT_EQ(find_configuration("/nowhere/left"), "/nowhere/left");
    EXPECT_EQ(find_configuration("./left"), "./left");
}

TEST_F(ConfigurationPlace, IsInTheHomeDirectoryByDefault) {
    unsetenv("XDG_CONFIG_HOME");
    temporary_directory const user;
    std::filesystem::create_directories(user.path() / ".config/mediagrabber");
    std::ofstream(user.path() / ".config/mediagrabber/right.toml") << "";
    std::string const before = std::getenv("HOME") == nullptr ? "" : std::getenv("HOME");
    setenv("HOME", user.path().c_str(), 1);
    EXPECT_EQ(find_configuration("right"), user.path() / ".config/mediagrabber/right.toml");
    setenv("HOME", before.c_str(), 1);
}

TEST_F(ConfigurationPlace, IsThatOfTheEnvironmentIfNoneIsGiven) {
    EXPECT_EQ(find_configuration(""), "");
    setenv(configuration_variable, "/a/b.toml", 1);
    EXPECT_EQ(find_configuration(""), "/a/b.toml");
    setenv(configuration_variable, "left", 1);
    EXPECT_EQ(find_configuration(""), in_home("left.toml"));
    EXPECT_EQ(find_configuration("/c.toml"), "/c.toml");
}

TEST_F(ConfigurationPlace, IsReportedWithWhereItWasLookedFor) {
    try {
        find_configuration("none");
        FAIL();
    } catch (usage_error const& error) {
        EXPECT_EQ(std::string(error.what()), "none: no such configuration; looked for " +
                                                 (std::filesystem::current_path() / "none").string() + ", " +
                                                 in_home("none.toml") + ", /etc/mediagrabber/none.toml");
    }
    setenv(configuration_variable, "none", 1);
    try {
        require_configuration("", "--config");
        FAIL();
    } catch (usage_error const& error) {
        EXPECT_THAT(error.what(), HasSubstr("$MEDIAGRABBER_CONFIG: none: no such configuration; looked for /"));
    }
}

TEST_F(ConfigurationPlace, IsRequiredByACommandThatNeedsIt) {
    try {
        require_configuration("", "--config");
        FAIL();
    } catch (usage_error const& error) {
        EXPECT_THAT(error.what(), HasSubstr("--config is required: a file, or the name of one in"));
    }
}
