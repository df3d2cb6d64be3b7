// SPDX-License-Identifier: MIT
#include "device/level_control.hpp"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <cmath>

#include "device/sensor.hpp"
#include "feature_bench.hpp"
#include "image/light_meter.hpp"

using namespace camsim;
using gvcp::status;

namespace {

scene_settings small_scene(scene_kind kind = scene_kind::chart) {
    scene_settings scene;
    scene.sensor_width = 320;
    scene.sensor_height = 240;
    scene.kind = kind;
    return scene;
}

camera_options with_scene(scene_settings const& scene) {
    camera_options options;
    options.scene = scene;
    return options;
}

/// A camera that measures each frame and adjusts its level, as acquisition does.
struct measuring_camera : feature_bench {
    explicit measuring_camera(scene_settings const& scene) : feature_bench(with_scene(scene)), meter(scene) {}

    frame_settings frame() {
        return {number,           state.image.exposure_us, state.image.total_gain(),
                state.image.area, state.image.format,      state.frame_tone()};
    }
    /// \return the mean of the frame, as a fraction of full scale
    double expose() {
        double const mean = meter.mean(frame(), state.level.centre_only);
        if (state.level.active()) {
            state.update_levels(mean);
        }
        ++number;
        return mean / 4095.0;
    }
    double expose(int frames) {
        double last = 0.0;
        for (int count = 0; count < frames; ++count) {
            last = expose();
        }
        return last;
    }

    light_meter meter;
    std::uint64_t number = 0;
};

constexpr std::uint32_t off = 0;
constexpr std::uint32_t once = 1;
constexpr std::uint32_t continuous = 2;

}  // namespace

TEST(LightMeter, MeasuresTheMeanOfTheImage) {
    scene_settings const scene = small_scene();
    frame_settings frame;
    frame.area = {304, 200, 8, 2};
    frame.format = pixel_format::bayer_rg8;
    std::vector<std::byte> bytes(frame_bytes(frame.area, frame.format));
    render_frame({scene, frame}, bytes);
    double sum = 0.0;
    for (std::byte const value : bytes) {
        sum += std::to_integer<int>(value);
    }
    double const mean = sum / static_cast<double>(bytes.size());
    EXPECT_NEAR(light_meter(scene).mean(frame, false), mean * 16, 0.02 * mean * 16);
}

TEST(LightMeter, CanMeasureTheCentreOnly) {
    scene_settings scene = small_scene();
    scene.noise = 0.0;
    frame_settings frame;
    frame.area = {320, 128, 0, 32};
    frame_settings middle = frame;
    middle.area = {160, 64, 80, 64};
    light_meter meter(scene);
    EXPECT_DOUBLE_EQ(meter.mean(frame, true), meter.mean(middle, false));
    EXPECT_NE(meter.mean(frame, true), meter.mean(frame, false));
}

TEST(LightMeter, MeasuresTheImageAfterTheLut) {
    frame_settings frame;
    frame.area = {320, 240, 0, 0};
    lut_tables tables{1, {}};
    tables.channels[0].fill(777);
    frame.applied_tone.lut = std::make_shared<lut_tables const>(tables);
    EXPECT_DOUBLE_EQ(light_meter(small_scene()).mean(frame, false), 777.0);
}

