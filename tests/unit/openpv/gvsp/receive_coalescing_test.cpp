// SPDX-License-Identifier: MIT
#include "gvsp/receive_coalescing.hpp"

#include <gtest/gtest.h>

using namespace openpv;
using namespace std::chrono_literals;

namespace {

constexpr std::size_t megabyte = 1'000'000;
constexpr std::size_t large_buffer = 100 * megabyte;
auto const start = std::chrono::steady_clock::time_point(1h);

/// Time of the first sleep without a preceding block.
std::chrono::microseconds first_sleep(stream_progress const& stream, std::size_t buffer_bytes,
                                      std::chrono::steady_clock::time_point now) {
    return receive_coalescing().sleep_time(stream, buffer_bytes, now);
}

/// A block of a megabyte, of which `bytes` have arrived, after `finished` blocks that took 9 ms.
stream_progress after_blocks(std::uint64_t finished, std::size_t bytes, bool undisturbed = true) {
    return {bytes, megabyte, start, finished, 9ms, undisturbed};
}

}  // namespace

TEST(ReceiveCoalescing, SleepsWhileABlockArrives) {
    // A tenth arrived within one millisecond; nine tenths remain.
    EXPECT_EQ(first_sleep({100'000, megabyte, start}, large_buffer, start + 1ms), 2ms);
}

TEST(ReceiveCoalescing, IsAwakeAtTheEndOfABlock) {
    // 1 ms remains, and then a quarter of it.
    EXPECT_EQ(first_sleep({900'000, megabyte, start}, large_buffer, start + 9ms), 750us);
    EXPECT_EQ(first_sleep({975'000, megabyte, start}, large_buffer, start + 9750us), 188us);
    EXPECT_EQ(first_sleep({990'000, megabyte, start}, large_buffer, start + 9900us), 0us);
}

TEST(ReceiveCoalescing, FillsAQuarterOfTheReceiveBufferAtMost) {
    // 100 bytes per microsecond into 200 kB.
    EXPECT_EQ(first_sleep({100'000, megabyte, start}, 200'000, start + 1ms), 500us);
    EXPECT_EQ(first_sleep({100'000, megabyte, start}, 0, start + 1ms), 0us);
    EXPECT_EQ(receive_coalescing().sleep_time(after_blocks(1, 1000), 180'000, start), 405us);
}

TEST(ReceiveCoalescing, DoesNotSleepAtTheStartOfABlockOfUnknownDuration) {
    EXPECT_EQ(first_sleep({32'000, megabyte, start}, large_buffer, start + 1ms), 0us);
    EXPECT_EQ(first_sleep({100'000, megabyte, start}, large_buffer, start + 100us), 0us);
}

TEST(ReceiveCoalescing, CalculatesARateFromThirtyTwoKilobytesIn200Microseconds) {
    EXPECT_EQ(first_sleep({32'767, megabyte, start}, large_buffer, start + 1ms), 0us);
    EXPECT_EQ(first_sleep({32'768, megabyte, start}, large_buffer, start + 1ms), 2ms);
    EXPECT_EQ(first_sleep({100'000, megabyte, start}, large_buffer, start + 199us), 0us);
    EXPECT_EQ(first_sleep({100'000, megabyte, start}, large_buffer, start + 200us), 1350us);
}

TEST(ReceiveCoalescing, Sleeps150MicrosecondsAtLeast) {
    // 100 bytes per microsecond, of which three quarters count.
    EXPECT_EQ(first_sleep({980'000, megabyte, start}, large_buffer, start + 9800us), 150us);
    EXPECT_EQ(first_sleep({980'200, megabyte, start}, large_buffer, start + 9802us), 0us);
}

TEST(ReceiveCoalescing, DoesNotSleepWithoutABlockOrItsSize) {
    EXPECT_EQ(first_sleep({}, large_buffer, start + 1ms), 0us);
    EXPECT_EQ(first_sleep({100'000, 0, start}, large_buffer, start + 1ms), 0us);
    EXPECT_EQ(first_sleep({megabyte, megabyte, start}, large_buffer, start + 9ms), 0us);
    // Of a complete block, only the trailer is missing.
    EXPECT_EQ(first_sleep(after_blocks(1, megabyte), large_buffer, start + 1ms), 0us);
}

TEST(ReceiveCoalescing, SleepsFromTheLeaderIfTheDurationIsKnown) {
    EXPECT_EQ(receive_coalescing().sleep_time(after_blocks(1, 0), large_buffer, start + 1ms), 7800us);
    EXPECT_EQ(first_sleep({0, megabyte, start}, large_buffer, start + 1ms), 0us);
}

TEST(ReceiveCoalescing, BoundsTheTimeForAnImplausibleSize) {
    EXPECT_EQ(first_sleep({100'000, SIZE_MAX, start}, large_buffer, start + 1ms), 2ms);
}

TEST(ReceiveCoalescing, DoesNotSleepThroughAFastBlock) {
    // 2 GB/s: a megabyte arrives before the thread wakes.
    EXPECT_EQ(first_sleep({500'000, megabyte, start}, large_buffer, start + 250us), 188us);
    EXPECT_EQ(first_sleep({700'000, megabyte, start}, large_buffer, start + 350us), 0us);
}

TEST(ReceiveCoalescing, SleepsUntilTheEndThatThePrecedingBlockPredicts) {
    receive_coalescing coalescing;
    EXPECT_EQ(coalescing.sleep_time(after_blocks(1, 1000), large_buffer, start + 1ms), 7800us);
    EXPECT_EQ(coalescing.sleep_time(after_blocks(1, 900'000), large_buffer, start + 8500us), 300us);
    EXPECT_EQ(coalescing.sleep_time(after_blocks(1, 950'000), large_buffer, start + 8700us), 0us);
    EXPECT_EQ(coalescing.sleep_time(after_blocks(1, 950'000), large_buffer, start + 20ms), 0us) << "late";
}

TEST(ReceiveCoalescing, SleepsAtMostEightMilliseconds) {
    stream_progress slow = after_blocks(1, 1000);
    slow.duration = 100ms;
    EXPECT_EQ(receive_coalescing().sleep_time(slow, large_buffer, start), 8ms);
}

TEST(ReceiveCoalescing, SleepsBrieflyAfterABlockWithLosses) {
    EXPECT_EQ(first_sleep(after_blocks(1, 100'000, false), large_buffer, start + 1ms), 2ms);
    EXPECT_EQ(first_sleep(after_blocks(1, 1000, false), large_buffer, start + 1ms), 0us);
}

TEST(ReceiveCoalescing, ShortensThePredictionIfABlockEndedDuringASleep) {
    receive_coalescing coalescing;
    EXPECT_EQ(coalescing.sleep_time(after_blocks(1, 1000), large_buffer, start + 1ms), 7800us);
    // An eighth of 9 ms less, regardless of the measured duration.
    stream_progress late = after_blocks(2, 1000);
    late.duration = 20ms;
    EXPECT_EQ(coalescing.sleep_time(late, large_buffer, start + 1ms), 6675us);
    // The end of the third block was observed.
    EXPECT_EQ(coalescing.sleep_time(after_blocks(2, 950'000), large_buffer, start + 8ms), 0us);
    EXPECT_EQ(coalescing.sleep_time(after_blocks(3, 1000), large_buffer, start + 1ms), 7800us);
}
