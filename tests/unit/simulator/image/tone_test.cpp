// SPDX-License-Identifier: MIT
#include "image/tone.hpp"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cmath>

#include "feature_bench.hpp"

using namespace camsim;
using gvcp::status;

namespace {

constexpr auto mono12 = static_cast<std::uint32_t>(pixel_format::mono12);
constexpr auto bayer = static_cast<std::uint32_t>(pixel_format::bayer_rg8);

/// Writes a LUT as applications do, one entry after the other.
template <typename function>
void write_table(feature_bench& camera, function value) {
    for (std::uint32_t index = 0; index < lut_entries; ++index) {
        ASSERT_EQ(camera.write("LUTIndex", index), status::success);
        ASSERT_EQ(camera.write("LUTValue", value(index)), status::success);
    }
}

camera_options locked_tone() {
    camera_options options;
    options.lut_locked_while_acquiring = true;
    return options;
}

}  // namespace

TEST(IdentityLut, ChangesNoValue) {
    tone_curve const curve = curve_of(identity_lut());
    for (std::size_t value = 0; value < curve.size(); ++value) {
        ASSERT_EQ(curve[value], value);
    }
}

TEST(LutCurve, InterpolatesLinearlyBetweenEntries) {
    lut_table table{};
    table.fill(1000);
    table[7] = 1160;
    tone_curve const curve = curve_of(table);
    EXPECT_EQ(curve[6 * 16], 1000);
    EXPECT_EQ(curve[6 * 16 + 1], 1010);
    EXPECT_EQ(curve[7 * 16], 1160);
    EXPECT_EQ(curve[7 * 16 + 8], 1080);
    EXPECT_EQ(curve[8 * 16], 1000);
}

RC_GTEST_PROP(LutCurve, StaysWithinTwelveBitsWhateverIsWritten, ()) {
    lut_table table{};
    for (std::uint16_t& entry : table) {
        entry = *rc::gen::inRange<std::uint16_t>(0, 5000);
    }
    tone_curve const curve = curve_of(table);
    RC_ASSERT(*std::ranges::max_element(curve) <= 4095);
    for (std::size_t entry = 0; entry < table.size(); ++entry) {
        RC_ASSERT(curve[16 * entry] == std::min<std::uint16_t>(table[entry], 4095));
    }
}

TEST(GammaCurve, KeepsBlackAndWhiteAndBrightensOtherValues) {
    tone_curve const curve = curve_of(0.45);
    EXPECT_EQ(curve[0], 0);
    EXPECT_EQ(curve[4095], 4095);
    EXPECT_EQ(curve[1024], std::lround(4095.0 * std::pow(1024.0 / 4095.0, 0.45)));
    EXPECT_TRUE(std::ranges::is_sorted(curve));
    EXPECT_EQ(curve_of(1.0), curve_of(identity_lut()));
}

TEST(GammaNames, ContainTheirValuesInAscendingOrder) {
    double before = 0.0;
    for (named_gamma const& one : gammas) {
        EXPECT_EQ(std::stoi(std::string(one.name.substr(5))), std::lround(one.gamma * 100)) << one.name;
        EXPECT_GT(one.gamma, before);
        before = one.gamma;
    }
    EXPECT_EQ(gammas.front().name, "Gamma045");
    EXPECT_EQ(gammas.back().name, "Gamma100");
}

TEST(LutFeatures, ApplyTheLutOnlyInLutMode) {
    feature_bench camera;
    EXPECT_EQ(camera.state.frame_tone(), tone{});
    camera.write("JAILUTMode", 2);
    EXPECT_EQ(camera.state.frame_tone().gamma, 1.0);
    camera.write("JAIGamma", 3);
    EXPECT_EQ(camera.state.frame_tone().gamma, 0.6);
    camera.write("JAILUTMode", 1);
    ASSERT_TRUE(camera.state.frame_tone().lut);
    EXPECT_EQ(camera.state.frame_tone().lut->channels[0], identity_lut());
    EXPECT_FALSE(camera.state.frame_tone().gamma);
    EXPECT_EQ(camera.write("JAILUTMode", 3), status::invalid_parameter);
    EXPECT_EQ(camera.write("JAIGamma", 12), status::invalid_parameter);
}

