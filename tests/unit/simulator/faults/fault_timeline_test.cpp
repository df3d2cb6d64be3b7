// SPDX-License-Identifier: MIT
#include "faults/fault_timeline.hpp"

#include <gtest/gtest.h>

#include <future>

using namespace camsim;
using namespace std::chrono_literals;

namespace {

constexpr fault_timeline::time_point origin{1000s};

scheduled_fault at(std::chrono::nanoseconds begin, std::optional<std::chrono::nanoseconds> duration = {},
                   fault_kind kind = fault_kind::packet_loss) {
    return {.what = default_fault(kind), .at = begin, .duration = duration};
}

struct Timeline : testing::Test {
    active_faults active{1};
    unsigned changes = 0;
    fault_timeline timeline{active, [this] { ++changes; }};

    std::size_t active_count() const { return active.list().size(); }
};

}  // namespace

TEST_F(Timeline, StartsAndEndsFaultsAtTheirTimes) {
    timeline.add(at(2s, 3s), origin);
    EXPECT_EQ(active_count(), 0U);
    EXPECT_EQ(timeline.update(origin + 1999ms), origin + 2s);
    EXPECT_EQ(active_count(), 0U);
    EXPECT_EQ(timeline.update(origin + 2s), origin + 5s);
    EXPECT_EQ(active_count(), 1U);
    EXPECT_EQ(changes, 1U);
    EXPECT_EQ(timeline.update(origin + 5s), std::nullopt);
    EXPECT_EQ(active_count(), 0U);
    EXPECT_EQ(changes, 2U);
}

TEST_F(Timeline, ActivatesAFaultWithoutDelayUntilItIsCancelled) {
    std::uint32_t const number = timeline.add(at(0s), origin);
    EXPECT_EQ(active_count(), 1U);
    EXPECT_EQ(timeline.update(origin + 1000h), std::nullopt);
    EXPECT_EQ(active_count(), 1U);
    EXPECT_EQ(timeline.cancel(number), 0U);
    EXPECT_EQ(active_count(), 0U);
    EXPECT_EQ(timeline.cancel(number), std::nullopt);
}

TEST_F(Timeline, DoesNotStartACancelledFault) {
    std::uint32_t const number = timeline.add(at(2s), origin);
    EXPECT_EQ(timeline.cancel(number), 0U);
    EXPECT_EQ(timeline.update(origin + 3s), std::nullopt);
    EXPECT_EQ(active_count(), 0U);
    EXPECT_EQ(changes, 0U);
}

TEST_F(Timeline, ReturnsTheHitsOfACancelledFault) {
    std::uint32_t const number = timeline.add(at(0s), origin);
    timeline.add(at(0s), origin);
    active.for_each([](active_fault& one) { one.hits = one.number * 10; });
    EXPECT_EQ(timeline.cancel(number), 10U);
    EXPECT_EQ(timeline.cancel_all(), 20U);
    EXPECT_EQ(active_count(), 0U);
}

TEST_F(Timeline, ExecutesItsPlanOnItsThread) {
    std::promise<void> started;
    std::promise<void> ended;
    fault_timeline real(active, [&, starts = false, ends = false]() mutable {
        if (!starts && active.find(fault_kind::leader_loss)) {
            starts = true;
            started.set_value();
        }
        if (!ends && !active.find(fault_kind::packet_loss)) {
            ends = true;
            ended.set_value();
        }
    });
    // One that is active at once and ends, and one that starts later.
    real.start({at(0s, 1ms), at(1ms, {}, fault_kind::leader_loss)}, std::chrono::steady_clock::now());
    EXPECT_EQ(started.get_future().wait_for(60s), std::future_status::ready);
    EXPECT_EQ(ended.get_future().wait_for(60s), std::future_status::ready);
}

TEST_F(Timeline, StartsFaultsThatAreAddedWhileItRuns) {
    std::promise<void> started;
    fault_timeline real(active, [&] { started.set_value(); });
    real.start({}, std::chrono::steady_clock::now());
    real.add(at(1ms), std::chrono::steady_clock::now());
    EXPECT_EQ(started.get_future().wait_for(60s), std::future_status::ready);
}
