// SPDX-License-Identifier: MIT
#include "conf_unpack.hpp"

#include <cmath>

#include "jai_property_bag/property_bag.hpp"
#include "plugin_test.hpp"

namespace {

using plugin_test::level;
using namespace Vorn::Support::MediaGrabber::Jai;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char tag[] = "JAI_CONF";

struct unpacking : plugin_test::plugin {
    property_bag bag;

    std::optional<int64_t> integer(property key) const {
        int64_t value = 0;
        return bag.getInt64(key, value) ? std::optional(value) : std::nullopt;
    }
    std::optional<double> real(property key) const {
        double value = 0.0;
        return bag.getDouble(key, value) ? std::optional(value) : std::nullopt;
    }
    void lines(std::vector<recording::io_line> const& configured) {
        host().io_lines = configured;
        host().iobox_num = static_cast<uint32_t>(configured.size());
        Conf__UnpackGpio(bag);
    }
    bool warning(std::string const& text) { return logged(level::warning, "Conf__UnpackGpio", tag, text); }
};

TEST_F(unpacking, AnUnconfiguredHostLeavesEveryKeyAbsent) {
    Conf__UnpackAutoFn(bag);
    Conf__UnpackManualGainDb(bag);
    Conf__UnpackManualExposure(bag);
    Conf__UnpackSensor(bag);
    Conf__UnpackGpio(bag);
    for (int key = 1; key <= 20; ++key) {
        EXPECT_EQ(integer(static_cast<property>(key)), std::nullopt) << key;
    }
    EXPECT_TRUE(logged(level::info, "", tag, "exec: gpio-count:0"));
}

TEST_F(unpacking, Brightness0Point555GivesAutoTarget55) {
    host().atbright = 0.555F;
    Conf__UnpackAutoFn(bag);
    EXPECT_EQ(integer(property::auto_target), 55);
}

TEST_F(unpacking, TheBrightnessIsScaledInSinglePrecision) {
    host().atbright = 0.29F;  // 28.999999... in double precision, 29 in single
    Conf__UnpackAutoFn(bag);
    EXPECT_EQ(integer(property::auto_target), 29);
}

TEST_F(unpacking, BrightnessesThatDoNotFitAnIntegerSaturate) {
    host().atbright = HUGE_VALF;
    Conf__UnpackAutoFn(bag);
    EXPECT_EQ(integer(property::auto_target), INT64_MAX);
    host().atbright = -HUGE_VALF;
    Conf__UnpackAutoFn(bag);
    EXPECT_EQ(integer(property::auto_target), INT64_MIN);
    host().atbright = NAN;
    Conf__UnpackAutoFn(bag);
    EXPECT_EQ(integer(property::auto_target), 0);
}

TEST_F(unpacking, SentinelsCompareExactly) {
    host().atbright = std::nextafterf(-1.0F, 0.0F);
    host().gain_man = std::nextafterf(-100.0F, 0.0F);
    host().expt_man = std::nextafterf(-1.0F, 0.0F);
    Conf__UnpackAutoFn(bag);
    Conf__UnpackManualGainDb(bag);
    Conf__UnpackManualExposure(bag);
    EXPECT_EQ(integer(property::auto_target), -99);
    EXPECT_NE(real(property::manual_gain_db), std::nullopt);
    EXPECT_NE(real(property::manual_exposure), std::nullopt);
}

TEST_F(unpacking, GainLimitsLowMinus100AndHigh12WriteNeitherKey) {
    host().gainlims_low = -100.0F;
    host().gainlims_high = 12.0F;
    Conf__UnpackAutoFn(bag);
    EXPECT_EQ(real(property::auto_gain_min), std::nullopt);
    EXPECT_EQ(real(property::auto_gain_max), std::nullopt);
}

TEST_F(unpacking, GainLimitsLow0AndHighMinus100WriteBothTheHighOneAsMinus100) {
    host().gainlims_low = 0.0F;
    host().gainlims_high = -100.0F;
    Conf__UnpackAutoFn(bag);
    EXPECT_EQ(real(property::auto_gain_min), 0.0);
    EXPECT_EQ(real(property::auto_gain_max), -100.0);
}

TEST_F(unpacking, ExposureLimitsAreTruncatedAndTheLowOneDecides) {
    host().etlims_low = 12.9F;
    host().etlims_high = -1.0F;
    Conf__UnpackAutoFn(bag);
    EXPECT_EQ(integer(property::auto_exposure_min), 12);
    EXPECT_EQ(integer(property::auto_exposure_max), -1);
    property_bag other;
    host().etlims_low = -1.0F;
    host().etlims_high = 500.0F;
    Conf__UnpackAutoFn(other);
    int64_t value = 0;
    EXPECT_FALSE(other.getInt64(property::auto_exposure_max, value));
}

TEST_F(unpacking, ManualValuesAreWidened) {
    host().gain_man = 6.5F;
    host().expt_man = 1'234.5F;
    Conf__UnpackManualGainDb(bag);
    Conf__UnpackManualExposure(bag);
    EXPECT_EQ(real(property::manual_gain_db), 6.5);
    EXPECT_EQ(real(property::manual_exposure), 1'234.5);
}

TEST_F(unpacking, EachValueOfTheRegionIsIndependent) {
    host().offset_y = 0;
    host().width = 640;
    Conf__UnpackSensor(bag);
    EXPECT_EQ(integer(property::sensor_x), std::nullopt);
    EXPECT_EQ(integer(property::sensor_y), 0);
    EXPECT_EQ(integer(property::sensor_w), 640);
    EXPECT_EQ(integer(property::sensor_h), std::nullopt);
    host().offset_x = -2;
    host().height = INT32_MAX;
    Conf__UnpackSensor(bag);
    EXPECT_EQ(integer(property::sensor_x), -2);
    EXPECT_EQ(integer(property::sensor_h), INT32_MAX);
}

TEST_F(unpacking, PresentKeysAreNeverRemoved) {
    bag.setInt64(property::sensor_x, 8);
    bag.setDouble(property::manual_gain_db, 1.0);
    Conf__UnpackSensor(bag);
    Conf__UnpackManualGainDb(bag);
    EXPECT_EQ(integer(property::sensor_x), 8);
    EXPECT_EQ(real(property::manual_gain_db), 1.0);
}

// ---- Lines --------------------------------------------------------------------------------------

TEST_F(unpacking, ACountOf5ProcessesSlots0To2AndLogsTheCount3) {
    host().io_lines = {{5, 1, 1}, {6, 2, 2}, {5, 3, 2}, {6, 1, 1}, {6, 1, 1}};
    host().iobox_num = 5;
    Conf__UnpackGpio(bag);
    EXPECT_TRUE(logged(level::info, "", tag, "exec: gpio-count:3"));
    EXPECT_THAT(
        calls({"MgGiMainCtx__GetIoboxPin"}),
        ElementsAre("MgGiMainCtx__GetIoboxPin(0)", "MgGiMainCtx__GetIoboxPin(1)", "MgGiMainCtx__GetIoboxPin(2)"));
    EXPECT_EQ(integer(property::line2_source), 1) << "a later slot of the same pin overwrites the earlier one";
    EXPECT_EQ(integer(property::line2_inverter), 1);
    EXPECT_EQ(integer(property::line3_source), 1);
    EXPECT_EQ(integer(property::line3_inverter), 1);
}

TEST_F(unpacking, APinLine1IsReportedAsUnsupportedAndWritesNothing) {
    lines({{1, 1, 1}});
    EXPECT_TRUE(warning("fail: unsupported (pin:Line1)"));
    EXPECT_EQ(integer(property::line2_source), std::nullopt);
    EXPECT_EQ(integer(property::line3_source), std::nullopt);
}

TEST_F(unpacking, EveryPinHasItsName) {
    static constexpr char const* names[] = {"None", "Line1", "Line2", "Line3", "Line4", "Out1", "Out2",
                                            "Out3", "Out4",  "Gpio0", "Gpio1", "Gpio2", "Gpio3"};
    for (uint32_t pin = 0; pin < 13; ++pin) {
        if (pin != 5 && pin != 6) {
            lines({{pin, 1, 1}});
        }
    }
    for (uint32_t pin = 0; pin < 13; ++pin) {
        if (pin != 5 && pin != 6) {
            EXPECT_TRUE(warning(std::string("fail: unsupported (pin:") + names[pin] + ")"));
        }
    }
}

TEST_F(unpacking, APinOutsideTheTableIsUnsupportedAndNamedNone) {
    lines({{13, 1, 1}, {0xFFFFFFFF, 1, 1}});
    EXPECT_TRUE(warning("fail: unsupported (pin:None)"));
    EXPECT_EQ(count_in_system_log(level::warning, "Conf__UnpackGpio", "fail: unsupported (pin:None)\n"), 2u);
}

TEST_F(unpacking, APinOut1WithSource0WritesNothing) {
    lines({{5, 0, 1}});
    EXPECT_TRUE(warning("fail: unsupported (pin:Out1, source:0)"));
    EXPECT_EQ(integer(property::line2_source), std::nullopt);
    EXPECT_EQ(integer(property::line2_inverter), std::nullopt);
}

TEST_F(unpacking, WithSource1AndInverter3ItWritesLine2Source2AndNoInverterKey) {
    lines({{5, 1, 3}});
    EXPECT_TRUE(warning("fail: unsupported (pin:Out1, inverter:3)"));
    EXPECT_EQ(integer(property::line2_source), 2);
    EXPECT_EQ(integer(property::line2_inverter), std::nullopt);
}

TEST_F(unpacking, SourcesAndInvertersAreTranslated) {
    lines({{6, 3, 1}});
    EXPECT_EQ(integer(property::line3_source), 1);
    EXPECT_EQ(integer(property::line3_inverter), 2);
    lines({{6, 2, 2}});
    EXPECT_EQ(integer(property::line3_source), 1);
    EXPECT_EQ(integer(property::line3_inverter), 1);
    lines({{6, 4, 1}});
    EXPECT_TRUE(warning("fail: unsupported (pin:Out2, source:4)"));
}

}  // namespace
