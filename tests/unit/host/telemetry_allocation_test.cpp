// Counts what telling of a frame allocates. A program of its own: it replaces the allocation functions.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

#include "telemetry/messenger.hpp"
#include "telemetry/metrics.hpp"

using namespace mediagrabber;

namespace {

std::atomic<std::size_t> allocations{0};

void* allocate(std::size_t size) {
    ++allocations;
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

/// What showing 1,000 frames to a watcher allocates, after the first.
std::size_t allocated_by(frame_watcher_like& watcher) {
    frame_record record;
    record.announced_us = 5;
    std::size_t before = 0;
    for (std::uint64_t i = 0; i <= 1000; ++i) {
        record.number = i + 1;
        record.timestamp_us = 1'000'000 + i * 10'000;
        record.handed_over_us = record.timestamp_us + i;
        watcher.see(frame_lease(nullptr, std::nullopt, 0, record));
        before = i == 0 ? allocations.load() : before;
    }
    return allocations - before;
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

TEST(Allocations, AreCounted) {
    auto const before = allocations.load();
    std::vector<std::byte> const some(100);
    EXPECT_EQ(allocations, before + 1);
    EXPECT_EQ(some.size(), 100U);
}

TEST(Metrics, AllocateNothingForAFrame) {
    std::atomic<std::uint32_t> const period_us{10'000};
    metrics tested;
    tested.measure_against(period_us);
    EXPECT_EQ(allocated_by(tested), 0U);
    EXPECT_NE(tested.text({}).find("mediagrabber_frame_interval_error_seconds_count{instance_number=\"0\"} 1000"),
              std::string::npos);
}

TEST(Messenger, AllocatesNothingForAFrameEvenWhenItsQueueIsFull) {
    configuration chosen;
    chosen.mqtt_broker = "mqtt://127.0.0.1:1";
    chosen.mqtt_frames = true;
    chosen.mqtt_queue = 10;
    messenger tested(chosen);
    EXPECT_EQ(allocated_by(tested), 0U);
    EXPECT_EQ(tested.status().dropped, 991U);
}
