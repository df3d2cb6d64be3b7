// SPDX-License-Identifier: MIT
#include "image/frame_renderer.hpp"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <set>

#include "stream/frame_strip.hpp"

using namespace camsim;

namespace {

scene_settings small_scene() {
    scene_settings scene;
    scene.sensor_width = 640;
    scene.sensor_height = 384;
    return scene;
}

frame_settings whole_frame(scene_settings const& scene, pixel_format format = pixel_format::mono12) {
    frame_settings frame;
    frame.area = {scene.sensor_width, scene.sensor_height, 0, 0};
    frame.format = format;
    return frame;
}

std::vector<std::byte> rendered(scene_settings const& scene, frame_settings const& frame) {
    std::vector<std::byte> out(frame_bytes(frame.area, frame.format));
    render_frame({scene, frame}, out);
    return out;
}

/// 12-bit values of a Mono12 frame.
std::vector<int> samples(scene_settings const& scene, frame_settings frame) {
    frame.format = pixel_format::mono12;
    auto const data = rendered(scene, frame);
    std::vector<int> values(data.size() / 2);
    for (std::size_t index = 0; index < values.size(); ++index) {
        values[index] = std::to_integer<int>(data[2 * index]) | std::to_integer<int>(data[2 * index + 1]) << 8;
    }
    return values;
}

double mean(std::vector<int> const& values) {
    return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

double deviation(std::vector<int> const& values) {
    double const middle = mean(values);
    double sum = 0.0;
    for (int const value : values) {
        sum += (value - middle) * (value - middle);
    }
    return std::sqrt(sum / static_cast<double>(values.size()));
}

}  // namespace

TEST(Scene, IsReproducibleAndDependsOnSeedAndFrameNumber) {
    scene_settings scene = small_scene();
    frame_settings frame = whole_frame(scene);
    auto const first = rendered(scene, frame);
    EXPECT_EQ(rendered(scene, frame), first);
    frame.frame_number = 1;
    EXPECT_NE(rendered(scene, frame), first);
    frame.frame_number = 0;
    scene.seed = 2;
    EXPECT_NE(rendered(scene, frame), first);
}

TEST(Scene, MovesInEachBandFromFrameToFrame) {
    scene_settings scene = small_scene();
    scene.noise = 0.0;
    frame_settings frame = whole_frame(scene);
    for (std::uint32_t band = 0; band < chart::band_count; ++band) {
        frame.area = {640, chart::band_height, 0, band * chart::band_height};
        frame.frame_number = 7;
        auto const before = rendered(scene, frame);
        frame.frame_number = 8;
        EXPECT_NE(rendered(scene, frame), before) << "band " << band;
    }
}

TEST(Scene, BrightensWithExposureGainAndIllumination) {
    scene_settings scene = small_scene();
    scene.noise = 0.0;
    frame_settings frame = whole_frame(scene);
    frame.exposure_us = 250.0;
    double const black = scene.black_level;
    double const light = mean(samples(scene, frame)) - black;
    EXPECT_GT(light, 100.0);
    frame.exposure_us = 500.0;
    EXPECT_NEAR(mean(samples(scene, frame)) - black, 2 * light, 2.0);
    frame.gain = 2.0;
    frame.exposure_us = 250.0;
    EXPECT_NEAR(mean(samples(scene, frame)) - black, 2 * light, 2.0);
    frame.gain = 1.0;
    scene.illumination = 0.5;
    EXPECT_NEAR(mean(samples(scene, frame)) - black, light / 2, 2.0);
}

TEST(Scene, IsLimitedToBlackAndTwelveBits) {
    scene_settings scene = small_scene();
    scene.noise = 0.0;
    frame_settings frame = whole_frame(scene);
    frame.exposure_us = 1e6;
    frame.gain = 64.0;
    auto const bright = samples(scene, frame);
    EXPECT_EQ(*std::ranges::max_element(bright), 4095);
    scene.illumination = 0.0;
    for (int const value : samples(scene, frame)) {
        ASSERT_EQ(value, 64);
    }
}

TEST(Noise, HasTheConfiguredDeviationTimesTheGain) {
    scene_settings scene = small_scene();
    scene.illumination = 0.0;
    scene.black_level = 500;
    scene.noise = 10.0;
    frame_settings frame = whole_frame(scene);
    EXPECT_NEAR(deviation(samples(scene, frame)), 10.0, 0.5);
    EXPECT_NEAR(mean(samples(scene, frame)), 500.0, 1.0);
    frame.gain = 4.0;
    EXPECT_NEAR(deviation(samples(scene, frame)), 40.0, 2.0);
}

TEST(Scene, ShowsAnObjectThatStaysInsideTheSensor) {
    scene_settings const scene = small_scene();
    for (std::uint64_t frame = 0; frame < 5000; ++frame) {
        chart::square const object = chart::object(scene, frame);
        ASSERT_LE(object.left + object.side, scene.sensor_width);
        ASSERT_LE(object.top + object.side, scene.sensor_height);
        ASSERT_EQ(object.left % 2, 0U);
    }
    chart::square const first = chart::object(scene, 0);
    chart::square const second = chart::object(scene, 1);
    EXPECT_NE(first.left, second.left);
    EXPECT_NE(first.top, second.top);
}

TEST(DimScene, HasFewEightBitValuesAndManyTwelveBitValues) {
    scene_settings scene = small_scene();
    scene.kind = scene_kind::dim;
    auto const values = samples(scene, whole_frame(scene));
    std::set<int> const twelve_bits(values.begin(), values.end());
    auto const bytes = rendered(scene, whole_frame(scene, pixel_format::mono8));
    std::set<std::byte> const eight_bits(bytes.begin(), bytes.end());
    EXPECT_LE(eight_bits.size(), 16U);
    EXPECT_GE(twelve_bits.size(), 8 * eight_bits.size());
    EXPECT_LT(mean(samples(scene, whole_frame(scene))), 200.0);
}

TEST(BayerPattern, HasRedGreenAndBlueAtTheirPositions) {
    scene_settings scene = small_scene();
    scene.noise = 0.0;
    scene.black_level = 0;
    frame_settings frame = whole_frame(scene, pixel_format::bayer_rg8);
    chart::square const object = chart::object(scene, 0);
    frame.area = {16, 16, (object.left + 7) / 8 * 8, object.top};
    auto const data = rendered(scene, frame);
    light const expected = chart::object_light(scene_kind::chart);
    auto const at = [&](std::size_t x, std::size_t y) { return std::to_integer<unsigned>(data[y * 16 + x]); };
    EXPECT_EQ(at(0, 0), expected.red >> 4U);
    EXPECT_EQ(at(1, 0), expected.green >> 4U);
    EXPECT_EQ(at(0, 1), expected.green >> 4U);
    EXPECT_EQ(at(1, 1), expected.blue >> 4U);
}

TEST(Tone, AppliesTheFirstLutToMonochromeImages) {
    scene_settings const scene = small_scene();
    frame_settings frame = whole_frame(scene);
    auto const straight = samples(scene, frame);
    lut_tables tables{1, {}};
    std::ranges::transform(identity_lut(), tables.channels[0].begin(),
                           [](std::uint16_t value) { return static_cast<std::uint16_t>(4095 - value); });
    frame.applied_tone.lut = std::make_shared<lut_tables const>(tables);
    auto const negative = samples(scene, frame);
    for (std::size_t index = 0; index < straight.size(); ++index) {
        ASSERT_EQ(negative[index], 4095 - straight[index]);
    }
    frame.applied_tone = {.gamma = 0.5};
    auto const brighter = samples(scene, frame);
    for (std::size_t index = 0; index < straight.size(); ++index) {
        ASSERT_EQ(brighter[index], std::lround(4095.0 * std::sqrt(straight[index] / 4095.0)));
    }
}

TEST(Tone, AppliesALutToEachColourOfABayerPattern) {
    scene_settings const scene = small_scene();
    frame_settings frame = whole_frame(scene, pixel_format::bayer_rg8);
    frame.area = {64, 34, 8, 2};
    lut_tables tables{1, {}};
    for (std::size_t channel = 0; channel < lut_channels; ++channel) {
        tables.channels[channel].fill(static_cast<std::uint16_t>((channel + 1) * 160));
    }
    frame.applied_tone.lut = std::make_shared<lut_tables const>(tables);
    auto const data = rendered(scene, frame);
    for (std::size_t y = 0; y < frame.area.height; ++y) {
        for (std::size_t x = 0; x < frame.area.width; ++x) {
            ASSERT_EQ(std::to_integer<unsigned>(data[y * 64 + x]), 10 * (1 + x % 2 + y % 2)) << x << ' ' << y;
        }
    }
}

TEST(Tone, OfAFrameDoesNotAffectTheNextFrame) {
    scene_settings const scene = small_scene();
    frame_settings frame = whole_frame(scene);
    auto const straight = rendered(scene, frame);
    std::vector<std::byte> again(straight.size());
    frame_renderer renderer(scene);
    frame.applied_tone.gamma = 0.45;
    renderer.prepare(frame);
    renderer.render_lines(0, frame.area.height, again);
    EXPECT_NE(again, straight);
    frame.applied_tone = {};
    renderer.prepare(frame);
    renderer.render_lines(0, frame.area.height, again);
    EXPECT_EQ(again, straight);
}

RC_GTEST_PROP(Region, CutsTheSensorsImage, ()) {
    scene_settings const scene = small_scene();
    auto const format = *rc::gen::element(pixel_format::mono8, pixel_format::mono12, pixel_format::bayer_rg8);
    frame_settings frame = whole_frame(scene, format);
    frame.frame_number = *rc::gen::inRange<std::uint64_t>(0, 100000);
    auto const whole = rendered(scene, frame);
    region const all = frame.area;
    frame.area.width = 8 * *rc::gen::inRange(2U, 81U);
    frame.area.height = 2 * *rc::gen::inRange(8U, 193U);
    frame.area.offset_x = 8 * *rc::gen::inRange(0U, (640U - frame.area.width) / 8 + 1);
    frame.area.offset_y = 2 * *rc::gen::inRange(0U, (384U - frame.area.height) / 2 + 1);
    auto const part = rendered(scene, frame);
    std::size_t const pixel = bits_per_pixel(format) / 8;
    for (std::size_t y = 0; y < frame.area.height; ++y) {
        auto const from = whole.begin() + static_cast<std::ptrdiff_t>(
                                              ((y + frame.area.offset_y) * all.width + frame.area.offset_x) * pixel);
        std::size_t const line = frame.area.width * pixel;
        RC_ASSERT(std::equal(from, from + static_cast<std::ptrdiff_t>(line),
                             part.begin() + static_cast<std::ptrdiff_t>(y * line)));
    }
}

TEST(RenderFrame, RejectsBuffersOfAnotherSizeAndRegionsOutsideTheSensor) {
    scene_settings const scene = small_scene();
    frame_settings frame = whole_frame(scene);
    std::vector<std::byte> memory(frame_bytes(frame.area, frame.format) - 1);
    EXPECT_THROW(render_frame({scene, frame}, memory), std::invalid_argument);
    frame.area.offset_x = 8;
    memory.resize(memory.size() + 1);
    EXPECT_THROW(render_frame({scene, frame}, memory), std::invalid_argument);
}

RC_GTEST_PROP(FrameStrip, ShowsTheFramesBytesInWindowsOfAnySizeAndOrder, ()) {
    scene_settings const scene = small_scene();
    auto const format = *rc::gen::element(pixel_format::mono8, pixel_format::mono12, pixel_format::mono12_packed);
    frame_settings frame = whole_frame(scene, format);
    frame.area = {104, 50, 16, 4};
    auto const expected = rendered(scene, frame);
    constexpr std::size_t max_window = 3000;
    frame_strip strip(scene, max_window);
    strip.begin(frame);
    for (int window = 0; window < 20; ++window) {
        auto const from = *rc::gen::inRange<std::size_t>(0, expected.size());
        auto const to = std::min(from + *rc::gen::inRange<std::size_t>(1, max_window + 1), expected.size());
        auto const bytes = strip.bytes(from, to);
        RC_ASSERT(std::equal(bytes.begin(), bytes.end(), expected.begin() + static_cast<std::ptrdiff_t>(from),
                             expected.begin() + static_cast<std::ptrdiff_t>(to)));
    }
}
