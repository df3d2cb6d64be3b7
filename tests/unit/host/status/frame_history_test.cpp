// SPDX-License-Identifier: MIT
#include "status/frame_history.hpp"

#include <gtest/gtest.h>

using namespace mediagrabber;

namespace {

void on_frame(frame_history& history, std::uint64_t number) {
    frame_record record;
    record.number = number;
    history.on_frame(frame_lease(nullptr, std::nullopt, 0, record));
}

std::vector<std::uint64_t> numbers(std::vector<frame_record> const& records) {
    std::vector<std::uint64_t> found;
    for (auto const& record : records) {
        found.push_back(record.number);
    }
    return found;
}

}  // namespace

TEST(FrameHistory, RetainsTheLatestFrames) {
    frame_history history(3);
    EXPECT_FALSE(history.newest());
    for (std::uint64_t number = 1; number <= 5; ++number) {
        on_frame(history, number);
    }
    EXPECT_EQ(numbers(history.after(0, 10)), (std::vector<std::uint64_t>{3, 4, 5}));
    EXPECT_EQ(history.newest()->number, 5U);
}

TEST(FrameHistory, ReturnsTheNewestFramesAfterANumber) {
    frame_history history(10);
    for (std::uint64_t number = 1; number <= 5; ++number) {
        on_frame(history, number);
    }
    EXPECT_EQ(numbers(history.after(2, 10)), (std::vector<std::uint64_t>{3, 4, 5}));
    EXPECT_EQ(numbers(history.after(0, 2)), (std::vector<std::uint64_t>{4, 5}));
    EXPECT_TRUE(history.after(5, 10).empty());
}

TEST(FrameHistory, ComputesAnnouncementErrorAndHandoverDelay) {
    frame_record record;
    record.timestamp_us = 1'000;
    record.handed_over_us = 1'500;
    EXPECT_FALSE(announcement_error_us(record));
    record.announced_us = 1'020;
    EXPECT_EQ(announcement_error_us(record), -20);
    EXPECT_EQ(handover_delay_us(record), 500);
    record.timestamp_us = 2'000;
    EXPECT_EQ(handover_delay_us(record), -500) << "a clock that was set back";
}
