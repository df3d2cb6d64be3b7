// SPDX-License-Identifier: MIT
#include <cmath>

#include "jai_kernel/kernel_test.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

struct gamma_setting : plugin_test::kernel_fixture {
    gamma_setting() { gammas({"Gamma045", "Gamma060", "Gamma100"}, "Gamma"); }
    void gammas(std::vector<std::string> const& entries, std::string const& mode) {
        cam()["JAIGamma"] = scripted::enumeration(entries.front(), entries);
        cam()["JAILUTMode"] = scripted::enumeration(mode, {"Off", "LUT", "Gamma"});
    }
    void set(float gamma, bool restart = false) {
        host().gamma = gamma;
        kernel.SetupCamGamma(&device(), restart);
    }
    bool warning(std::string const& text) { return logged(level::warning, "SetupCamGamma", tag, text); }
    bool info_line(std::string const& text) { return logged(level::info, "", tag, text); }
};

TEST_F(gamma_setting, GammaMinus1IsSkippedWithoutTouchingTheCamera) {
    for (float const unset : {-1.0F, -1.0009F, -0.9991F}) {
        set(unset);
    }
    EXPECT_THAT(support::journal().calls(), IsEmpty());
    EXPECT_TRUE(info_line("Gamma settings handler entry val: Gamma -1.000000"));
    EXPECT_TRUE(info_line("  Gamma config is skipped"));
    EXPECT_EQ(system_lines().size(), 6u);
}

TEST_F(gamma_setting, AGammaThatTheCameraOffersIsSetAndRemembered) {
    kernel.currentGamma = 0.45F;
    set(0.6F);
    EXPECT_THAT(writes(), ElementsAre("PvGenEnum::SetValue(JAIGamma, 1)"));
    EXPECT_EQ(kernel.currentGamma, 0.6F);
    EXPECT_TRUE(info_line("  cur Gamma val is 0.450000 (min 0.450000, max 1.000000)"));
    EXPECT_TRUE(info_line("  new Gamma val is 0.600000"));
}

TEST_F(gamma_setting, TheRequestedGammaIsReportedNotTheNearestOne) {
    set(0.5F);
    EXPECT_EQ(cam()["JAIGamma"].integer, 0);
    EXPECT_EQ(kernel.currentGamma, 0.5F);
    EXPECT_TRUE(info_line("  new Gamma val is 0.500000"));
}

TEST_F(gamma_setting, WithoutASupportedGammaTheWarningHasNoLineEnd) {
    cam().features.erase("JAIGamma");
    set(0.6F);
    ASSERT_EQ(system_lines().size(), 3u);
    EXPECT_EQ(system_lines().back(), "[w|SetupCamGamma]   Gamma is not supported for this device");
    EXPECT_THAT(standard_output(), testing::EndsWith("[MG_JAI_PROC:w]:   Gamma is not supported for this device"));
}

TEST_F(gamma_setting, GammaBelowTheRangeIsNotAllowed) {
    set(0.449F);
    EXPECT_THAT(writes(), IsEmpty());
    EXPECT_TRUE(warning("  asked Gamma val 0.449000 is not allowed, skipped"));
}

TEST_F(gamma_setting, Gamma1OnACameraWhoseRangeStartsAbove1IsRefusedAsNotAllowed) {
    gammas({"Gamma15", "Gamma22"}, "Gamma");
    set(1.0F);
    EXPECT_THAT(writes(), IsEmpty());
    EXPECT_TRUE(warning("  asked Gamma val 1.000000 is not allowed, skipped"));
}

TEST_F(gamma_setting, Gamma1SwitchesGammaOff) {
    kernel.currentGamma = 0.6F;
    set(1.0F, true);
    EXPECT_THAT(writes(),
                ElementsAre("Execute(AcquisitionStop)", "SetEnumValue(JAILUTMode, Off)", "Execute(AcquisitionStart)"));
    EXPECT_EQ(kernel.currentGamma, 0.6F) << "not changed";
    EXPECT_TRUE(info_line("  Gamma control is turned off"));
}

TEST_F(gamma_setting, Gamma1WithTheCameraInLutModeLeavesTheModeYetLogsThatItIsTurnedOff) {
    gammas({"Gamma045", "Gamma100"}, "LUT");
    set(1.0009F, true);
    EXPECT_THAT(writes(), IsEmpty());
    EXPECT_TRUE(info_line("  Gamma control is turned off"));
}

TEST_F(gamma_setting, GammaSlightlyAboveTheMaximumPassesAndMatchesTheLastEntry) {
    set(1.005F);
    EXPECT_THAT(writes(), ElementsAre("PvGenEnum::SetValue(JAIGamma, 2)"));
    EXPECT_EQ(kernel.currentGamma, 1.005F);
}

TEST_F(gamma_setting, GammaBeyondThatExceedsTheMaximum) {
    set(1.02F);
    EXPECT_THAT(writes(), IsEmpty());
    EXPECT_TRUE(warning("  asked Gamma val 1.020000 exceeds max 1.000000, skipped"));
}

TEST_F(gamma_setting, NotANumberPassesTheRangeAndMatchesNoEntryOfTheCamera) {
    kernel.currentGamma = 0.6F;
    set(std::nanf(""), true);
    EXPECT_THAT(writes(), ElementsAre("Execute(AcquisitionStop)", "Execute(AcquisitionStart)"))
        << "the value is tried, but matches no entry of the camera";
    EXPECT_EQ(kernel.currentGamma, 0.6F);
    EXPECT_FALSE(mentioned("new Gamma val"));
}

TEST_F(gamma_setting, CaptureIsPausedForAWrite) {
    set(0.6F, true);
    EXPECT_THAT(writes(), ElementsAre("Execute(AcquisitionStop)", "PvGenEnum::SetValue(JAIGamma, 1)",
                                      "Execute(AcquisitionStart)"));
}

TEST_F(gamma_setting, AFailedWriteRestartsCaptureAndIsNotRemembered) {
    cam()["JAIGamma"].refuse_write();
    set(0.6F, true);
    EXPECT_EQ(writes().back(), "Execute(AcquisitionStart)");
    EXPECT_EQ(kernel.currentGamma, 0.0F);
    EXPECT_FALSE(mentioned("new Gamma val"));
}

// ---- Rotation -----------------------------------------------------------------------------------

struct rotation_setting : plugin_test::kernel_fixture {
    void set(int32_t rotate) {
        host().rotate = rotate;
        kernel.ProcParametrizeCamRotate(&device());
    }
};

TEST_F(rotation_setting, Rotate2TurnsItOnRotate1And3Off) {
    set(2);
    EXPECT_EQ(kernel.swRotate, 1);
    set(1);
    EXPECT_EQ(kernel.swRotate, 0);
    set(2);
    set(3);
    EXPECT_EQ(kernel.swRotate, 0);
    EXPECT_TRUE(logged(level::info, "", tag, "Rotate settings handler entry val: Rotate 2"));
    EXPECT_TRUE(logged(level::info, "", tag, "  cur swRotate val is: 0"));
    EXPECT_TRUE(logged(level::info, "", tag, "  new swRotate val is: 1"));
}

TEST_F(rotation_setting, Rotate0LeavesItUnchanged) {
    set(2);
    set(0);
    EXPECT_EQ(kernel.swRotate, 1);
    EXPECT_TRUE(logged(level::info, "", tag, "  Rotate config is skipped"));
    set(-5);
    EXPECT_EQ(kernel.swRotate, 0);
}

}  // namespace
