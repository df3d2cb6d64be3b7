// SPDX-License-Identifier: MIT
#include "grabcontrol_like.hpp"

#include <cmath>

#include "errors.hpp"
#include "feature_test.hpp"
#include "jai_property_bag/property_bag.hpp"

namespace {

using plugin_test::level;
using namespace Vorn::Support;
using namespace Vorn::Support::MediaGrabber::Jai;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char tag[] = "JAI_GC";

struct grab_control : plugin_test::feature_fixture {
    std::unique_ptr<grabcontrol_like> block = GrabControl__Create(&provider);
    property_bag bag;

    bool warning(std::string const& text) { return logged(level::warning, "setup", tag, text); }
    void expect_refused() {
        EXPECT_THROW(block->setup(bag), params_error);
        EXPECT_THAT(writes(), IsEmpty());
    }
};

TEST_F(grab_control, AnEmptyBagWritesNothing) {
    block->setup(bag);
    EXPECT_THAT(support::journal().calls(), IsEmpty());
}

TEST_F(grab_control, ABagWithOnlyAutoGainWritesGainAutoAndNothingElse) {
    bag.setBool(property::auto_gain, true);
    block->setup(bag);
    EXPECT_THAT(writes(), ElementsAre("SetEnumValue(GainAuto, Continuous)"));
}

TEST_F(grab_control, AutoGainMin0DbGivesRaw100And6DbGivesRaw199) {
    bag.setDouble(property::auto_gain_min, 0.0);
    block->setup(bag);
    bag.setDouble(property::auto_gain_min, 6.0);
    block->setup(bag);
    EXPECT_THAT(writes(), ElementsAre("SetIntegerValue(AutoGainControlGainRawMin, 100)",
                                      "SetIntegerValue(AutoGainControlGainRawMin, 199)"));
}

TEST_F(grab_control, EqualGainLimitsAreRefusedWithBothRawValues199AndNothingIsWritten) {
    bag.setDouble(property::auto_gain_min, 6.0);
    bag.setDouble(property::auto_gain_max, 6.0);
    bag.setBool(property::auto_gain, true);
    expect_refused();
    EXPECT_TRUE(warning("fail: params_error (min-gain:199, max-gain:199)"));
}

TEST_F(grab_control, LimitsInTheWrongOrderAreRefused) {
    bag.setDouble(property::auto_gain_min, 12.0);
    bag.setDouble(property::auto_gain_max, 6.0);
    expect_refused();
    EXPECT_TRUE(warning("fail: params_error (min-gain:398, max-gain:199)"));
}

TEST_F(grab_control, OnlyAutoGainMaxIsValidatedAndWrittenAlone) {
    bag.setDouble(property::auto_gain_max, 6.0);
    block->setup(bag);
    EXPECT_THAT(writes(), ElementsAre("SetIntegerValue(AutoGainControlGainRawMax, 199)"));
}

TEST_F(grab_control, GainLimitsTheCameraDoesNotHaveAreRefused) {
    bag.setDouble(property::auto_gain_min, -1.0);
    bag.setBool(property::auto_gain, true);
    expect_refused();
    bag = {};
    bag.setDouble(property::auto_gain_min, 6.0);
    bag.setDouble(property::auto_gain_max, 40.0);
    expect_refused();
    EXPECT_TRUE(warning("fail: auto_gain_min_param::validate"));
    EXPECT_TRUE(warning("fail: auto_gain_max_param::validate"));
}

TEST_F(grab_control, EachLimitIsComparedWithTheLimitsOfItsOwnFeature) {
    cam()["AutoGainControlGainRawMin"].max = 150;
    cam()["AutoGainControlGainRawMax"].min = 151;
    cam()["AutoShutterControlExposureMin"].max = 150;
    cam()["AutoShutterControlExposureMax"].min = 151;
    bag.setDouble(property::auto_gain_min, 0.0);
    bag.setDouble(property::auto_gain_max, 6.0);
    bag.setInt64(property::auto_exposure_min, 100);
    bag.setInt64(property::auto_exposure_max, 199);
    block->setup(bag);
    EXPECT_THAT(writes(), ElementsAre("SetIntegerValue(AutoGainControlGainRawMin, 100)",
                                      "SetIntegerValue(AutoGainControlGainRawMax, 199)",
                                      "SetIntegerValue(AutoShutterControlExposureMin, 100)",
                                      "SetIntegerValue(AutoShutterControlExposureMax, 199)"));
}

TEST_F(grab_control, AGainLimitThatDoesNotFitAnIntegerIsRefused) {
    bag.setDouble(property::auto_gain_max, 1e9);
    expect_refused();
    bag.setDouble(property::auto_gain_max, std::nan(""));
    expect_refused();
}

TEST_F(grab_control, ExposureLimitsTheCameraDoesNotHaveAreRefused) {
    bag.setInt64(property::auto_exposure_min, 9);
    expect_refused();
    bag = {};
    bag.setInt64(property::auto_exposure_max, 1'000'001);
    expect_refused();
    EXPECT_TRUE(warning("fail: auto_exposure_min_param::validate"));
    EXPECT_TRUE(warning("fail: auto_exposure_max_param::validate"));
}

TEST_F(grab_control, ExposureLimitsThatAreEqualOrInTheWrongOrderAreRefused) {
    bag.setInt64(property::auto_exposure_min, 500);
    bag.setInt64(property::auto_exposure_max, 500);
    expect_refused();
    EXPECT_TRUE(warning("fail: params_error (min-exposure:500, max-exposure:500)"));
}

TEST_F(grab_control, WritesEverythingInOrder) {
    bag.setDouble(property::manual_exposure, 123.5);
    bag.setDouble(property::manual_gain_db, 0.0);
    bag.setInt64(property::auto_exposure_max, 900);
    bag.setInt64(property::auto_exposure_min, 800);
    bag.setDouble(property::auto_gain_max, 12.0);
    bag.setDouble(property::auto_gain_min, 0.0);
    bag.setInt64(property::auto_target, 70);
    bag.setBool(property::auto_area_enable, false);
    bag.setBool(property::auto_exposure, false);
    bag.setBool(property::auto_gain, true);
    block->setup(bag);
    EXPECT_THAT(writes(), ElementsAre("SetEnumValue(GainAuto, Continuous)", "SetEnumValue(ExposureAuto, Off)",
                                      "SetEnumValue(ALCAreaEnable, Off)", "SetIntegerValue(ALCReference, 70)",
                                      "SetIntegerValue(AutoGainControlGainRawMin, 100)",
                                      "SetIntegerValue(AutoGainControlGainRawMax, 398)",
                                      "SetIntegerValue(AutoShutterControlExposureMin, 800)",
                                      "SetIntegerValue(AutoShutterControlExposureMax, 900)",
                                      "SetEnumValue(GainSelector, AnalogAll)", "SetFloatValue(Gain, 1)",
                                      "SetFloatValue(ExposureTime, 123.5)"));
}

TEST_F(grab_control, AFailingWriteLeavesEarlierOnesApplied) {
    bag.setBool(property::auto_gain, true);
    bag.setInt64(property::auto_target, 70);
    bag.setDouble(property::manual_exposure, 123.5);
    cam()["ALCReference"].refuse_write();
    EXPECT_THROW(block->setup(bag), internal_error);
    EXPECT_EQ(cam()["GainAuto"].entry_name(), "Continuous");
    EXPECT_THAT(calls({"SetFloatValue"}), IsEmpty());
}

TEST_F(grab_control, ManualGain12DbWritesAFactorOfAbout3Point981AfterSelectingAnalogAll) {
    bag.setDouble(property::manual_gain_db, 12.0);
    block->setup(bag);
    EXPECT_EQ(cam()["Gain"].real, double{powf(10.0F, 12.0F / 20.0F)});
    EXPECT_THAT(writes(), ElementsAre("SetEnumValue(GainSelector, AnalogAll)", "SetFloatValue(Gain, 3.98107)"));
}

TEST_F(grab_control, AManualGainWithoutFeaturesIsAnInternalError) {
    bag.setDouble(property::manual_gain_db, 0.0);
    provider.available = false;
    EXPECT_THROW(block->setup(bag), internal_error);
    EXPECT_TRUE(logged(level::error, "", tag, "fail: param_provider_like::getDevParams"));
}

TEST_F(grab_control, AManualGainWhoseSelectorIsRefusedIsAnInternalError) {
    bag.setDouble(property::manual_gain_db, 0.0);
    cam()["GainSelector"].refuse_write(PvResult::Code::NOT_SUPPORTED);
    EXPECT_THROW(block->setup(bag), internal_error);
    EXPECT_TRUE(logged(level::error, "", tag,
                       "fail: SetEnumValue (name:GainSelector, value:AnalogAll, result:<NOT_SUPPORTED>)"));
    EXPECT_THAT(calls({"SetFloatValue"}), IsEmpty());
}

TEST_F(grab_control, AnExposureOfZeroOrLessIsRefusedByTheParameter) {
    bag.setDouble(property::manual_exposure, 0.0);
    cam()["ExposureTime"].real_min = -1.0;
    EXPECT_THROW(block->setup(bag), external_error);
}

TEST_F(grab_control, GetManualGainDbWithGainAt1Returns0) {
    cam()["Gain"].real = 1.0;
    EXPECT_EQ(block->getManualGainDb(), 0.0);
    EXPECT_THAT(calls({"SetEnumValue", "GetFloatValue"}),
                ElementsAre("SetEnumValue(GainSelector, AnalogAll)", "GetFloatValue(Gain)"));
}

TEST_F(grab_control, TheGainInDbIsComputedInSinglePrecision) {
    cam()["Gain"].real = 3.981;
    EXPECT_EQ(block->getManualGainDb(), double{20.0F * log10f(3.981F)});
}

TEST_F(grab_control, GetManualGainDbReportsItsFailures) {
    cam()["GainSelector"].refuse_write();
    EXPECT_THROW(block->getManualGainDb(), internal_error);
    provider.available = false;
    EXPECT_THROW(block->getManualGainDb(), internal_error);
    EXPECT_TRUE(logged(level::error, "", tag,
                       "fail: SetEnumValue (name:GainSelector, value:AnalogAll, result:<GENERIC_ERROR>)"));
    EXPECT_TRUE(logged(level::error, "", tag, "fail: param_provider_like::getDevParams"));
}

TEST_F(grab_control, GetManualExposureIsTheExposureTime) {
    EXPECT_EQ(block->getManualExposure(), 10'000.0);
    cam()["ExposureTime"].refuse_read();
    EXPECT_THROW(block->getManualExposure(), internal_error);
}

}  // namespace
