// SPDX-License-Identifier: MIT
#include "doctor/fix_plan.hpp"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <vector>

using namespace mediagrabber;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Key;
using testing::Not;

namespace {

finding advice(std::string command, bool until_reboot = true) {
    return {.level = severity::advice,
            .what = "subject",
            .found = "state",
            .wanted = "another",
            .command = std::move(command),
            .until_reboot = until_reboot};
}

}  // namespace

TEST(FixPlan, IsEmptyWithoutASettingThatEndsWithTheNextBoot) {
    EXPECT_THAT(fix_plan(std::vector{advice("apt-get install chrony", false)}), IsEmpty());
}

TEST(FixPlan, CollectsTheSettingsOfSysctl) {
    auto const files =
        fix_plan(std::vector{advice("sysctl -w net.core.rmem_max=10000"), advice("sysctl -w net.a.b=2 net.c.d=3")});
    ASSERT_THAT(files, ElementsAre(Key("sysctl.d/61-mediagrabber-local.conf")));
    EXPECT_EQ(files.begin()->second,
              "# subject was: state\n# wanted: another\nnet.core.rmem_max=10000\n"
              "# subject was: state\n# wanted: another\nnet.a.b=2\nnet.c.d=3\n");
}

TEST(FixPlan, NeitherReplacesNorPrecedesTheSettingsOfThePackage) {
    std::ifstream file(PACKAGING);
    std::string const rules{std::istreambuf_iterator<char>(file), {}};
    std::smatch packaged;
    ASSERT_TRUE(std::regex_search(rules, packaged, std::regex(R"(DESTINATION lib/(sysctl\.d) RENAME ([^ )]+)\))")));
    auto const files = fix_plan(std::vector{advice("sysctl -w net.a.b=2")});
    ASSERT_EQ(files.size(), 1U);
    EXPECT_GT(files.begin()->first, packaged[1].str() + "/" + packaged[2].str());
}

TEST(FixPlan, RunsOtherCommandsInAUnit) {
    auto const files = fix_plan(std::vector{advice("ethtool -C eth0 rx-usecs 50"), advice(R"(echo "50%" \ > /sys/x)"),
                                            advice("sudo nft list ruleset", false)});
    ASSERT_THAT(files, ElementsAre(Key("systemd/system/mediagrabber-settings.service")));
    auto const& unit = files.begin()->second;
    EXPECT_THAT(unit, HasSubstr("\nExecStart=-/bin/sh -c \"ethtool -C eth0 rx-usecs 50\"\n"));
    EXPECT_THAT(unit, HasSubstr(R"(ExecStart=-/bin/sh -c "echo \"50%%\" \\ > /sys/x")"));
    EXPECT_THAT(unit, HasSubstr("\nWants=systemd-udev-settle.service\nAfter=network-pre.target systemd-udev-settle"));
    EXPECT_THAT(unit, HasSubstr("WantedBy=multi-user.target"));
    EXPECT_THAT(unit, Not(HasSubstr("nft")));
}
