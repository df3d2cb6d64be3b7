// SPDX-License-Identifier: MIT
#include "ebus/double_param.hpp"

#include <cfloat>
#include <cmath>

#include "errors.hpp"
#include "feature_test.hpp"

namespace {

using namespace Vorn::Support;
using namespace Vorn::Support::MediaGrabber::Jai;
using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char tag[] = "JAI_PARAMS";

struct double_param : plugin_test::feature_fixture {
    rw_double_param param{&provider, "Gain"};
    scripted::feature& feature() { return cam()["Gain"]; }
    double_param() { feature() = scripted::real(2.5, 1.0, 16.0); }
    bool warning(std::string const& operation, std::string const& text) {
        return logged(level::warning, operation, tag, text);
    }
    bool error(std::string const& text) { return logged(level::error, "", tag, text); }
};

TEST_F(double_param, ReadsItsValueWithoutAMessage) {
    EXPECT_EQ(param.getValue(), 2.5);
    EXPECT_THAT(system_lines(), IsEmpty());
}

TEST_F(double_param, ReadingWithoutFeaturesIsAnInternalError) {
    provider.available = false;
    EXPECT_THROW(param.getValue(), internal_error);
    EXPECT_TRUE(error("fail: param_provider_like::getDevParams"));
}

TEST_F(double_param, AFailedReadIsAnInternalErrorThatNamesTheResult) {
    feature().refuse_read(PvResult::Code::TIMEOUT);
    EXPECT_THROW(param.getValue(), internal_error);
    EXPECT_TRUE(error("fail: PvGenParameterArray::GetFloatValue (name:Gain, result:<TIMEOUT>)"));
}

TEST_F(double_param, HardLimitsAreReadOnceAndKept) {
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(param.getHardMin(), 1.0);
        EXPECT_EQ(param.getHardMax(), 16.0);
        feature().real_min = 9.0;
        feature().real_max = 9.0;
    }
    EXPECT_THAT(calls({"PvGenFloat::Get"}), ElementsAre("PvGenFloat::GetMin(Gain)", "PvGenFloat::GetMax(Gain)"));
    EXPECT_TRUE(logged(level::debug, "getHardMin", tag, "done: name:Gain, hard-min:1.000000"));
    EXPECT_TRUE(logged(level::debug, "getHardMax", tag, "done: name:Gain, hard-max:16.000000"));
}

TEST_F(double_param, HardLimitsThatCantBeReadAreUnboundedAndReadAgain) {
    provider.available = false;
    EXPECT_EQ(param.getHardMin(), DBL_MIN);
    EXPECT_EQ(param.getHardMax(), DBL_MAX);
    provider.available = true;
    feature().min_result = feature().max_result = PvResult::Code::NOT_SUPPORTED;
    EXPECT_EQ(param.getHardMin(), DBL_MIN);
    EXPECT_EQ(param.getHardMax(), DBL_MAX);
    feature().min_result = feature().max_result = scripted::ok;
    EXPECT_EQ(param.getHardMin(), 1.0);
    EXPECT_EQ(param.getHardMax(), 16.0);
    EXPECT_TRUE(warning("getHardMin", "fail: param_provider_like::getDevParams"));
    EXPECT_TRUE(warning("getHardMax", "fail: param_provider_like::getDevParams"));
    EXPECT_TRUE(warning("getHardMin", "fail: PvGenFloat::GetMin (name:Gain, result:<NOT_SUPPORTED>)"));
    EXPECT_TRUE(warning("getHardMax", "fail: PvGenFloat::GetMax (name:Gain, result:<NOT_SUPPORTED>)"));
}

TEST_F(double_param, HardLimitsOfAnAbsentFeatureAreUnbounded) {
    cam().features.erase("Gain");
    EXPECT_EQ(param.getHardMin(), DBL_MIN);
    EXPECT_EQ(param.getHardMax(), DBL_MAX);
    EXPECT_TRUE(warning("getHardMin", "fail: PvGenParameterArray::GetFloat (name:Gain)"));
    EXPECT_TRUE(warning("getHardMax", "fail: PvGenParameterArray::GetFloat (name:Gain)"));
}

TEST_F(double_param, SoftLimitsNarrowTheHardOnes) {
    param.setMin(2.0);
    param.setMax(4.0);
    EXPECT_EQ(param.getMin(), 2.0);
    EXPECT_EQ(param.getMax(), 4.0);
    EXPECT_TRUE(logged(level::debug, "setMax", tag, "done: name:Gain, value:4.000000)"));
}

