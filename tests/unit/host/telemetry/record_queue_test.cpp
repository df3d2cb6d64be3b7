// SPDX-License-Identifier: MIT
#include "telemetry/record_queue.hpp"

#include <gmock/gmock.h>

#include <thread>

using namespace mediagrabber;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

frame_record numbered(std::uint64_t number) {
    frame_record record;
    record.number = number;
    return record;
}

std::vector<std::uint64_t> emptied(record_queue& queue) {
    std::vector<std::uint64_t> numbers;
    while (auto const record = queue.pop()) {
        numbers.push_back(record->number);
    }
    return numbers;
}

}  // namespace

TEST(RecordQueue, ReturnsRecordsInOrder) {
    record_queue queue(3);
    queue.push(numbered(1));
    queue.push(numbered(2));
    EXPECT_EQ(queue.pop()->number, 1U);
    queue.push(numbered(3));
    EXPECT_THAT(emptied(queue), ElementsAre(2, 3));
    EXPECT_EQ(queue.dropped(), 0U);
}

TEST(RecordQueue, DropsAndCountsTheOldestWhenFull) {
    record_queue queue(3);
    for (std::uint64_t i = 1; i <= 5; ++i) {
        queue.push(numbered(i));
    }
    EXPECT_EQ(queue.size(), 3U);
    EXPECT_EQ(queue.dropped(), 2U);
    EXPECT_THAT(emptied(queue), ElementsAre(3, 4, 5));
}

TEST(RecordQueue, ReportsWhetherItWasEmpty) {
    record_queue queue(2);
    EXPECT_TRUE(queue.push(numbered(1)));
    EXPECT_FALSE(queue.push(numbered(2)));
    EXPECT_FALSE(queue.push(numbered(3)));
    emptied(queue);
    EXPECT_TRUE(queue.push(numbered(4)));
}

TEST(RecordQueue, CountsRecordsDroppedAtTheEnd) {
    record_queue queue(2);
    queue.push(numbered(1));
    queue.push(numbered(2));
    queue.drop_all();
    EXPECT_EQ(queue.dropped(), 2U);
    EXPECT_THAT(emptied(queue), IsEmpty());
}

TEST(RecordQueue, AccountsForEveryRecordBetweenTwoThreads) {
    constexpr std::uint64_t records = 100'000;
    record_queue queue(16);
    std::thread pushing([&queue] {
        for (std::uint64_t i = 1; i <= records; ++i) {
            queue.push(numbered(i));
        }
    });
    std::uint64_t popped = 0;
    std::uint64_t last = 0;
    bool rising = true;
    while (popped + queue.dropped() < records) {
        if (auto const record = queue.pop()) {
            ++popped;
            rising = rising && record->number > last;
            last = record->number;
        }
    }
    pushing.join();
    EXPECT_TRUE(rising);
    EXPECT_EQ(popped + queue.dropped(), records);
}
