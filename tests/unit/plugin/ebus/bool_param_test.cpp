// SPDX-License-Identifier: MIT
#include "ebus/bool_param.hpp"

#include "errors.hpp"
#include "feature_test.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;
using Vorn::Support::internal_error;
using Vorn::Support::MediaGrabber::Jai::bool_enum_param;

constexpr char tag[] = "JAI_PARAMS";

struct bool_param : plugin_test::feature_fixture {
    bool_enum_param param{&provider, "GainAuto", "Continuous", "Off"};
};

TEST_F(bool_param, WritesTheEntryOfEachValueEveryTime) {
    param.setValue(true);
    param.setValue(true);
    param.setValue(false);
    EXPECT_THAT(writes(), ElementsAre("SetEnumValue(GainAuto, Continuous)", "SetEnumValue(GainAuto, Continuous)",
                                      "SetEnumValue(GainAuto, Off)"));
    EXPECT_TRUE(logged(level::info, "", tag, "done: SetEnumValue (name:GainAuto, value:Continuous)"));
    EXPECT_TRUE(logged(level::info, "", tag, "done: SetEnumValue (name:GainAuto, value:Off)"));
}

TEST_F(bool_param, WithoutFeaturesIsAnInternalError) {
    provider.available = false;
    EXPECT_THROW(param.setValue(true), internal_error);
    EXPECT_TRUE(logged(level::error, "", tag, "fail: param_provider_like::getDevParams"));
    EXPECT_THAT(writes(), IsEmpty());
}

TEST_F(bool_param, ARefusalIsAnInternalErrorThatNamesTheResult) {
    cam()["GainAuto"].refuse_write(PvResult::Code::NOT_SUPPORTED);
    EXPECT_THROW(param.setValue(false), internal_error);
    EXPECT_TRUE(logged(level::error, "", tag, "fail: SetEnumValue (name:GainAuto, value:Off, result:<NOT_SUPPORTED>)"));
}

}  // namespace
