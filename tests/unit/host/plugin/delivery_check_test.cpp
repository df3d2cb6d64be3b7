// SPDX-License-Identifier: MIT
#include "plugin/delivery_check.hpp"

#include <gmock/gmock.h>

using namespace mediagrabber;
using std::chrono::duration;
using std::chrono::duration_cast;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr double tolerance = delivery_check::rate_tolerance;

configuration requesting(float rate_hz) {
    configuration values;
    values.timing.frame_rate_hz = rate_hz;
    return values;
}

/// Frames at a rate, on a clock of its own.
class frame_source {
public:
    rate_measurement::clock::time_point next(double rate_hz) {
        now_ += duration_cast<rate_measurement::clock::duration>(duration<double>(1.0 / rate_hz));
        return now_;
    }

private:
    rate_measurement::clock::time_point now_{std::chrono::seconds(1000)};
};

/// A check whose warnings are kept.
class DeliveryCheck : public testing::Test {
protected:
    void frames(double rate_hz, double seconds, std::optional<float> exposure_us = {}) {
        for (double passed = 0.0; passed < seconds; passed += 1.0 / rate_hz) {
            check.frame_arrived({.width = 640,
                                 .height = 480,
                                 .counter = {},
                                 .exposure_us = exposure_us,
                                 .arrived = source.next(rate_hz)});
        }
    }
    delivered_value rate() const { return check.values()[delivery_check::frame_rate]; }
    delivered_value width() const { return check.values()[delivery_check::width]; }

    std::vector<std::string> warnings;
    delivery_check check{[this](std::string const& text) { warnings.push_back(text); }};
    frame_source source;
};

}  // namespace

TEST(RateMeasurement, IsKnownAfterTwoWindows) {
    rate_measurement measured;
    frame_source source;
    for (int i = 0; i < 490; ++i) {
        measured.add({}, source.next(100.0));
    }
    EXPECT_FALSE(measured.rate());
    for (int i = 0; i < 20; ++i) {
        measured.add({}, source.next(100.0));
    }
    ASSERT_TRUE(measured.rate());
    EXPECT_NEAR(*measured.rate(), 100.0, 0.01);
    EXPECT_FALSE(measured.deviates(100.0, tolerance));
    EXPECT_TRUE(measured.deviates(103.0, tolerance));
    EXPECT_TRUE(measured.deviates(97.0, tolerance));
}

TEST(RateMeasurement, NeedsFiveFramesPerWindow) {
    rate_measurement measured;
    frame_source source;
    for (int i = 0; i < 10; ++i) {
        measured.add({}, source.next(0.1));
    }
    EXPECT_FALSE(measured.rate());
    measured.add({}, source.next(0.1));
    EXPECT_NEAR(measured.rate().value_or(0.0), 0.1, 1e-6);
}

TEST(RateMeasurement, CountsExposuresWhoseFramesWereLost) {
    rate_measurement measured;
    frame_source source;
    for (std::uint32_t i = 0; i < 200; ++i) {
        measured.add(3 * i, source.next(30.0));
    }
    EXPECT_NEAR(measured.rate().value_or(0.0), 90.0, 0.1);
}

TEST(RateMeasurement, IgnoresACounterThatStartsAgain) {
    rate_measurement measured;
    frame_source source;
    for (std::uint32_t i = 0; i < 600; ++i) {
        measured.add(i % 100, source.next(100.0));
    }
    EXPECT_FALSE(measured.deviates(100.0, tolerance)) << measured.rate().value_or(0.0);
}

TEST(RateMeasurement, ToleratesAFrameThatArrivesLate) {
    rate_measurement measured;
    frame_source source;
    auto arrived = source.next(100.0);
    for (int i = 0; i < 2000; ++i) {
        arrived = source.next(100.0);
        bool const at_window_end = i % 500 == 249;
        measured.add({}, arrived + std::chrono::milliseconds(at_window_end ? 200 : 0));
        EXPECT_FALSE(measured.deviates(100.0, tolerance)) << i;
    }
}

TEST_F(DeliveryCheck, KnowsNothingBeforeTheFirstFrame) {
    check.run_begins(requesting(100.0F));
    EXPECT_EQ(rate().requested, 100.0);
    EXPECT_FALSE(rate().actual);
    EXPECT_FALSE(width().requested);
    EXPECT_STREQ(width().key, "image.width");
    EXPECT_THAT(check.differences(), IsEmpty());
}

TEST_F(DeliveryCheck, ComparesTheRegionWithTheFrames) {
    auto values = requesting(100.0F);
    values.image.width = 645;
    values.image.height = 480;
    check.run_begins(values);
    frames(100.0, 0.1);
    EXPECT_EQ(width().actual, 640.0);
    EXPECT_TRUE(width().differs);
    EXPECT_FALSE(check.values()[delivery_check::height].differs);
    EXPECT_THAT(
        warnings,
        ElementsAre("image.width: requested 645, but the camera delivers 640: configure image.width = 640, or a "
                    "region that the camera accepts; a refusal is in the plug-in's messages before this one"));
    EXPECT_THAT(check.differences(), ElementsAre("image.width: requested 645, but the camera delivered 640"));
}

