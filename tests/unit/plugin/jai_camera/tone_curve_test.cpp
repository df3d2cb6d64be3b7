// SPDX-License-Identifier: MIT
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <fstream>

#include "jai_kernel/kernel_test.hpp"
#include "temporary_directory.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::FloatEq;
using testing::IsEmpty;
using namespace Vorn::Support::MediaGrabber::Jai;

struct tone_curve : plugin_test::kernel_fixture {
    static constexpr char cam_tag[] = "JAI_CAM";
    /// Scripts a camera that offers these gammas and applies one of them in gamma mode.
    void gammas(std::vector<std::string> const& entries, std::string const& mode = "Gamma") {
        cam()["JAIGamma"] = scripted::enumeration(entries.front(), entries);
        cam()["JAILUTMode"] = scripted::enumeration(mode, {"Off", "LUT", "Gamma"});
    }
    bool warning(std::string const& operation, std::string const& text) {
        return logged(level::warning, operation, cam_tag, text);
    }
    bool info_line(std::string const& text) { return logged(level::info, "", cam_tag, text); }
};

// ---- Mode ---------------------------------------------------------------------------------------

TEST_F(tone_curve, SetsTheModeByItsEntrysName) {
    for (auto const mode : {lg_lut, lg_gamma, lg_off, lg_error, lg_other}) {
        EXPECT_EQ(device().ExPropertySetLUTMode(mode), 0);
    }
    EXPECT_THAT(writes(), ElementsAre("SetEnumValue(JAILUTMode, LUT)", "SetEnumValue(JAILUTMode, Gamma)",
                                      "SetEnumValue(JAILUTMode, Off)", "SetEnumValue(JAILUTMode, Off)",
                                      "SetEnumValue(JAILUTMode, Off)"));
    EXPECT_TRUE(info_line("done: PvGenParameterArray::SetEnumValue (name:JAILUTMode, value:LUT)"));
    EXPECT_TRUE(info_line("done: PvGenParameterArray::SetEnumValue (name:JAILUTMode, value:Gamma)"));
    EXPECT_TRUE(info_line("done: PvGenParameterArray::SetEnumValue (name:JAILUTMode, value:Off)"));
}

TEST_F(tone_curve, ARefusedModeIsMinus4) {
    cam()["JAILUTMode"].refuse_write();
    EXPECT_EQ(device().ExPropertySetLUTMode(lg_lut), -4);
    EXPECT_TRUE(
        warning("ExPropertySetLUTMode", "fail: PvGenParameterArray::SetEnumValue (name:JAILUTMode, value:LUT)"));
}

TEST_F(tone_curve, ReadsTheModeByItsEntrysName) {
    cam()["JAILUTMode"] = scripted::enumeration("Off", {"Off", "LUT", "Gamma", "Curve"});
    for (auto const& [value, mode] : {std::pair{0, lg_off}, {1, lg_lut}, {2, lg_gamma}, {3, lg_other}}) {
        cam()["JAILUTMode"].integer = value;
        EXPECT_EQ(device().ExPropertyGetLUTMode(), mode);
    }
    EXPECT_TRUE(info_line("### get LutGamma mode: \"Off\" ###"));
    EXPECT_TRUE(info_line("### get LutGamma mode: \"LUT\" ###"));
    EXPECT_TRUE(info_line("### get LutGamma mode: \"Gamma\" ###"));
    EXPECT_TRUE(info_line("### get LutGamma mode: \"Curve\" ###"));
}

TEST_F(tone_curve, AModeThatCantBeReadIsAnError) {
    cam()["JAILUTMode"].refuse_read();
    EXPECT_EQ(device().ExPropertyGetLUTMode(), lg_error);
    EXPECT_TRUE(warning("ExPropertyGetLUTMode", "can't get LutGamma mode"));
}

TEST_F(tone_curve, AnAbsentModeIsASilentError) {
    cam().features.erase("JAILUTMode");
    EXPECT_EQ(device().ExPropertyGetLUTMode(), lg_error);
    EXPECT_THAT(system_lines(), IsEmpty());
}

