#include "settings.hpp"

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
    values.gain_mode = control_mode::manual;
    values.exposure_mode = control_mode::manual;
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

TEST(Settings, AreKeyAndValue) {
    auto const one = parse_setting("gain.db=6=7");
    EXPECT_EQ(one.path, "gain.db");
    EXPECT_EQ(one.value, "6=7");
    EXPECT_THROW(parse_setting("gain.db"), setting_refused);
    EXPECT_THROW(parse_setting("=5"), setting_refused);
    EXPECT_THROW(parse_setting(""), setting_refused);
}

TEST(Settings, TakeValuesOfEveryKind) {
    EXPECT_EQ(changed_by({"gain.db=6"}, manual()).gain_db, 6.0F);
    EXPECT_EQ(changed_by({"gain.db= -1.5 "}, manual()).gain_db, -1.5F);
    EXPECT_EQ(changed_by({"gain.mode=auto"}).gain_mode, control_mode::automatic);
    EXPECT_EQ(changed_by({"gain.mode=\"auto\""}).gain_mode, control_mode::automatic);
    EXPECT_TRUE(changed_by({"auto.area=true"}).auto_area);
    EXPECT_EQ(changed_by({"gain.mode=auto", "gain.limits_db=[1, 2.5]"}).gain_limits_db->high, 2.5F);
    EXPECT_EQ(changed_by({"log.sinks=[\"syslog\"]"}).log_sinks, 2U);
}

TEST(Settings, AreJudgedTogetherWithOneAnother) {
    EXPECT_EQ(changed_by({"gain.db=6", "gain.mode=manual"}).gain_db, 6.0F);
    EXPECT_EQ(refusal_of({"gain.mode=auto", "gain.db=6"}).what,
              "gain.db has no effect: it needs gain.mode = \"manual\"");
}

TEST(Settings, ChangeNothingWhenOneOfThemIsRefused) {
    configuration values = manual();
    EXPECT_THROW(apply_settings({{"gain.db", "6"}, {"exposure.time_us", "-1"}}, values), setting_refused);
    EXPECT_FALSE(values.gain_db);
}

TEST(Settings, ThatAreUnknownAreAnsweredWithThoseThereAre) {
    auto const refused = refusal_of({"gain.decibels=6"});
    EXPECT_EQ(refused.status, exit_status::usage);
    EXPECT_THAT(refused.what, StartsWith("gain.decibels: unknown, expected one of image.rotate, "));
    EXPECT_THAT(refused.what, testing::Not(HasSubstr("image.width")));
}

TEST(Settings, ThatNeedMoreThanTheRunningPluginAreRefusedWithWhatHelps) {
    auto const region = refusal_of({"image.width=5"});
    EXPECT_EQ(region.status, exit_status::not_changeable);
    EXPECT_THAT(region.what, HasSubstr("reload it (SIGHUP)"));
    auto const directory = refusal_of({"output.directory=x"});
    EXPECT_EQ(directory.status, exit_status::not_changeable);
    EXPECT_THAT(directory.what, HasSubstr("start mediagrabber again"));
}

TEST(Settings, ThatNeedAnotherRunAreTakenWhereThatIsGranted) {
    configuration values;
    apply_settings({{"image.width", "640"}}, values, change_effect::new_run);
    EXPECT_EQ(values.width, 640);
    EXPECT_THROW(apply_settings({{"output.directory", "x"}}, values, change_effect::new_run), setting_refused);
}

TEST(Settings, OfATableWantItsWholePath) {
    EXPECT_EQ(refusal_of({"tone.enable=true", "tone.lut=bright.csv"}).what,
              "tone.lut: bright.csv is refused, expected a whole path");
    EXPECT_EQ(refusal_of({"tone.enable=true", "tone.lut=/nowhere/bright.csv"}).what,
              "tone.lut: /nowhere/bright.csv: can't be opened: No such file or directory");
}

TEST(Settings, CantSmuggleASecondKeyIn) {
    for (auto const* const text :
         {"gain.db=6\nx = 1", "gain.db=6\r\nx = 1", "gain.db=6 # comment", "gain.db=\"\"\"6\n\"\"\""}) {
        EXPECT_EQ(refusal_of({text}).status, exit_status::usage) << text;
    }
}

TEST(Settings, SayHowThePluginHasToBeTold) {
    EXPECT_EQ(needed_for({{"gain.db", "6"}}), change_effect::small_change);
    EXPECT_EQ(needed_for({{"gain.db", "6"}, {"timing.frame_rate", "5"}}), change_effect::reconfiguration);
}

RC_GTEST_PROP(Settings, AreRefusedOrWithinLimitsWhateverTheTextIs, (std::string const& text)) {
    configuration values = manual();
    try {
        apply_settings({{"gain.db", text}}, values);
        RC_ASSERT(values.gain_db && *values.gain_db >= -60.0F && *values.gain_db <= 60.0F);
    } catch (setting_refused const&) {
        RC_ASSERT(!values.gain_db);
    }
}
