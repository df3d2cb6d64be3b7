// SPDX-License-Identifier: MIT
#include "gpio_like.hpp"

#include "errors.hpp"
#include "feature_test.hpp"
#include "jai_property_bag/property_bag.hpp"

namespace {

using plugin_test::level;
using namespace Vorn::Support;
using namespace Vorn::Support::MediaGrabber::Jai;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char tag[] = "JAI_GPIO";

struct gpio_line : plugin_test::feature_fixture {
    std::unique_ptr<gpio_like> line = Gpio__CreateLine2(&provider);
    property_bag bag;

    void set(std::optional<int64_t> source, std::optional<int64_t> inverter) {
        bag = {};
        if (source) {
            bag.setInt64(property::line2_source, *source);
        }
        if (inverter) {
            bag.setInt64(property::line2_inverter, *inverter);
        }
    }
    std::vector<std::string> set_up() {
        support::journal().clear();
        line->setup(bag);
        return writes();
    }
    static constexpr std::nullopt_t none = std::nullopt;
};

TEST_F(gpio_line, ABagWithoutTheLinesKeysMakesNoCameraCall) {
    bag.setInt64(property::line3_source, 1);
    EXPECT_THAT(set_up(), IsEmpty());
    EXPECT_TRUE(logged(level::debug, "setup", tag, "done: changed:false"));
}

TEST_F(gpio_line, Source1AppliedThenTheSameBagAgainMakesNoCameraCall) {
    set(1, none);
    EXPECT_THAT(set_up(), ElementsAre("SetEnumValue(LineSelector, Line2)", "SetEnumValue(LineSource, ExposureActive)"));
    EXPECT_THAT(set_up(), IsEmpty());
    EXPECT_TRUE(
        logged(level::info, "", tag, "done: SetEnumValue (selector:Line2, name:LineSource, value:ExposureActive)"));
}

TEST_F(gpio_line, SourceUnchangedButInverterChangedWritesAllThree) {
    set(2, 1);
    EXPECT_THAT(set_up(), ElementsAre("SetEnumValue(LineSelector, Line2)", "SetEnumValue(LineSource, Low)",
                                      "SetBooleanValue(LineInverter, true)"));
    set(2, 2);
    EXPECT_THAT(set_up(), ElementsAre("SetEnumValue(LineSelector, Line2)", "SetEnumValue(LineSource, Low)",
                                      "SetBooleanValue(LineInverter, false)"));
    EXPECT_TRUE(logged(level::info, "", tag, "done: SetEnumValue (selector:Line2, name:LineSource, value:Low)"));
    EXPECT_TRUE(logged(level::info, "", tag, "done: SetBooleanValue (selector:Line2, name:LineInverter, value:true)"));
    EXPECT_TRUE(logged(level::info, "", tag, "done: SetBooleanValue (selector:Line2, name:LineInverter, value:false)"));
}

TEST_F(gpio_line, InverterUnchangedButSourceChangedWritesAllThree) {
    set(2, 1);
    set_up();
    set(1, 1);
    EXPECT_THAT(set_up(), ElementsAre("SetEnumValue(LineSelector, Line2)", "SetEnumValue(LineSource, ExposureActive)",
                                      "SetBooleanValue(LineInverter, true)"));
}

TEST_F(gpio_line, SourceCode3SelectsTheLineEveryTimeAndWritesNoSource) {
    set(3, none);
    EXPECT_THAT(set_up(), ElementsAre("SetEnumValue(LineSelector, Line2)"));
    EXPECT_THAT(set_up(), ElementsAre("SetEnumValue(LineSelector, Line2)"));
}

TEST_F(gpio_line, AnyOtherInverterCodeWritesFalse) {
    set(none, 9);
    EXPECT_THAT(set_up(), ElementsAre("SetEnumValue(LineSelector, Line2)", "SetBooleanValue(LineInverter, false)"));
    EXPECT_THAT(set_up(), IsEmpty());
}

TEST_F(gpio_line, OnlyTheLow8BitsOfACodeCount) {
    set(0x101, none);
    EXPECT_THAT(set_up(), ElementsAre("SetEnumValue(LineSelector, Line2)", "SetEnumValue(LineSource, ExposureActive)"));
    set(1, none);
    EXPECT_THAT(set_up(), IsEmpty());
}

TEST_F(gpio_line, TheHighestBitOfACodeCounts) {
    set(0x80, none);
    EXPECT_THAT(set_up(), ElementsAre("SetEnumValue(LineSelector, Line2)"));
}

TEST_F(gpio_line, LineSelectorRefusedByTheCameraIsAWarningAnInternalErrorAndTheRememberedCodesStay) {
    set(1, 1);
    cam()["LineSelector"].refuse_write();
    EXPECT_THROW(line->setup(bag), internal_error);
    EXPECT_TRUE(logged(level::warning, "setup", tag, "fail: SetEnumValue (name:LineSelector, value:Line2)"));
    cam()["LineSelector"].refuse_write(scripted::ok);
    EXPECT_EQ(set_up().size(), 3u);
}

TEST_F(gpio_line, ARefusedSourceIsTriedAgain) {
    set(1, none);
    cam()["LineSource"].refuse_write(PvResult::Code::NOT_SUPPORTED);
    EXPECT_THROW(line->setup(bag), internal_error);
    set(2, none);
    EXPECT_THROW(line->setup(bag), internal_error);
    cam()["LineSource"].refuse_write(scripted::ok);
    EXPECT_EQ(set_up().size(), 2u);
    EXPECT_TRUE(
        logged(level::warning, "setup", tag,
               "fail: SetEnumValue (selector:Line2, name:LineSource, value:ExposureActive, result:<NOT_SUPPORTED>)"));
    EXPECT_TRUE(logged(level::warning, "setup", tag,
                       "fail: SetEnumValue (selector:Line2, name:LineSource, value:Low, result:<NOT_SUPPORTED>)"));
}

TEST_F(gpio_line, ARefusedInverterIsTriedAgainWithTheSource) {
    set(1, 1);
    cam()["LineInverter"].refuse_write(PvResult::Code::NOT_SUPPORTED);
    EXPECT_THROW(line->setup(bag), internal_error);
    set(1, 2);
    EXPECT_THROW(line->setup(bag), internal_error);
    cam()["LineInverter"].refuse_write(scripted::ok);
    EXPECT_EQ(set_up().size(), 3u);
    EXPECT_TRUE(
        logged(level::warning, "setup", tag,
               "fail: SetBooleanValue (selector:Line2, name:LineInverter, value:true, result:<NOT_SUPPORTED>)"));
    EXPECT_TRUE(
        logged(level::warning, "setup", tag,
               "fail: SetBooleanValue (selector:Line2, name:LineInverter, value:false, result:<NOT_SUPPORTED>)"));
}

TEST_F(gpio_line, WithoutFeaturesIsAnInternalError) {
    set(1, none);
    provider.available = false;
    EXPECT_THROW(line->setup(bag), internal_error);
    EXPECT_TRUE(logged(level::error, "", tag, "fail: param_provider_like::getDevParams"));
}

TEST_F(gpio_line, Line3HasItsOwnKeysAndSelector) {
    line = Gpio__CreateLine3(&provider);
    set(1, 1);
    bag.setInt64(property::line3_source, 2);
    bag.setInt64(property::line3_inverter, 2);
    EXPECT_THAT(set_up(), ElementsAre("SetEnumValue(LineSelector, Line3)", "SetEnumValue(LineSource, Low)",
                                      "SetBooleanValue(LineInverter, false)"));
}

}  // namespace