TEST(LevelControl, SettlesAtTheReferenceFromAnyExposureAndGain) {
    for (std::uint32_t const reference : {10U, 30U, 50U, 70U}) {
        for (double const exposure : {10.0, 1000.0, 50'000.0, 1e6}) {
            for (double const gain : {1.0, 16.0}) {
                measuring_camera camera(small_scene());
                camera.write("ALCReference", reference);
                camera.write_float("ExposureTime", exposure);
                camera.write_float("Gain", gain);
                camera.write("ExposureAuto", continuous);
                camera.write("GainAuto", continuous);
                camera.expose(60);
                for (int frame = 0; frame < 100; ++frame) {
                    ASSERT_NEAR(camera.expose(), reference / 100.0, 0.05 * reference / 100.0)
                        << "reference " << reference << " from " << exposure << " us, gain " << gain;
                }
            }
        }
    }
}

TEST(LevelControl, BrightensADimSceneByExposureOnlyOrGainOnly) {
    measuring_camera by_exposure(small_scene(scene_kind::dim));
    by_exposure.write("ExposureAuto", continuous);
    EXPECT_NEAR(by_exposure.expose(61), 0.5, 0.025);
    EXPECT_EQ(by_exposure.state.image.total_gain(), 1.0);

    measuring_camera by_gain(small_scene(scene_kind::dim));
    by_gain.write_float("ExposureTime", 5000.0);
    by_gain.write("GainAuto", continuous);
    EXPECT_NEAR(by_gain.expose(61), 0.5, 0.025);
    EXPECT_EQ(by_gain.state.image.exposure_us, 5000.0);
}

TEST(LevelControl, SettlesWithALutThatAmplifiesChanges) {
    for (double const gamma : {0.45, 2.2, 3.0}) {
        measuring_camera camera(small_scene());
        camera.write("ExposureAuto", continuous);
        camera.write("JAILUTMode", 1);
        for (std::uint32_t index = 0; index < lut_entries; ++index) {
            camera.write("LUTIndex", index);
            camera.write("LUTValue", static_cast<std::uint32_t>(4095 * std::pow(index / 256.0, gamma)));
        }
        camera.expose(60);
        for (int frame = 0; frame < 20; ++frame) {
            ASSERT_NEAR(camera.expose(), 0.5, 0.025) << "gamma " << gamma;
        }
    }
}

TEST(LevelControl, StaysWithinTheLimits) {
    measuring_camera camera(small_scene(scene_kind::dim));
    camera.write("AutoShutterControlExposureMin", 500);
    camera.write("AutoShutterControlExposureMax", 3000);
    camera.write("AutoGainControlGainRawMin", 150);
    camera.write("AutoGainControlGainRawMax", 200);
    camera.write("ExposureAuto", continuous);
    camera.write("GainAuto", continuous);
    camera.expose();
    for (int frame = 0; frame < 60; ++frame) {
        camera.expose();
        ASSERT_GE(camera.state.image.exposure_us, 500.0);
        ASSERT_LE(camera.state.image.exposure_us, 3000.0);
        ASSERT_GE(camera.state.image.total_gain(), 1.5);
        ASSERT_LE(camera.state.image.total_gain(), 2.0);
    }
    EXPECT_EQ(camera.state.image.exposure_us, 3000.0);
    EXPECT_EQ(camera.state.image.total_gain(), 2.0);
    camera.write("ALCReference", 1);
    camera.expose(60);
    EXPECT_EQ(camera.state.image.exposure_us, 500.0);
    EXPECT_EQ(camera.state.image.total_gain(), 1.5);
}

TEST(LevelControl, IncreasesExposureBeforeGain) {
    measuring_camera camera(small_scene(scene_kind::dim));
    camera.write("ExposureAuto", continuous);
    camera.write("GainAuto", continuous);
    camera.write("AutoShutterControlExposureMax", 4000);
    EXPECT_NEAR(camera.expose(61), 0.5, 0.025);
    EXPECT_EQ(camera.state.image.exposure_us, 4000.0);
    EXPECT_GT(camera.state.image.total_gain(), 1.0);
}

TEST(LevelControl, NeverReducesTheFrameRate) {
    measuring_camera camera(small_scene(scene_kind::dim));
    camera.write_float("AcquisitionFrameRate", 200.0);
    camera.write("ExposureAuto", continuous);
    camera.expose(60);
    EXPECT_DOUBLE_EQ(camera.state.image.exposure_us, 5000.0 - sensor::pause_between_exposures_us);
}

TEST(LevelControl, SwitchesOffAfterOnceHasSettled) {
    measuring_camera camera(small_scene());
    camera.write_float("ExposureTime", 50.0);
    camera.write("ExposureAuto", once);
    EXPECT_EQ(camera.read("ExposureAuto"), once);
    double mean = 0.0;
    for (int frame = 0; frame < 60 && camera.read("ExposureAuto") == once; ++frame) {
        mean = camera.expose();
    }
    EXPECT_EQ(camera.read("ExposureAuto"), off);
    EXPECT_NEAR(mean, 0.5, 0.025);
    camera.write_float("ExposureTime", 50.0);
    camera.expose(10);
    EXPECT_EQ(camera.read_float("ExposureTime"), 50.0);
}

TEST(LevelControl, SwitchesOffAfterOnceHasReachedALimit) {
    scene_settings scene = small_scene();
    scene.illumination = 0.0;
    measuring_camera camera(scene);
    camera.write("ExposureAuto", once);
    camera.expose(60);
    EXPECT_EQ(camera.read("ExposureAuto"), off);
    EXPECT_DOUBLE_EQ(camera.read_float("ExposureTime"), sensor::max_exposure_at(20.0));
}

TEST(LevelControl, ChangesNothingWhileItIsOff) {
    measuring_camera camera(small_scene());
    camera.write_float("ExposureTime", 77.0);
    camera.expose(10);
    EXPECT_EQ(camera.read_float("ExposureTime"), 77.0);
    EXPECT_EQ(camera.read_float("Gain"), 1.0);
}

RC_GTEST_PROP(LevelControl, StaysFiniteWhateverIsMeasured, ()) {
    level_control control;
    controlled_value exposure{1000.0, true, 10.0, 50'000.0};
    controlled_value gain{1.0, true, 1.0, 16.0};
    for (int frame = 0; frame < 50; ++frame) {
        double const mean = *rc::gen::element(0.0, 0.1, 64.0, 2000.0, 4095.0);
        auto const next = control.next(mean, *rc::gen::element(40.0, 2000.0, 4095.0), exposure, gain);
        RC_ASSERT(next.exposure_us >= 10.0 && next.exposure_us <= 50'000.0);
        RC_ASSERT(next.gain >= 1.0 && next.gain <= 16.0);
        exposure.value = next.exposure_us;
        gain.value = next.gain;
    }
}

TEST(LevelFeatures, HaveLimits) {
    feature_bench camera;
    EXPECT_EQ(camera.write("ALCReference", 101), status::invalid_parameter);
    EXPECT_EQ(camera.write("ALCReference", 0), status::invalid_parameter);
    EXPECT_EQ(camera.write("AutoGainControlGainRawMin", 99), status::invalid_parameter);
    EXPECT_EQ(camera.write("AutoGainControlGainRawMax", 1601), status::invalid_parameter);
    EXPECT_EQ(camera.write("AutoShutterControlExposureMin", 9), status::invalid_parameter);
    EXPECT_EQ(camera.write("AutoShutterControlExposureMax", 1'000'001), status::invalid_parameter);
    EXPECT_EQ(camera.write("ExposureAuto", 3), status::invalid_parameter);
    EXPECT_EQ(camera.write("ALCAreaEnable", 1), status::success);
    EXPECT_TRUE(camera.state.level.centre_only);
}