TEST_F(tone_curve, WithoutFeaturesEveryOperationFailsWithItsWarning) {
    auto& camera = device();
    camera.deviceParams = nullptr;
    float gamma = 0.5F;
    EXPECT_EQ(camera.ExPropertySetLUTMode(lg_lut), -1);
    EXPECT_EQ(camera.ExPropertyGetLUTMode(), lg_error);
    EXPECT_EQ(camera.ExPropertySetLUTValue(0, 0), -1);
    EXPECT_EQ(camera.ExPropertySetLUTChannel(0, 3), -1);
    EXPECT_EQ(camera.ExPropertyGetGammaRange(nullptr, nullptr), 1);
    EXPECT_EQ(camera.ExPropertySetGamma(0.5F), -1);
    EXPECT_EQ(camera.ExPropertyGetGamma(gamma), 1);
    EXPECT_EQ(gamma, 0.5F);
    EXPECT_TRUE(warning("ExPropertySetLUTMode", "can't get dev params to change LutGamma mode"));
    EXPECT_TRUE(warning("ExPropertyGetLUTMode", "can't get dev params to get LutGamma mode"));
    EXPECT_TRUE(warning("ExPropertySetLUTValue", "can't get dev params to set LUT value"));
    EXPECT_TRUE(warning("ExPropertySetLUTChannel", "can't get dev params to set LUT value"));
}

// ---- LUT ----------------------------------------------------------------------------------------

TEST_F(tone_curve, WritesAValueByIndexThenValue) {
    EXPECT_EQ(device().ExPropertySetLUTValue(17, 4095), 0);
    EXPECT_THAT(writes(),
                ElementsAre("PvGenInteger::SetValue(LUTIndex, 17)", "PvGenInteger::SetValue(LUTValue, 4095)"));
}

TEST_F(tone_curve, AMissingLutFeatureIsASilentMinus2) {
    cam().features.erase("LUTValue");
    EXPECT_EQ(device().ExPropertySetLUTValue(1, 2), -2);
    cam()["LUTValue"] = scripted::integer(0);
    cam().features.erase("LUTIndex");
    EXPECT_EQ(device().ExPropertySetLUTValue(1, 2), -2);
    EXPECT_THAT(system_lines(), IsEmpty());
}

TEST_F(tone_curve, ARefusedIndexOrValueIsMinus4) {
    cam()["LUTIndex"].refuse_write();
    EXPECT_EQ(device().ExPropertySetLUTValue(256, 2), -4);
    cam()["LUTIndex"].refuse_write(scripted::ok);
    cam()["LUTValue"].refuse_write();
    EXPECT_EQ(device().ExPropertySetLUTValue(1, 4096), -4);
    EXPECT_TRUE(warning("ExPropertySetLUTValue", "can't set LUT index to 256"));
    EXPECT_TRUE(warning("ExPropertySetLUTValue", "can't set LUT value to 4096"));
}

TEST_F(tone_curve, SelectsAChannelByItsLetter) {
    for (int channel = 0; channel < 4; ++channel) {
        EXPECT_EQ(device().ExPropertySetLUTChannel(channel, 3), 0);
    }
    EXPECT_THAT(writes(), ElementsAre("PvGenEnum::SetValue(LUTSelector, R)", "PvGenEnum::SetValue(LUTSelector, G)",
                                      "PvGenEnum::SetValue(LUTSelector, B)", "PvGenEnum::SetValue(LUTSelector, B)"));
}

TEST_F(tone_curve, ExPropertySetLUTChannelOf2With1ChannelDoesNothingAndReturns0) {
    EXPECT_EQ(device().ExPropertySetLUTChannel(2, 1), 0);
    EXPECT_THAT(writes(), IsEmpty());
}

