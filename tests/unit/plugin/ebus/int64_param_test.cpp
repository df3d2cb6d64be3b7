// SPDX-License-Identifier: MIT
#include "ebus/int64_param.hpp"

#include <PvDevice.h>

#include "errors.hpp"
#include "feature_test.hpp"

namespace {

using namespace Vorn::Support;
using namespace Vorn::Support::MediaGrabber::Jai;
using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char tag[] = "JAI_PARAMS";

struct int64_param : plugin_test::feature_fixture {
    rw_int64_param param{&provider, "Width"};
    scripted::feature& feature() { return cam()["Width"]; }
    int64_param() { feature() = scripted::integer(640, 16, 2464, 8); }
    bool warning(std::string const& operation, std::string const& text) {
        return logged(level::warning, operation, tag, text);
    }
    bool error(std::string const& text) { return logged(level::error, "", tag, text); }
    bool debug(std::string const& operation, std::string const& text) {
        return logged(level::debug, operation, tag, text);
    }
};

// ---- Reading ------------------------------------------------------------------------------------

TEST_F(int64_param, ReadsItsValue) {
    EXPECT_EQ(param.getValue(), 640);
    EXPECT_TRUE(debug("getValue", "done: name:Width, value:640"));
}

TEST_F(int64_param, ReadingWithoutFeaturesIsAnInternalError) {
    provider.available = false;
    EXPECT_THROW(param.getValue(), internal_error);
    EXPECT_TRUE(error("fail: param_provider_like::getDevParams"));
    EXPECT_EQ(system_lines().size(), 1u) << "exactly one line before the throw";
}

TEST_F(int64_param, AFailedReadIsAnInternalErrorThatNamesTheResult) {
    feature().refuse_read(PvResult::Code::TIMEOUT);
    EXPECT_THROW(param.getValue(), internal_error);
    EXPECT_TRUE(error("fail: PvGenParameterArray::GetIntegerValue (name:Width, result:<TIMEOUT>)"));
    EXPECT_EQ(system_lines().size(), 1u);
}

TEST_F(int64_param, GetValueUint32OfMinus1IsAnExternalErrorWithBound0) {
    feature().integer = -1;
    EXPECT_THROW(param.getValueUint32(), external_error);
    EXPECT_TRUE(error("fail: static_cast (name:Width, value:-1, min-value:0)"));
}

TEST_F(int64_param, GetValueUint32Of4294967296IsAnExternalErrorWithBound4294967295) {
    feature().integer = 4'294'967'296;
    EXPECT_THROW(param.getValueUint32(), external_error);
    EXPECT_TRUE(error("fail: static_cast (name:Width, value:4294967296, max-value:4294967295)"));
}

TEST_F(int64_param, GetValueUint32Of4294967295Succeeds) {
    feature().integer = 4'294'967'295;
    EXPECT_EQ(param.getValueUint32(), 4'294'967'295u);
    EXPECT_TRUE(debug("getValueUint32", "done: name:Width, value:4294967295"));
    EXPECT_EQ(system_lines().size(), 2u) << "the read and the narrowing";
}

TEST_F(int64_param, GetValueUint32ReportsFailedReadsAsGetValueDoes) {
    feature().refuse_read();
    EXPECT_THROW(param.getValueUint32(), internal_error);
    EXPECT_TRUE(error("fail: PvGenParameterArray::GetIntegerValue (name:Width, result:<GENERIC_ERROR>)"));
}

TEST_F(int64_param, AReadOnlyParameterReadsToo) {
    ro_int64_param maximum(&provider, "WidthMax");
    EXPECT_EQ(maximum.getValueUint32(), 2464u);
}

// ---- Hard limits --------------------------------------------------------------------------------

TEST_F(int64_param, HardLimitsAreReadOnceAndKept) {
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(param.getHardMin(), 16);
        EXPECT_EQ(param.getHardMax(), 2464);
        EXPECT_EQ(param.getHardInc(), 8);
        feature().min = 999;
        feature().max = 999;
        feature().increment = 999;
    }
    EXPECT_THAT(calls({"PvGenInteger::Get"}), ElementsAre("PvGenInteger::GetMin(Width)", "PvGenInteger::GetMax(Width)",
                                                          "PvGenInteger::GetIncrement(Width)"));
    EXPECT_TRUE(debug("getHardMin", "done: name:Width, hard-min:16"));
    EXPECT_TRUE(debug("getHardMax", "done: name:Width, hard-max:2464"));
    EXPECT_TRUE(debug("getHardInc", "done: name:Width, hard-inc:8"));
}

TEST_F(int64_param, HardLimitsWithoutFeaturesAreUnboundedAndReadAgain) {
    provider.available = false;
    EXPECT_EQ(param.getHardMin(), INT64_MIN);
    EXPECT_EQ(param.getHardMax(), INT64_MAX);
    EXPECT_EQ(param.getHardInc(), 0);
    EXPECT_TRUE(warning("getHardMin", "fail: param_provider_like::getDevParams"));
    EXPECT_TRUE(warning("getHardMax", "fail: param_provider_like::getDevParams"));
    EXPECT_TRUE(warning("getHardInc", "fail: param_provider_like::getDevParams"));
    provider.available = true;
    EXPECT_EQ(param.getHardMin(), 16);
    EXPECT_EQ(param.getHardMax(), 2464);
    EXPECT_EQ(param.getHardInc(), 8);
}

TEST_F(int64_param, HardLimitsOfAnAbsentFeatureAreUnbounded) {
    cam().features.erase("Width");
    EXPECT_EQ(param.getHardMin(), INT64_MIN);
    EXPECT_EQ(param.getHardMax(), INT64_MAX);
    EXPECT_EQ(param.getHardInc(), 0);
    EXPECT_TRUE(warning("getHardMin", "fail: PvGenParameterArray::GetInteger (name:Width)"));
    EXPECT_TRUE(warning("getHardMax", "fail: PvGenParameterArray::GetInteger (name:Width)"));
    EXPECT_TRUE(warning("getHardInc", "fail: PvGenParameterArray::GetInteger (name:Width)"));
}

TEST_F(int64_param, HardLimitsThatTheDeviceRefusesAreUnbounded) {
    feature().min_result = feature().max_result = feature().increment_result = PvResult::Code::NOT_SUPPORTED;
    EXPECT_EQ(param.getHardMin(), INT64_MIN);
    EXPECT_EQ(param.getHardMax(), INT64_MAX);
    EXPECT_EQ(param.getHardInc(), 0);
    EXPECT_TRUE(warning("getHardMin", "fail: PvGenInteger::GetMin (name:Width, result:<NOT_SUPPORTED>)"));
    EXPECT_TRUE(warning("getHardMax", "fail: PvGenInteger::GetMax (name:Width, result:<NOT_SUPPORTED>)"));
    EXPECT_TRUE(warning("getHardInc", "fail: PvGenInteger::GetIncrement (name:Width, result:<NOT_SUPPORTED>)"));
}

TEST_F(int64_param, AnIncrementOf0IsReadEachTime) {
    feature().increment = 0;
    param.getHardInc();
    param.getHardInc();
    EXPECT_EQ(calls({"PvGenInteger::GetIncrement"}).size(), 2u);
}

// ---- Soft limits --------------------------------------------------------------------------------

TEST_F(int64_param, SoftLimitsNarrowTheHardOnes) {
    EXPECT_EQ(param.getMin(), 16);
    EXPECT_EQ(param.getMax(), 2464);
    param.setMin(100);
    param.setMax(200);
    EXPECT_EQ(param.getMin(), 100);
    EXPECT_EQ(param.getMax(), 200);
    EXPECT_TRUE(debug("setMax", "done: name:Width, value:200)"));
    EXPECT_FALSE(mentioned("[d|setMin]"));
}

TEST_F(int64_param, ASoftLimitBeyondAHardOneIsAParamsError) {
    EXPECT_THROW(param.setMin(15), params_error);
    EXPECT_THROW(param.setMin(2465), params_error);
    EXPECT_THROW(param.setMax(14), params_error);
    EXPECT_THROW(param.setMax(2466), params_error);
    EXPECT_TRUE(error("fail: params_error (name:Width, value:15, hard-min:16)"));
    EXPECT_TRUE(error("fail: params_error (name:Width, value:2465, hard-max:2464)"));
    EXPECT_TRUE(error("fail: params_error (name:Width, value:14, hard-min:16)"));
    EXPECT_TRUE(error("fail: params_error (name:Width, value:2466, hard-max:2464)"));
    EXPECT_EQ(param.getMin(), 16);
    EXPECT_EQ(param.getMax(), 2464);
}

TEST_F(int64_param, SoftLimitsAreAcceptedWhenTheHardOnesCantBeRead) {
    cam()["Width"].min_result = cam()["Width"].max_result = scripted::refused;
    param.setMin(INT64_MIN);
    param.setMax(INT64_MAX);
    param.setMin(-1'000'000);
    param.setMax(1'000'000);
    EXPECT_EQ(param.getMin(), -1'000'000);
    EXPECT_EQ(param.getMax(), 1'000'000);
}

TEST_F(int64_param, SetMaxBelowTheSoftMinimumIsAcceptedAndValidateThenRefusesEveryValue) {
    param.setMin(200);
    EXPECT_NO_THROW(param.setMax(100));
    for (int64_t const value : {96, 104, 150, 200, 208}) {
        EXPECT_FALSE(param.validate(value));
    }
}

TEST_F(int64_param, SetIncWithTheHardIncrementItselfIsAParamsErrorTwiceItIsAccepted) {
    EXPECT_THROW(param.setInc(8), params_error);
    EXPECT_TRUE(error("fail: params_error (name:Width, value:8, hard-inc:8)"));
    EXPECT_NO_THROW(param.setInc(16));
    EXPECT_EQ(param.getInc(), 16);
    EXPECT_THROW(param.setInc(20), params_error) << "not a multiple";
    EXPECT_THROW(param.setInc(0), params_error);
    EXPECT_THROW(param.setInc(-16), params_error);
}

TEST_F(int64_param, SetIncAcceptsAnyValueWhenTheHardIncrementIs0OrCantBeRead) {
    feature().increment = 0;
    for (int64_t const value : {int64_t{3}, int64_t{0}, int64_t{-7}, INT64_MIN}) {
        EXPECT_NO_THROW(param.setInc(value));
        EXPECT_EQ(param.getInc(), value);
    }
    feature().increment_result = scripted::refused;
    EXPECT_NO_THROW(param.setInc(5));
}

TEST_F(int64_param, ANegativeHardIncrementIsCoarsenedDownwards) {
    feature().increment = -8;
    EXPECT_THROW(param.setInc(-8), params_error);
    EXPECT_THROW(param.setInc(16), params_error);
    EXPECT_NO_THROW(param.setInc(-16));
    EXPECT_EQ(param.getInc(), -16);
}

TEST_F(int64_param, TheEffectiveIncrementIsNeverFinerThanTheDevices) {
    EXPECT_EQ(param.getInc(), 8);
    rw_int64_param other(&provider, "Width");
    feature().increment = -4;
    EXPECT_EQ(other.getInc(), -4);
}

// ---- Validation ---------------------------------------------------------------------------------

TEST_F(int64_param, ValidateWithHardMinimum16AndIncrement8Accepts24And32AndRefuses28) {
    EXPECT_TRUE(param.validate(24));
    EXPECT_TRUE(param.validate(32));
    EXPECT_FALSE(param.validate(28));
    EXPECT_TRUE(warning("validate", "fail: name:Width, value:28, hard-min:16, soft-inc:8"));
}

TEST_F(int64_param, ValidateCountsIncrementsFromAMinimumThatIsNoMultipleOfThem) {
    feature().min = 10;
    EXPECT_TRUE(param.validate(18));
    EXPECT_FALSE(param.validate(22));
    EXPECT_FALSE(param.validate(24));
}

TEST_F(int64_param, ValidateWithASoftIncrementOf16Refuses24) {
    param.setInc(16);
    EXPECT_FALSE(param.validate(24));
    EXPECT_TRUE(param.validate(32));
    EXPECT_TRUE(warning("validate", "fail: name:Width, value:24, hard-min:16, soft-inc:16"));
}

TEST_F(int64_param, ValidateWhenTheMinimumCannotBeReadSkipsAlignmentAndUsesTheSoftMinimumAlone) {
    feature().min_result = scripted::refused;
    EXPECT_TRUE(param.validate(-3));
    param.setMin(10);
    EXPECT_TRUE(param.validate(11));
    EXPECT_FALSE(param.validate(9));
    EXPECT_TRUE(warning("validate", "fail: name:Width, value:9, soft-min:10, soft-max:2464"));
}

TEST_F(int64_param, ValidateWithoutAnIncrementChecksTheRangeOnly) {
    feature().increment = 0;
    EXPECT_TRUE(param.validate(17));
}

TEST_F(int64_param, AlignmentCountsFromTheHardMinimumNeverFromTheSoftOne) {
    param.setMin(20);
    EXPECT_TRUE(param.validate(24));
    EXPECT_FALSE(param.validate(20));
}

TEST_F(int64_param, TheBoundsThemselvesAreAccepted) {
    EXPECT_TRUE(param.validate(16));
    EXPECT_TRUE(param.validate(2464));
    EXPECT_FALSE(param.validate(8));
    EXPECT_FALSE(param.validate(2472));
    EXPECT_TRUE(warning("validate", "fail: name:Width, value:2472, soft-min:16, soft-max:2464"));
}

TEST_F(int64_param, AlignmentDoesNotOverflowWhateverTheLimits) {
    feature() = scripted::integer(0, INT64_MIN + 1, INT64_MAX - 1, 2);
    EXPECT_FALSE(param.validate(INT64_MAX - 1)) << "odd distance";
    EXPECT_TRUE(param.validate(INT64_MAX - 2));
}

// ---- Writing ------------------------------------------------------------------------------------

TEST_F(int64_param, TheFirstWriteLogsAnUnknownOldValueLaterOnesTheRememberedOne) {
    param.setValue(320);
    feature().integer = 999;  // the wrapper does not notice a change by others
    param.setValue(328);
    EXPECT_TRUE(
        logged(level::info, "", tag, "done: PvGenInteger::SetValue (name:Width, old-value:unknown, new-value:320)"));
    EXPECT_TRUE(
        logged(level::info, "", tag, "done: PvGenInteger::SetValue (name:Width, old-value:320, new-value:328)"));
    EXPECT_THAT(writes(), ElementsAre("SetIntegerValue(Width, 320)", "SetIntegerValue(Width, 328)"));
}

TEST_F(int64_param, AReadIsRememberedAsTheOldValue) {
    param.getValue();
    param.setValue(320);
    EXPECT_TRUE(
        logged(level::info, "", tag, "done: PvGenInteger::SetValue (name:Width, old-value:640, new-value:320)"));
}

TEST_F(int64_param, AValueThatIsNotValidIsAnExternalErrorAndNotWritten) {
    EXPECT_THROW(param.setValue(28), external_error);
    EXPECT_TRUE(error("fail: validate"));
    EXPECT_THAT(writes(), IsEmpty());
}

TEST_F(int64_param, WritingWithoutFeaturesIsAnInternalError) {
    provider.available = false;
    EXPECT_THROW(param.setValue(320), internal_error);
    EXPECT_TRUE(error("fail: param_provider_like::getDevParams"));
}

TEST_F(int64_param, ARefusedWriteIsAnInternalErrorAndLeavesTheRememberedValue) {
    param.getValue();
    feature().refuse_write(PvResult::Code::INVALID_PARAMETER);
    EXPECT_THROW(param.setValue(320), internal_error);
    feature().refuse_write(scripted::ok);
    param.setValue(328);
    EXPECT_TRUE(
        error("fail: PvGenParameterArray::SetIntegerValue (name:Width, value:320, result:<INVALID_PARAMETER>)"));
    EXPECT_TRUE(
        logged(level::info, "", tag, "done: PvGenInteger::SetValue (name:Width, old-value:640, new-value:328)"));
}

TEST(ErrorClasses, FormOneFamily) {
    EXPECT_TRUE((std::is_base_of_v<std::exception, generic_error>));
    EXPECT_TRUE((std::is_base_of_v<generic_error, internal_error>));
    EXPECT_TRUE((std::is_base_of_v<generic_error, external_error>));
    EXPECT_TRUE((std::is_base_of_v<external_error, params_error>));
    EXPECT_FALSE((std::is_base_of_v<internal_error, params_error>));
    EXPECT_STREQ(params_error().what(), std::exception().what());
}

}  // namespace
