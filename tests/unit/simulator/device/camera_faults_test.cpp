// SPDX-License-Identifier: MIT
#include "device/camera_faults.hpp"

#include <gtest/gtest.h>

#include "features/camera_features.hpp"

using namespace camsim;
using namespace std::chrono_literals;

namespace {

constexpr std::uint64_t tick_frequency = 1'000'000'000;

struct CameraFaults : testing::Test {
    camera_options options;
    device_clock::host_time power_up{std::chrono::hours(1)};
    camera_state state{options, {}, power_up};
    active_faults faults{1};

    /// The counter 100 s after power-up.
    std::uint64_t ticks() const { return state.clock.ticks_at(100s); }
    void start(fault const& one) {
        faults.add(1, one);
        apply_camera_faults(faults, state);
    }
    void stop() {
        faults.remove(1);
        apply_camera_faults(faults, state);
    }
};

}  // namespace

TEST_F(CameraFaults, FreezeStopsTheStreamOnlyByDefault) {
    start(default_fault(fault_kind::freeze));
    EXPECT_TRUE(state.stream_frozen);
    EXPECT_FALSE(state.control_unresponsive);
    stop();
    EXPECT_FALSE(state.stream_frozen);
}

TEST_F(CameraFaults, FreezeStopsTheControlChannelIfConfigured) {
    fault freeze = default_fault(fault_kind::freeze);
    freeze.values["control"] = true;
    start(freeze);
    EXPECT_TRUE(state.stream_frozen);
    EXPECT_TRUE(state.control_unresponsive);
    stop();
    EXPECT_FALSE(state.control_unresponsive);
}

TEST_F(CameraFaults, TimestampJumpMovesTheCounterWhileItIsActive) {
    std::uint64_t const before = ticks();
    start(default_fault(fault_kind::timestamp_jump));
    EXPECT_EQ(ticks(), before - 10 * tick_frequency);
    stop();
    EXPECT_EQ(ticks(), before);
}

TEST_F(CameraFaults, TimestampWrapReducesTheWidthOfTheCounter) {
    start(default_fault(fault_kind::timestamp_wrap));
    EXPECT_EQ(ticks(), 100 * tick_frequency % (std::uint64_t{1} << 32U));
    stop();
    EXPECT_EQ(ticks(), 100 * tick_frequency);
}

TEST_F(CameraFaults, OverheatingReplacesTheTemperatureWhileItIsActive) {
    feature const temperature = device_features(state).back();
    ASSERT_EQ(temperature.name, "DeviceTemperature");
    auto const& range = std::get<float_kind>(temperature.kind);
    auto const& parameter = definition_of(fault_kind::overheating).parameters.at(0);
    EXPECT_EQ(parameter.minimum, std::get<double>(range.minimum));
    EXPECT_EQ(parameter.maximum, std::get<double>(range.maximum));
    auto const celsius = [&] { return std::get<float_kind>(temperature.kind).get(); };
    EXPECT_LT(celsius(), 50.0);
    fault hot = default_fault(fault_kind::overheating);
    start(hot);
    EXPECT_EQ(celsius(), 85.0);
    stop();
    EXPECT_LT(celsius(), 50.0);
    hot.values["celsius"] = 97.5;
    start(hot);
    EXPECT_EQ(celsius(), 97.5);
}

TEST_F(CameraFaults, PowerCycleSwitchesThePowerOff) {
    EXPECT_TRUE(has_power(faults));
    start(default_fault(fault_kind::power_cycle));
    EXPECT_FALSE(has_power(faults));
    stop();
    EXPECT_TRUE(has_power(faults));
}