TEST_F(tone_curve, AMissingOrRefusedSelectorIsAWarning) {
    cam()["LUTSelector"].refuse_write();
    EXPECT_EQ(device().ExPropertySetLUTChannel(1, 3), -4);
    cam().features.erase("LUTSelector");
    EXPECT_EQ(device().ExPropertySetLUTChannel(1, 3), -2);
    EXPECT_TRUE(warning("ExPropertySetLUTChannel", "can't set LUTSelector to \"G\""));
    EXPECT_TRUE(warning("ExPropertySetLUTChannel", "can't get LUTSelector parameter"));
}

// ---- Gamma range --------------------------------------------------------------------------------

TEST_F(tone_curve, EntriesNamedGamma045And060And100GiveTheirValues) {
    gammas({"Gamma045", "Gamma060", "Gamma100"});
    float min = 0.0F;
    float max = 0.0F;
    EXPECT_EQ(device().ExPropertyGetGammaRange(&min, &max), 0);
    EXPECT_THAT(device().gammaValues, ElementsAre(FloatEq(0.45F), FloatEq(0.6F), FloatEq(1.0F)));
    EXPECT_FLOAT_EQ(min, 0.45F);
    EXPECT_FLOAT_EQ(max, 1.0F);
    EXPECT_TRUE(info_line("### Gamma range: min=0.450000 max=1.000000 ###"));
}

TEST_F(tone_curve, TheRangeIsReadOnce) {
    gammas({"Gamma045", "Gamma060"});
    device().ExPropertyGetGammaRange(nullptr, nullptr);
    support::journal().clear();
    gammas({"Gamma100"});
    float max = 0.0F;
    EXPECT_EQ(device().ExPropertyGetGammaRange(nullptr, &max), 0);
    EXPECT_FLOAT_EQ(max, 0.6F);
    EXPECT_THAT(support::journal().calls(), IsEmpty());
}

TEST_F(tone_curve, WithEntriesInDescendingOrderTheMinimumIsTheLargestValueAndTheBoundsRejectNearlyEverything) {
    gammas({"Gamma100", "Gamma060", "Gamma045"});
    device().ExPropertyGetGammaRange(nullptr, nullptr);
    EXPECT_FLOAT_EQ(device().gammaMin, 1.0F);
    EXPECT_FLOAT_EQ(device().gammaMax, 0.45F);
    EXPECT_EQ(device().ExPropertySetGamma(0.6F), -6);
}

TEST_F(tone_curve, AnEntryWhoseNameHoldsNoDigitConvertsTo0) {
    gammas({"Linear", "Gamma1", "22"});
    device().ExPropertyGetGammaRange(nullptr, nullptr);
    EXPECT_THAT(device().gammaValues, ElementsAre(0.0F, 1.0F, FloatEq(2.2F)));
}

TEST_F(tone_curve, ANumberThatOverflowsIsMinus9AndKeepsTheValuesBeforeIt) {
    // Digits after "0." can only underflow: 0.000...1 with more zeros than a float can represent.
    gammas({"Gamma045", "Gamma" + std::string(60, '0') + "1", "Gamma100"});
    EXPECT_EQ(device().ExPropertyGetGammaRange(nullptr, nullptr), -9);
    EXPECT_THAT(device().gammaValues, ElementsAre(FloatEq(0.45F)));
    EXPECT_FALSE(device().gammaRangeKnown);
    EXPECT_TRUE(warning("ExPropertyGetGammaRange", "Gamma enum (idx=1) conversion (strtof (\"0." +
                                                       std::string(59, '0') +
                                                       "1\")) errno: 'Numerical result out of range', errChars: ''"));
}