TEST(LutFeatures, DoNotChangeTheLutOfEarlierFrames) {
    feature_bench camera;
    camera.write("JAILUTMode", 1);
    tone const first = camera.state.frame_tone();
    EXPECT_EQ(camera.state.frame_tone(), first);
    camera.write("LUTIndex", 9);
    EXPECT_EQ(camera.state.frame_tone(), first);
    camera.write("LUTValue", 4000);
    tone const second = camera.state.frame_tone();
    EXPECT_EQ(first.lut->channels[0][9], 9 * 16);
    EXPECT_EQ(second.lut->channels[0][9], 4000);
    EXPECT_EQ(second.lut->number, first.lut->number + 1);
}

TEST(LutFeatures, StoreALutForEachColour) {
    feature_bench camera;
    camera.write("PixelFormat", bayer);
    camera.write("JAILUTMode", 1);
    for (std::uint32_t channel = 0; channel < 3; ++channel) {
        camera.write("LUTSelector", channel);
        write_table(camera, [channel](std::uint32_t index) { return index * (channel + 2); });
    }
    camera.write("LUTIndex", 200);
    camera.write("LUTSelector", 1);
    EXPECT_EQ(camera.read("LUTValue"), 600U);
    auto const sent = camera.state.frame_tone().lut;
    EXPECT_EQ(sent->channels[0][255], 510);
    EXPECT_EQ(sent->channels[1][255], 765);
    EXPECT_EQ(sent->channels[2][255], 1020);
    EXPECT_EQ(camera.write("LUTSelector", 3), status::invalid_parameter);
}

TEST(LutFeatures, HaveOneLutForMonochromeFormats) {
    feature_bench camera;
    camera.write("PixelFormat", mono12);
    camera.write("LUTSelector", 2);
    camera.write("LUTIndex", 255);
    camera.write("LUTValue", 77);
    EXPECT_EQ(camera.state.lut.tables[0][255], 77);
    EXPECT_EQ(camera.state.lut.tables[2], identity_lut());
}

TEST(LutFeatures, RejectValuesAboveFullScale) {
    feature_bench camera;
    EXPECT_EQ(camera.write("LUTValue", 4095), status::success);
    EXPECT_EQ(camera.write("LUTValue", 4096), status::invalid_parameter);
    EXPECT_EQ(camera.write("LUTIndex", 256), status::invalid_parameter);
    EXPECT_EQ(camera.read("LUTValue"), 4095U);
}

TEST(LutFeatures, CanHaveAnotherMaximum) {
    camera_options options;
    options.max_lut_value = 4096;
    feature_bench camera(options);
    EXPECT_EQ(camera.write("LUTValue", 4096), status::success);
    EXPECT_EQ(camera.write("LUTValue", 4097), status::invalid_parameter);
}

TEST(LutFeatures, CanBeLockedDuringAnAcquisition) {
    feature_bench open;
    open.write("AcquisitionStart", 1);
    EXPECT_EQ(open.write("LUTValue", 5), status::success);
    feature_bench locking(locked_tone());
    EXPECT_EQ(locking.write("LUTValue", 5), status::success);
    locking.write("AcquisitionStart", 1);
    EXPECT_EQ(locking.write("LUTIndex", 3), status::success);
    EXPECT_EQ(locking.write("LUTValue", 6), status::write_protect);
    EXPECT_EQ(locking.write("JAILUTMode", 1), status::write_protect);
    EXPECT_EQ(locking.write("JAIGamma", 1), status::write_protect);
    locking.write("AcquisitionStop", 1);
    EXPECT_EQ(locking.write("LUTValue", 6), status::success);
}
