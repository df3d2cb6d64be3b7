// SPDX-License-Identifier: MIT
#include "errors.hpp"
#include "feature_test.hpp"
#include "jai_property_bag/property_bag.hpp"
#include "sensor_like.hpp"

namespace {

using plugin_test::level;
using namespace Vorn::Support;
using namespace Vorn::Support::MediaGrabber::Jai;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char tag[] = "JAI_SENSOR";

struct sensor_roi : plugin_test::feature_fixture {
    sensor_roi() {
        cam()["Width"] = scripted::integer(640, 16, 2048, 1);
        cam()["Height"] = scripted::integer(480, 16, 1024, 1);
        cam()["OffsetX"] = scripted::integer(0, 0, 2032, 1);
        cam()["OffsetY"] = scripted::integer(0, 0, 1008, 1);
    }
    std::unique_ptr<sensor_like> sensor = Sensor__Create(&provider);
    property_bag bag;

    void region(std::optional<int64_t> x, std::optional<int64_t> y, std::optional<int64_t> w,
                std::optional<int64_t> h) {
        auto const put = [this](property key, std::optional<int64_t> value) {
            if (value) {
                bag.setInt64(key, *value);
            }
        };
        put(property::sensor_x, x);
        put(property::sensor_y, y);
        put(property::sensor_w, w);
        put(property::sensor_h, h);
    }
    bool warning(std::string const& text) { return logged(level::warning, "setup", tag, text); }
    void expect_refused() {
        EXPECT_THROW(sensor->setup(bag), params_error);
        EXPECT_THAT(writes(), IsEmpty());
    }
    void expect_region(unsigned x, unsigned y, unsigned w, unsigned h) const {
        EXPECT_EQ(sensor->getX(), x);
        EXPECT_EQ(sensor->getY(), y);
        EXPECT_EQ(sensor->getW(), w);
        EXPECT_EQ(sensor->getH(), h);
    }
    static constexpr std::nullopt_t none = std::nullopt;
};

TEST_F(sensor_roi, CreationDoesNotAccessTheCamera) {
    EXPECT_THAT(support::journal().calls(), IsEmpty());
}

TEST_F(sensor_roi, InitializeReadsTheCamerasRegion) {
    cam()["OffsetX"].integer = 8;
    cam()["OffsetY"].integer = 4;
    sensor->initialize();
    expect_region(8, 4, 640, 480);
    EXPECT_THAT(calls({"GetIntegerValue"}), ElementsAre("GetIntegerValue(OffsetX)", "GetIntegerValue(OffsetY)",
                                                        "GetIntegerValue(Width)", "GetIntegerValue(Height)"));
    EXPECT_TRUE(logged(level::info, "", tag, "ROI OffsX x OffsY   : 8 x 4"));
    EXPECT_TRUE(logged(level::info, "", tag, "ROI Width x Height  : 640 x 480"));
}

TEST_F(sensor_roi, InitializePropagatesAFailedRead) {
    cam()["Width"].refuse_read();
    EXPECT_THROW(sensor->initialize(), internal_error);
    cam()["OffsetX"].integer = -8;
    EXPECT_THROW(sensor->initialize(), external_error);
}

TEST_F(sensor_roi, ABagWithNoRoiKeysChangesNothingAndSetupStillNarrowsTheOffsetMaximaAndWritesNothing) {
    sensor->initialize();
    EXPECT_FALSE(sensor->testChanged(bag));
    sensor->setup(bag);
    EXPECT_THAT(writes(), IsEmpty());
    EXPECT_TRUE(logged(level::debug, "setMax", "JAI_PARAMS", "done: name:OffsetX, value:2032)"));
    EXPECT_TRUE(logged(level::debug, "setMax", "JAI_PARAMS", "done: name:OffsetY, value:1008)"));
}

TEST_F(sensor_roi, TestChangedDetectsADifferenceInAnyKey) {
    sensor->initialize();
    for (int key = 0; key < 4; ++key) {
        bag = {};
        region(key == 0 ? std::optional<int64_t>(1) : none, key == 1 ? std::optional<int64_t>(1) : none,
               key == 2 ? std::optional<int64_t>(1) : none, key == 3 ? std::optional<int64_t>(1) : none);
        EXPECT_TRUE(sensor->testChanged(bag)) << key;
    }
    EXPECT_TRUE(logged(level::debug, "testChanged", tag, "done: changed:true"));
}

TEST_F(sensor_roi, TestChangedComparesAll64Bits) {
    sensor->initialize();
    region(none, none, (int64_t{1} << 32) + 640, none);
    EXPECT_TRUE(sensor->testChanged(bag));
}

TEST_F(sensor_roi, WithAWidthMaximumOf2048AnOffsetXOf2033FailsValidation) {
    cam()["OffsetX"].max = 2047;
    sensor->initialize();
    region(2033, none, none, none);
    expect_refused();
    EXPECT_TRUE(warning("fail: sensor_x_param::validate"));
    EXPECT_TRUE(
        logged(level::warning, "validate", "JAI_PARAMS", "fail: name:OffsetX, value:2033, soft-min:0, soft-max:2032"));
}

TEST_F(sensor_roi, EverySingleValueIsValidatedInOrder) {
    sensor->initialize();
    cam()["OffsetY"].max = 1020;
    region(none, 1009, 9999, 9999);
    expect_refused();
    EXPECT_FALSE(mentioned("sensor_w_param"));
    bag = {};
    region(none, none, 2049, 9999);
    expect_refused();
    bag = {};
    region(none, none, none, 15);
    expect_refused();
    EXPECT_TRUE(warning("fail: sensor_y_param::validate"));
    EXPECT_TRUE(warning("fail: sensor_w_param::validate"));
    EXPECT_TRUE(warning("fail: sensor_h_param::validate"));
}

TEST_F(sensor_roi, X1000AndW1100WithAWidthMaximumOf2048AreRefusedAndNothingIsWritten) {
    sensor->initialize();
    region(1000, none, 1100, none);
    expect_refused();
    EXPECT_TRUE(warning("fail: validate (sensor-x:1000, sensor-w:1100, sensor-w-max:2048)"));
}

TEST_F(sensor_roi, OnlyXIsCheckedAgainstTheCurrentWidth) {
    sensor->initialize();
    region(1409, none, none, none);
    expect_refused();
    EXPECT_TRUE(warning("fail: validate (sensor-x:1409, sensor-w:640, sensor-w-max:2048)"));
}

TEST_F(sensor_roi, OnlyW1500WhileTheCurrentXIs600IsRefused) {
    cam()["OffsetX"].integer = 600;
    sensor->initialize();
    region(none, none, 1500, none);
    expect_refused();
    EXPECT_TRUE(warning("fail: validate (sensor-x:600, sensor-w:1500, sensor-w-max:2048)"));
}

TEST_F(sensor_roi, TheSameHoldsVertically) {
    cam()["OffsetY"].integer = 100;
    sensor->initialize();
    region(none, 600, none, 500);
    expect_refused();
    bag = {};
    region(none, 545, none, none);
    expect_refused();
    bag = {};
    region(none, none, none, 925);
    expect_refused();
    EXPECT_TRUE(warning("fail: validate (sensor-y:600, sensor-h:500, sensor-h-max:1024)"));
    EXPECT_TRUE(warning("fail: validate (sensor-y:545, sensor-h:480, sensor-h-max:1024)"));
    EXPECT_TRUE(warning("fail: validate (sensor-y:100, sensor-h:925, sensor-h-max:1024)"));
}

TEST_F(sensor_roi, TheHorizontalCheckComesFirst) {
    sensor->initialize();
    region(1000, 1000, 1100, 1000);
    expect_refused();
    EXPECT_TRUE(mentioned("sensor-x"));
    EXPECT_FALSE(mentioned("sensor-y"));
}

TEST_F(sensor_roi, ARegionThatReachesTheEdgeIsAccepted) {
    sensor->initialize();
    region(1000, 24, 1048, 1000);
    sensor->setup(bag);
    EXPECT_THAT(writes(), ElementsAre("SetIntegerValue(OffsetX, 1000)", "SetIntegerValue(OffsetY, 24)",
                                      "SetIntegerValue(Width, 1048)", "SetIntegerValue(Height, 1000)"));
    expect_region(1000, 24, 1048, 1000);
}

TEST_F(sensor_roi, ABagEqualToTheCurrentRoiIsNoChangeYetSetupWritesAllPresentValuesAgain) {
    sensor->initialize();
    region(0, 0, 640, 480);
    EXPECT_FALSE(sensor->testChanged(bag));
    sensor->setup(bag);
    EXPECT_EQ(writes().size(), 4u);
}

TEST_F(sensor_roi, AWriteFailureLeavesWhatWasWrittenBeforeItWrittenAndRemembered) {
    sensor->initialize();
    cam()["Width"].refuse_write();
    region(8, 4, 320, 200);
    EXPECT_THROW(sensor->setup(bag), internal_error);
    expect_region(8, 4, 640, 480);
}

TEST_F(sensor_roi, AnOffsetMaximumBelowTheMarginIsAParamsError) {
    cam()["OffsetX"].max = 100;
    sensor->initialize();
    EXPECT_THROW(sensor->setup(bag), params_error);
    EXPECT_TRUE(logged(level::error, "", "JAI_PARAMS", "fail: params_error (name:OffsetX, value:2032, hard-max:100)"));
}

TEST_F(sensor_roi, SumsOfAnyLimitsDoNotOverflow) {
    cam()["Width"] = scripted::integer(640, 0, INT64_MAX, 1);
    cam()["OffsetX"] = scripted::integer(0, 0, INT64_MAX, 1);
    sensor->initialize();
    region(INT64_MAX - 16, none, INT64_MAX - 16, none);
    expect_refused();
    EXPECT_TRUE(
        mentioned("fail: validate (sensor-x:9223372036854775791, sensor-w:9223372036854775791, "
                  "sensor-w-max:9223372036854775807)"));
}

TEST_F(sensor_roi, ASizeMaximumAtTheLowestIntegerDoesNotWrapTheOffsets) {
    cam()["Width"] = scripted::integer(0, INT64_MIN + 1, INT64_MIN + 2, 1);
    EXPECT_THROW(sensor->setup(bag), params_error);
}

}  // namespace
