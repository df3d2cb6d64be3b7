// SPDX-License-Identifier: MIT
// Counts the allocations per frame. A separate program, because it replaces the allocation functions.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "allocation_count.hpp"
#include "telemetry/metrics.hpp"
#include "telemetry/mqtt_publisher.hpp"

using namespace mediagrabber;
using support::allocations;

namespace {

/// Allocations of an observer for 1,000 frames, after the first one.
std::size_t allocated_by(frame_observer_like& observer) {
    frame_record record;
    record.announced_us = 5;
    std::size_t before = 0;
    for (std::uint64_t i = 0; i <= 1000; ++i) {
        record.number = i + 1;
        record.timestamp_us = 1'000'000 + i * 10'000;
        record.handed_over_us = record.timestamp_us + i;
        observer.on_frame(frame_lease(nullptr, std::nullopt, 0, record));
        before = i == 0 ? allocations.load() : before;
    }
    return allocations - before;
}

}  // namespace

TEST(Allocations, AreCounted) {
    auto const before = allocations.load();
    std::vector<std::byte> const some(100);
    EXPECT_EQ(allocations, before + 1);
    EXPECT_EQ(some.size(), 100U);
}

TEST(Metrics, DoNotAllocatePerFrame) {
    std::atomic<std::uint32_t> const period_us{10'000};
    metrics tested;
    tested.measure_against(period_us);
    EXPECT_EQ(allocated_by(tested), 0U);
    EXPECT_NE(
        tested.text({}).find("mediagrabber_frame_interval_error_seconds_count{instance_number=\"0\",name=\"\"} 1000"),
        std::string::npos);
}

TEST(MqttPublisher, DoesNotAllocatePerFrameEvenWithAFullQueue) {
    configuration chosen;
    chosen.mqtt.broker = "mqtt://127.0.0.1:1";
    chosen.mqtt.frames = true;
    chosen.mqtt.queue_frames = 10;
    mqtt_publisher tested(chosen.mqtt, "left");
    EXPECT_EQ(allocated_by(tested), 0U);
    EXPECT_EQ(tested.status().dropped, 991U);
}