TEST_F(DeliveryCheck, DoesNotCompareWhatIsNotConfigured) {
    check.run_begins({});
    check.rate_reported(20'000);
    frames(100.0, 6.0);
    EXPECT_EQ(width().actual, 640.0);
    EXPECT_NEAR(rate().actual.value_or(0.0), 100.0, 0.1);
    EXPECT_FALSE(width().differs || rate().differs);
    EXPECT_THAT(warnings, IsEmpty());
}

TEST_F(DeliveryCheck, ComparesTheReportedRateUntilItIsMeasured) {
    check.run_begins(requesting(100.0F));
    check.rate_reported(12'500);
    frames(100.0, 0.1);
    EXPECT_EQ(rate().actual, 80.0);
    EXPECT_TRUE(rate().differs);
    EXPECT_THAT(warnings, ElementsAre(HasSubstr("timing.frame_rate_hz: requested 100, but the camera delivers 80: ")));
    frames(100.0, 6.0);
    EXPECT_NEAR(rate().actual.value_or(0.0), 100.0, 0.1);
    EXPECT_FALSE(rate().differs);
    EXPECT_EQ(warnings.size(), 1U);
}

TEST_F(DeliveryCheck, ToleratesAPeriodInWholeMicroseconds) {
    check.run_begins(requesting(70'000.0F));
    check.rate_reported(14);
    frames(100.0, 0.1);
    EXPECT_FALSE(rate().differs);
}

TEST_F(DeliveryCheck, NamesAnExposureTimeThatIsTooLong) {
    check.run_begins(requesting(100.0F));
    check.rate_reported(10'000);
    frames(50.0, 6.0, 20'000.0F);
    EXPECT_TRUE(rate().differs);
    EXPECT_THAT(warnings, ElementsAre("timing.frame_rate_hz: requested 100, but the camera delivers 50: the exposure "
                                      "time of 20000 us is longer than the frame period of 10000 us, reduce "
                                      "exposure.time_us (or the upper limit of exposure.limits_us) or "
                                      "timing.frame_rate_hz"));
}

TEST_F(DeliveryCheck, ReportsARateThatIsTooHigh) {
    check.run_begins(requesting(50.0F));
    frames(100.0, 6.0);
    EXPECT_THAT(warnings, ElementsAre(HasSubstr("requested 50, but the camera delivers 100: configure "
                                                "timing.frame_rate_hz = 100, ")));
}

TEST_F(DeliveryCheck, WarnsOncePerRunAndRequestedValue) {
    check.run_begins(requesting(100.0F));
    frames(50.0, 20.0);
    EXPECT_EQ(warnings.size(), 1U);
    check.configured(requesting(100.0F));
    frames(50.0, 6.0);
    EXPECT_EQ(warnings.size(), 1U) << "the requested value is as before";
    check.configured(requesting(90.0F));
    EXPECT_FALSE(rate().differs) << "no frame has arrived since";
    frames(50.0, 6.0);
    EXPECT_EQ(warnings.size(), 2U);
    check.run_begins(requesting(90.0F));
    EXPECT_FALSE(rate().actual);
    frames(50.0, 6.0);
    EXPECT_EQ(warnings.size(), 3U);
    EXPECT_THAT(check.differences(), ElementsAre("timing.frame_rate_hz: requested 90, but the camera delivered 50"));
}

TEST_F(DeliveryCheck, MeasuresAgainAfterAChange) {
    check.run_begins(requesting(100.0F));
    frames(100.0, 6.0);
    check.configured(requesting(50.0F));
    check.rate_reported(20'000);
    frames(50.0, 6.0);
    EXPECT_NEAR(rate().actual.value_or(0.0), 50.0, 0.1);
    EXPECT_THAT(warnings, IsEmpty());
}

TEST_F(DeliveryCheck, ToleratesAPauseOfCapture) {
    check.run_begins(requesting(100.0F));
    for (int i = 0; i < 3; ++i) {
        frames(100.0, 6.0);
        source.next(1.0);
    }
    EXPECT_THAT(warnings, IsEmpty());
}

TEST_F(DeliveryCheck, ReadsTheOffsetsFromTheLog) {
    configuration values;
    values.image.offset_x = 201;
    values.image.offset_y = 102;
    check.run_begins(values);
    check.read_log_line("[JAI_SENSOR:i]: ROI OffsX x OffsY   : 0 x 0");
    EXPECT_FALSE(check.values()[delivery_check::offset_x].actual) << "the region before configuration";
    check.read_log_line("[MG_JAI_PROC:i]: ROI OffsX x OffsY   : 200 x 102");
    EXPECT_EQ(check.values()[delivery_check::offset_x].actual, 200.0);
    EXPECT_TRUE(check.values()[delivery_check::offset_x].differs);
    EXPECT_FALSE(check.values()[delivery_check::offset_y].differs);
    EXPECT_THAT(warnings, ElementsAre(HasSubstr("image.offset_x: requested 201, but the camera delivers 200: ")));
}
