// SPDX-License-Identifier: MIT
#include "jai_property_bag/property_bag.hpp"

#include "errors.hpp"
#include "plugin_test.hpp"

namespace {

using plugin_test::level;
using Vorn::Support::external_error;
using Vorn::Support::MediaGrabber::Jai::property;
using Vorn::Support::MediaGrabber::Jai::property_bag;

struct bag : plugin_test::plugin {
    property_bag values;
};

TEST_F(bag, ReturnsStoredValues) {
    values.setBool(property::auto_gain, true);
    values.setInt64(property::sensor_x, INT64_MIN);
    values.setDouble(property::manual_gain_db, -0.25);
    bool flag = false;
    int64_t integer = 0;
    double real = 0.0;
    EXPECT_TRUE(values.getBool(property::auto_gain, flag));
    EXPECT_TRUE(values.getInt64(property::sensor_x, integer));
    EXPECT_TRUE(values.getDouble(property::manual_gain_db, real));
    EXPECT_TRUE(flag);
    EXPECT_EQ(integer, INT64_MIN);
    EXPECT_EQ(real, -0.25);
}

TEST_F(bag, AnAbsentKeyReturnsFalseAndLeavesTheOutputAsItWas) {
    bool flag = true;
    int64_t integer = 77;
    double real = 1.5;
    EXPECT_FALSE(values.getBool(property::auto_gain, flag));
    EXPECT_FALSE(values.getInt64(property::sensor_x, integer));
    EXPECT_FALSE(values.getDouble(property::manual_gain_db, real));
    EXPECT_TRUE(flag);
    EXPECT_EQ(integer, 77);
    EXPECT_EQ(real, 1.5);
}

TEST_F(bag, GetDoubleOnAKeyWrittenAsInt64IsAnExternalErrorAfterLoggingThePropertyType3) {
    values.setInt64(property::manual_exposure, 5);
    double real = 1.5;
    EXPECT_THROW(values.getDouble(property::manual_exposure, real), external_error);
    EXPECT_EQ(real, 1.5);
    EXPECT_TRUE(logged(level::error, "", "JAI_BAG", "fail: external_error (property-type:3)"));
}

TEST_F(bag, EachTypeIsNamedByItsTag) {
    values.setBool(property::auto_gain, true);
    values.setDouble(property::auto_gain_min, 1.0);
    int64_t integer = 0;
    bool flag = false;
    EXPECT_THROW(values.getInt64(property::auto_gain, integer), external_error);
    EXPECT_THROW(values.getBool(property::auto_gain_min, flag), external_error);
    EXPECT_TRUE(logged(level::error, "", "JAI_BAG", "fail: external_error (property-type:2)"));
    EXPECT_TRUE(logged(level::error, "", "JAI_BAG", "fail: external_error (property-type:4)"));
}

TEST_F(bag, WritingAPresentKeyReplacesValueAndType) {
    values.setInt64(property::auto_gain, 5);
    values.setBool(property::auto_gain, true);
    bool flag = false;
    EXPECT_TRUE(values.getBool(property::auto_gain, flag));
    EXPECT_TRUE(flag);
}

TEST(PropertyKeys, HaveTheNumbersThatWritersAndReadersShare) {
    EXPECT_EQ(static_cast<int>(property::sensor_x), 1);
    EXPECT_EQ(static_cast<int>(property::sensor_y), 2);
    EXPECT_EQ(static_cast<int>(property::sensor_w), 3);
    EXPECT_EQ(static_cast<int>(property::sensor_h), 4);
    EXPECT_EQ(static_cast<int>(property::auto_target), 5);
    EXPECT_EQ(static_cast<int>(property::auto_area_enable), 6);
    EXPECT_EQ(static_cast<int>(property::auto_gain), 7);
    EXPECT_EQ(static_cast<int>(property::auto_gain_min), 8);
    EXPECT_EQ(static_cast<int>(property::auto_gain_max), 9);
    EXPECT_EQ(static_cast<int>(property::auto_exposure), 10);
    EXPECT_EQ(static_cast<int>(property::auto_exposure_min), 11);
    EXPECT_EQ(static_cast<int>(property::auto_exposure_max), 12);
    EXPECT_EQ(static_cast<int>(property::manual_gain_db), 13);
    EXPECT_EQ(static_cast<int>(property::manual_exposure), 14);
    EXPECT_EQ(static_cast<int>(property::line2_source), 16);
    EXPECT_EQ(static_cast<int>(property::line2_inverter), 17);
    EXPECT_EQ(static_cast<int>(property::line3_source), 19);
    EXPECT_EQ(static_cast<int>(property::line3_inverter), 20);
}

}  // namespace