/// A locale with a decimal comma as the process's own, built here: a machine need not have one installed.
class decimal_comma {
public:
    decimal_comma() {
        std::ofstream(directory_.path() / "source") << "LC_NUMERIC\n"
                                                       "decimal_point \",\"\n"
                                                       "thousands_sep \"\"\n"
                                                       "grouping -1\n"
                                                       "END LC_NUMERIC\n";
        // The other categories are missing: -c writes the locale nevertheless, the result is 1.
        std::string const build =
            "cd '" + directory_.path().string() + "' && PATH=$PATH:/usr/bin localedef -c -i source ./comma 2>messages";
        if (std::system(build.c_str()) == -1) {
            return;
        }
        setenv("LOCPATH", directory_.path().c_str(), 1);
        active_ = setlocale(LC_NUMERIC, "comma") != nullptr && localeconv()->decimal_point == std::string(",");
    }
    ~decimal_comma() {
        setlocale(LC_NUMERIC, "C");
        unsetenv("LOCPATH");
    }
    decimal_comma(decimal_comma const&) = delete;
    decimal_comma& operator=(decimal_comma const&) = delete;
    bool active() const { return active_; }

private:
    temporary_directory directory_;
    bool active_ = false;
};

TEST_F(tone_curve, APartlyFilledCacheIsUsedForReadingAndRefusedForSetting) {
    gammas({"Gamma045", "Gamma060", "Gamma" + std::string(60, '0') + "1"});
    ASSERT_EQ(device().ExPropertyGetGammaRange(nullptr, nullptr), -9);
    ASSERT_EQ(device().gammaValues.size(), 2u);
    float gamma = 7.0F;
    cam()["JAIGamma"].integer = 1;
    EXPECT_EQ(device().ExPropertyGetGamma(gamma), 0);
    EXPECT_FLOAT_EQ(gamma, 0.6F);
    cam()["JAIGamma"].integer = 2;
    EXPECT_EQ(device().ExPropertyGetGamma(gamma), -3);
    EXPECT_EQ(device().ExPropertySetGamma(0.5F), -5) << "the range is not known";
    cam()["JAILUTMode"].integer = 0;
    EXPECT_EQ(device().ExPropertySetGamma(0.5F), -7);
    EXPECT_TRUE(warning("ExPropertySetGamma", "Can't get/convert Gamma available values: 3 vs 2"));
}

TEST_F(tone_curve, TheHostsLocaleDoesNotMatter) {
    decimal_comma const locale;
    ASSERT_TRUE(locale.active());
    gammas({"Gamma045", "Gamma100"});
    EXPECT_EQ(device().ExPropertyGetGammaRange(nullptr, nullptr), 0);
    EXPECT_FLOAT_EQ(device().gammaMin, 0.45F);
}

TEST_F(tone_curve, ARangeThatCantBeReadHasItsCode) {
    cam()["JAILUTMode"].refuse_read();
    EXPECT_EQ(device().ExPropertyGetGammaRange(nullptr, nullptr), 1);
    gammas({"Gamma045"});
    cam().features.erase("JAIGamma");
    EXPECT_EQ(device().ExPropertyGetGammaRange(nullptr, nullptr), -2);
    gammas({"Gamma045"});
    cam()["JAIGamma"].entries.clear();
    EXPECT_EQ(device().ExPropertyGetGammaRange(nullptr, nullptr), -3);
    EXPECT_TRUE(warning("ExPropertyGetGammaRange", "Can't get Gamma available values"));
}

TEST_F(tone_curve, AnEntryThatCantBeReadIsMinus5AndOneWithoutANameMinus7) {
    gammas({"Gamma045"});
    cam()["JAIGamma"].entry_result = scripted::refused;
    EXPECT_EQ(device().ExPropertyGetGammaRange(nullptr, nullptr), -5);
    disconnect();
    gammas({"Gamma045", ""});
    EXPECT_EQ(device().ExPropertyGetGammaRange(nullptr, nullptr), -7);
}

// ---- Setting gamma ------------------------------------------------------------------------------

TEST_F(tone_curve, WithValues045And06And1Requesting05Selects045Requesting105Selects1Requesting107IsOutOfBounds) {
    gammas({"Gamma045", "Gamma060", "Gamma100"});
    EXPECT_EQ(device().ExPropertySetGamma(0.5F), 0);
    EXPECT_EQ(device().ExPropertySetGamma(1.05F), 0);
    EXPECT_EQ(device().ExPropertySetGamma(1.07F), -6);
    EXPECT_THAT(writes(), ElementsAre("PvGenEnum::SetValue(JAIGamma, 0)", "PvGenEnum::SetValue(JAIGamma, 2)"));
    EXPECT_TRUE(info_line("### set Gamma value: 0.450000 ###"));
    EXPECT_TRUE(info_line("### set Gamma value: 1.000000 ###"));
    EXPECT_TRUE(warning("ExPropertySetGamma", "Asked Gamma value 1.070000 is out of bounds [0.450000..1.000000]"));
}

