// SPDX-License-Identifier: MIT
#include "config/settings.hpp"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

using namespace mediagrabber;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

configuration changed_by(std::vector<std::string> const& texts, configuration values = {}) {
    std::vector<setting> settings;
    for (auto const& text : texts) {
        settings.push_back(parse_setting(text));
    }
    apply_settings(settings, values);
    return values;
}

configuration manual() {
    configuration values;
    values.gain.automatic = auto_mode::off;
    values.exposure.automatic = auto_mode::off;
    return values;
}

struct refusal {
    exit_status status = exit_status::success;
    std::string what;
};

refusal refusal_of(std::vector<std::string> const& texts) {
    try {
        changed_by(texts, manual());
        return {};
    } catch (setting_refused const& refused) {
        return {.status = refused.status(), .what = refused.what()};
    }
}

}  // namespace

TEST(Settings, ConsistOfKeyAndValue) {
    auto const one = parse_setting("gain.db=6=7");
    EXPECT_EQ(one.path, "gain.db");
    EXPECT_EQ(one.value, "6=7");
    EXPECT_THROW(parse_setting("gain.db"), setting_refused);
    EXPECT_THROW(parse_setting("=5"), setting_refused);
    EXPECT_THROW(parse_setting(""), setting_refused);
}

TEST(Settings, AcceptValuesOfEveryType) {
    EXPECT_EQ(changed_by({"gain.db=6"}, manual()).gain.db, 6.0F);
    EXPECT_EQ(changed_by({"gain.db= -1.5 "}, manual()).gain.db, -1.5F);
    EXPECT_EQ(changed_by({"gain.auto=Continuous"}).gain.automatic, auto_mode::continuous);
    EXPECT_EQ(changed_by({"gain.auto=\"Continuous\""}).gain.automatic, auto_mode::continuous);
    EXPECT_TRUE(changed_by({"auto.area=true"}).automatic.area);
    EXPECT_EQ(changed_by({"gain.auto=Continuous", "gain.limits_db=[1, 2.5]"}).gain.limits_db->high, 2.5F);
    EXPECT_EQ(changed_by({"log.sinks=[\"syslog\"]"}).log.sinks, 2U);
}

TEST(Settings, AreCheckedTogether) {
    EXPECT_EQ(changed_by({"gain.db=6", "gain.auto=Off"}).gain.db, 6.0F);
    EXPECT_EQ(refusal_of({"gain.auto=Continuous", "gain.db=6"}).what,
              "gain.db has no effect: it requires gain.auto = \"Off\"");
}

TEST(Settings, ChangeNothingIfOneIsRefused) {
    configuration values = manual();
    EXPECT_THROW(apply_settings({{"gain.db", "6"}, {"exposure.time_us", "-1"}}, values), setting_refused);
    EXPECT_FALSE(values.gain.db);
}

TEST(Settings, ReportAnUnknownKeyWithTheNearestKeys) {
    auto const refused = refusal_of({"gain.decibels=6"});
    EXPECT_EQ(refused.status, exit_status::usage);
    EXPECT_EQ(refused.what, "gain.decibels: unknown key; `mediagrabber keys` lists all");
    EXPECT_EQ(refusal_of({"gain.bd=6"}).what,
              "gain.bd: unknown key; did you mean gain.db? `mediagrabber keys` lists all");
    EXPECT_THAT(refusal_of({"time_us=6"}).what, HasSubstr("did you mean exposure.time_us"));
    EXPECT_THAT(refusal_of({"Exposure.Time_Us=6"}).what, HasSubstr("did you mean exposure.time_us"));
    EXPECT_THAT(refusal_of({std::string(70'000, 'x') + "=6"}).what, HasSubstr("lists all"));
}

TEST(Settings, ReportHowToChangeAKeyThatNeedsARestart) {
    auto const region = refusal_of({"image.width=5"});
    EXPECT_EQ(region.status, exit_status::not_changeable);
    EXPECT_THAT(region.what, HasSubstr("reload it (SIGHUP)"));
    auto const directory = refusal_of({"output.directory=x"});
    EXPECT_EQ(directory.status, exit_status::not_changeable);
    EXPECT_THAT(directory.what, HasSubstr("restart mediagrabber"));
}

TEST(Settings, MayRestartAcquisitionIfPermitted) {
    configuration values;
    apply_settings({{"image.width", "640"}}, values, change_effect::restart);
    EXPECT_EQ(values.image.width, 640);
    EXPECT_THROW(apply_settings({{"output.directory", "x"}}, values, change_effect::restart), setting_refused);
}

TEST(Settings, RequireAnAbsolutePathToALut) {
    EXPECT_EQ(refusal_of({"tone.enable=true", "tone.lut=bright.csv"}).what,
              "tone.lut: bright.csv is not valid, expected an absolute path");
    configuration values;
    apply_settings({{.path = "tone.enable", .value = "true"}, {.path = "tone.lut", .value = "none"}}, values);
    EXPECT_TRUE(values.tone.without_lut());
    EXPECT_EQ(refusal_of({"tone.enable=true", "tone.lut=/nowhere/bright.csv"}).what,
              "tone.lut: /nowhere/bright.csv: cannot be opened: No such file or directory");
}

TEST(Settings, RefuseASecondKeyInAValue) {
    for (auto const* const text :
         {"gain.db=6\nx = 1", "gain.db=6\r\nx = 1", "gain.db=6 # comment", "gain.db=\"\"\"6\n\"\"\""}) {
        EXPECT_EQ(refusal_of({text}).status, exit_status::usage) << text;
    }
}

TEST(Settings, ReportTheStrongestEffect) {
    EXPECT_EQ(needed_for({{"gain.db", "6"}}), change_effect::live_update);
    EXPECT_EQ(needed_for({{"gain.db", "6"}, {"timing.frame_rate_hz", "5"}}), change_effect::reconfiguration);
}

RC_GTEST_PROP(Settings, AreRefusedOrWithinLimitsForAnyText, (std::string const& text)) {
    configuration values = manual();
    try {
        apply_settings({{"gain.db", text}}, values);
        RC_ASSERT(values.gain.db && *values.gain.db >= -60.0F && *values.gain.db <= 60.0F);
    } catch (setting_refused const&) {
        RC_ASSERT(!values.gain.db);
    }
}