TEST_F(double_param, ASoftLimitBeyondAHardOneIsAParamsError) {
    EXPECT_THROW(param.setMin(0.5), params_error);
    EXPECT_THROW(param.setMax(16.5), params_error);
    EXPECT_TRUE(error("fail: params_error (name:Gain, value:0.500000, hard-min:1.000000)"));
    EXPECT_TRUE(error("fail: params_error (name:Gain, value:16.500000, hard-max:16.000000)"));
    EXPECT_EQ(param.getMin(), 1.0);
}

TEST_F(double_param, ASoftMaximumIsAcceptedWhenTheHardLimitsCantBeReadASoftMinimumOnlyAboveZero) {
    cam()["Gain"].min_result = cam()["Gain"].max_result = scripted::refused;
    param.setMax(1e300);
    param.setMin(DBL_MIN);
    EXPECT_EQ(param.getMax(), 1e300);
    EXPECT_THROW(param.setMin(0.0), params_error) << "the floor that stands for an unknown minimum";
}

TEST_F(double_param, RefusesZeroAndEveryNegativeValueByDefault) {
    feature().real_min = -100.0;
    EXPECT_FALSE(param.validate(0.0));
    EXPECT_FALSE(param.validate(-1.0));
    EXPECT_FALSE(param.validate(-DBL_MIN));
    EXPECT_TRUE(param.validate(DBL_MIN));
    EXPECT_TRUE(warning("validate", "fail: name:Gain, value:0.000000, soft-min:0.000000, soft-max:16.000000"));
    EXPECT_TRUE(warning("validate", "fail: name:Gain, value:-1.000000, soft-min:0.000000, soft-max:16.000000"));
}

TEST_F(double_param, ALoweredSoftMinimumAllowsThem) {
    feature().real_min = -100.0;
    param.setMin(-1.0);
    EXPECT_TRUE(param.validate(0.0));
    EXPECT_TRUE(param.validate(-1.0));
    EXPECT_FALSE(param.validate(-1.5));
}

TEST_F(double_param, TheBoundsThemselvesAreAccepted) {
    EXPECT_TRUE(param.validate(1.0));
    EXPECT_TRUE(param.validate(16.0));
    EXPECT_FALSE(param.validate(std::nextafter(16.0, 17.0)));
    EXPECT_FALSE(param.validate(std::nextafter(1.0, 0.0)));
}

TEST_F(double_param, RefusesNotANumber) {
    EXPECT_FALSE(param.validate(std::nan("")));
    EXPECT_FALSE(param.validate(HUGE_VAL));
}

TEST_F(double_param, TheFirstWriteLogsAnUnknownOldValueLaterOnesTheRememberedOne) {
    param.setValue(3.0);
    param.setValue(4.0);
    EXPECT_TRUE(logged(level::info, "", tag,
                       "done: PvGenParameterArray::SetFloatValue (name:Gain, old-value:unknown, new-value:3.000000)"));
    EXPECT_TRUE(logged(level::info, "", tag,
                       "done: PvGenParameterArray::SetFloatValue (name:Gain, old-value:3.000000, new-value:4.000000)"));
    EXPECT_THAT(writes(), ElementsAre("SetFloatValue(Gain, 3)", "SetFloatValue(Gain, 4)"));
}

TEST_F(double_param, AReadIsRememberedAsTheOldValue) {
    param.getValue();
    param.setValue(3.0);
    EXPECT_TRUE(mentioned("old-value:2.500000, new-value:3.000000"));
}

TEST_F(double_param, AValueThatIsNotValidIsAnExternalErrorAndNotWritten) {
    EXPECT_THROW(param.setValue(0.0), external_error);
    EXPECT_TRUE(error("fail: validate"));
    EXPECT_THAT(writes(), IsEmpty());
}

TEST_F(double_param, WritingWithoutFeaturesIsAnInternalError) {
    provider.available = false;
    EXPECT_THROW(param.setValue(3.0), internal_error);
    EXPECT_TRUE(error("fail: param_provider_like::getDevParams"));
}

TEST_F(double_param, ARefusedWriteIsAnInternalErrorAndLeavesTheRememberedValue) {
    param.getValue();
    feature().refuse_write(PvResult::Code::ABORTED);
    EXPECT_THROW(param.setValue(3.0), internal_error);
    feature().refuse_write(scripted::ok);
    param.setValue(4.0);
    EXPECT_TRUE(error("fail: PvGenParameterArray::SetFloatValue (name:Gain, value:3.000000, result:<ABORTED>)"));
    EXPECT_TRUE(mentioned("old-value:2.500000, new-value:4.000000"));
}

}  // namespace