TEST_F(tone_curve, AGammaMayDifferBy006FromTheRange) {
    gammas({"Gamma045", "Gamma100"});
    EXPECT_EQ(device().ExPropertySetGamma(1.059F), 0);
    EXPECT_EQ(device().ExPropertySetGamma(1.061F), -6);
    EXPECT_EQ(device().ExPropertySetGamma(0.391F), 0);
    EXPECT_EQ(device().ExPropertySetGamma(0.389F), -6);
}

TEST_F(tone_curve, AGammaBelowTheRangeIsOutOfBounds) {
    gammas({"Gamma045", "Gamma060"});
    EXPECT_EQ(device().ExPropertySetGamma(0.38F), -6);
    EXPECT_EQ(device().ExPropertySetGamma(0.40F), 0);
}

TEST_F(tone_curve, WithValues05And1Requesting075IsATieAndSelects1) {
    gammas({"Gamma050", "Gamma100"});
    EXPECT_EQ(device().ExPropertySetGamma(0.75F), 0);
    EXPECT_THAT(writes(), ElementsAre("PvGenEnum::SetValue(JAIGamma, 1)"));
}

TEST_F(tone_curve, TheFirstPairThatQualifiesIsTaken) {
    gammas({"Gamma045", "Gamma060", "Gamma100"});
    // 0.64 is within 0.06 of 0.6, so both pairs qualify.
    EXPECT_EQ(device().ExPropertySetGamma(0.64F), 0);
    EXPECT_THAT(writes(), ElementsAre("PvGenEnum::SetValue(JAIGamma, 1)"));
}

TEST_F(tone_curve, ASingleEntryNeverMatches) {
    gammas({"Gamma045"});
    EXPECT_EQ(device().ExPropertySetGamma(0.45F), -3);
    EXPECT_THAT(writes(), IsEmpty());
}

TEST_F(tone_curve, NotANumberMatchesNoEntry) {
    gammas({"Gamma045", "Gamma060", "Gamma100"});
    EXPECT_EQ(device().ExPropertySetGamma(std::nanf("")), -3);
    EXPECT_THAT(writes(), IsEmpty());
}

TEST_F(tone_curve, WhenTheModeWasNotGammaAndTheCacheWasNeverFilledSettingSwitchesTheModeAndFailsWithMinus7) {
    gammas({"Gamma045", "Gamma060", "Gamma100"}, "Off");
    EXPECT_EQ(device().ExPropertySetGamma(0.5F), -7);
    EXPECT_THAT(writes(), ElementsAre("SetEnumValue(JAILUTMode, Gamma)"));
    EXPECT_TRUE(info_line("### Gamma feature is disabled ###"));
    EXPECT_TRUE(warning("ExPropertySetGamma", "Can't get/convert Gamma available values: 3 vs 0"));
}

TEST_F(tone_curve, AfterASwitchOfTheModeTheBoundsAreNotChecked) {
    gammas({"Gamma045", "Gamma060", "Gamma100"}, "Off");
    device().ExPropertyGetGammaRange(nullptr, nullptr);
    EXPECT_EQ(device().ExPropertySetGamma(1.07F), -3) << "it just matches nothing";
}

TEST_F(tone_curve, AModeThatCantBeSwitchedIsMinus4) {
    gammas({"Gamma045"}, "Off");
    cam()["JAILUTMode"].refuse_write();
    EXPECT_EQ(device().ExPropertySetGamma(0.45F), -4);
    EXPECT_TRUE(warning("ExPropertySetGamma", "Can't enable Gamma feature"));
}

TEST_F(tone_curve, FailuresOfSettingHaveTheirCodes) {
    cam()["JAILUTMode"].refuse_read();
    EXPECT_EQ(device().ExPropertySetGamma(0.45F), -1);
    gammas({"Gamma045"});
    cam()["JAIGamma"].entries.clear();
    EXPECT_EQ(device().ExPropertySetGamma(0.45F), -5);
    gammas({"Gamma045", "Gamma060"});
    disconnect();
    device().ExPropertyGetGammaRange(nullptr, nullptr);
    cam()["JAIGamma"].refuse_write();
    EXPECT_EQ(device().ExPropertySetGamma(0.45F), -8);
    cam().features.erase("JAIGamma");
    EXPECT_EQ(device().ExPropertySetGamma(0.45F), -2);
    EXPECT_TRUE(warning("ExPropertySetGamma", "Can't get Gamma range"));
    EXPECT_TRUE(warning("ExPropertySetGamma", "Can't set Gamma value to 0.450000"));
    EXPECT_TRUE(warning("ExPropertySetGamma", "Can't get Gamma enum parameter"));
}

// ---- Reading gamma ------------------------------------------------------------------------------

TEST_F(tone_curve, ReadsTheGammaInForce) {
    gammas({"Gamma045", "Gamma060", "Gamma100"});
    cam()["JAIGamma"].integer = 1;
    float gamma = 0.0F;
    EXPECT_EQ(device().ExPropertyGetGamma(gamma), 0);
    EXPECT_FLOAT_EQ(gamma, 0.6F);
    EXPECT_TRUE(info_line("### get Gamma value: 0.600000 (enum idx=1)) ###"));
}

TEST_F(tone_curve, WhileTheCameraAppliesNoGammaTheOutputIsUntouched) {
    gammas({"Gamma045"}, "LUT");
    float gamma = 7.0F;
    EXPECT_EQ(device().ExPropertyGetGamma(gamma), 0);
    EXPECT_EQ(gamma, 7.0F);
    EXPECT_TRUE(info_line("### get LutGamma mode: \"LUT\" ###"));
    EXPECT_TRUE(info_line("### Gamma feature is disabled ###"));
}

TEST_F(tone_curve, FailuresOfReadingHaveTheirCodes) {
    float gamma = 7.0F;
    cam()["JAILUTMode"].refuse_read();
    EXPECT_EQ(device().ExPropertyGetGamma(gamma), 1);
    gammas({"Gamma045"});
    cam()["JAIGamma"].entries.clear();
    EXPECT_EQ(device().ExPropertyGetGamma(gamma), -1);
    disconnect();
    gammas({"Gamma045"});
    device().ExPropertyGetGammaRange(nullptr, nullptr);
    cam()["JAIGamma"].refuse_read();
    EXPECT_EQ(device().ExPropertyGetGamma(gamma), -3);
    cam().features.erase("JAIGamma");
    EXPECT_EQ(device().ExPropertyGetGamma(gamma), -2);
    EXPECT_EQ(gamma, 7.0F);
    EXPECT_TRUE(warning("ExPropertyGetGamma", "can't get LutGamma mode"));
    EXPECT_TRUE(warning("ExPropertyGetGamma", "Can't get Gamma range"));
    EXPECT_TRUE(warning("ExPropertyGetGamma", "Can't get Gamma enum value"));
    EXPECT_TRUE(warning("ExPropertyGetGamma", "Can't get Gamma enum parameter"));
}

TEST_F(tone_curve, AnEnumerationValueOutsideTheGammaValuesCantBeRead) {
    gammas({"Gamma045", "Gamma060"});
    float gamma = 7.0F;
    for (int64_t const value : {int64_t{2}, int64_t{-1}, INT64_MAX}) {
        cam()["JAIGamma"].integer = value;
        EXPECT_EQ(device().ExPropertyGetGamma(gamma), -3);
    }
    EXPECT_EQ(gamma, 7.0F);
}

}  // namespace
