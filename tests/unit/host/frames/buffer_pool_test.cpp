// SPDX-License-Identifier: MIT
#include "frames/buffer_pool.hpp"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <system_error>

#include "file_size_limit.hpp"

using namespace mediagrabber;

namespace {

bool holds(std::byte const* block, std::size_t size, std::byte value) {
    return std::all_of(block, block + size, [value](std::byte byte) { return byte == value; });
}

}  // namespace

TEST(BufferPool, IsOneBlockOfEquallySpacedSlots) {
    buffer_pool memory(1'000, 3, 1);
    EXPECT_GE(memory.stride(), 1'000U);
    EXPECT_EQ(memory.slot(1), memory.slot(0) + memory.stride());
    EXPECT_EQ(memory.slot(2), memory.slot(1) + memory.stride());
}

TEST(BufferPool, FindsTheSlotThatContainsGivenBytes) {
    buffer_pool memory(1'000, 3, 1);
    EXPECT_EQ(memory.slot_around(memory.slot(2), 1'000), 2U);
    EXPECT_EQ(memory.slot_around(memory.slot(1) + 10, 990), 1U);
    EXPECT_FALSE(memory.slot_around(memory.slot(1) + 10, 991));
    EXPECT_FALSE(memory.slot_around(memory.slot(1), 1'001));
    EXPECT_FALSE(memory.slot_around(memory.slot(0) - 1, 1));
    EXPECT_FALSE(memory.slot_around(memory.slot(2) + memory.stride(), 1));
    int elsewhere = 0;
    EXPECT_FALSE(memory.slot_around(&elsewhere, 1));
}

TEST(BufferPool, LendsEachSpareOnce) {
    buffer_pool memory(10, 2, 3);
    std::set<std::size_t> lent;
    for (int i = 0; i < 3; ++i) {
        lent.insert(memory.acquire().value());
    }
    EXPECT_EQ(lent.size(), 3U);
    EXPECT_FALSE(memory.acquire());
    memory.release(1);
    EXPECT_EQ(memory.acquire(), 1U);
}

TEST(BufferPool, LendsTheSpareThatHasBeenFreeForLongest) {
    buffer_pool memory(10, 2, 3);
    std::vector<std::size_t> lent;
    for (int i = 0; i < 9; ++i) {
        lent.push_back(memory.acquire().value());
        memory.release(lent.back());
    }
    EXPECT_EQ(lent, (std::vector<std::size_t>{0, 1, 2, 0, 1, 2, 0, 1, 2}));
}

TEST(BufferPool, FreesASpareWithItsLastUser) {
    buffer_pool memory(10, 2, 1);
    std::size_t const spare = memory.acquire().value();
    memory.share(spare);
    memory.release(spare);
    EXPECT_FALSE(memory.acquire());
    memory.release(spare);
    EXPECT_TRUE(memory.acquire());
}

TEST(BufferPool, ClearsTheCellOfAFrameBeforeItsSpareIsReused) {
    buffer_pool memory(10, 2, 1);
    std::atomic<std::uint64_t> cell{5};
    std::size_t const spare = memory.acquire().value();
    memory.publish(spare, cell, 5);
    memory.release(spare);
    EXPECT_EQ(cell, 5U) << "the spare has not been reused";
    memory.acquire();
    EXPECT_EQ(cell, 0U);
}

TEST(BufferPool, LeavesACellThatAnotherFrameHas) {
    buffer_pool memory(10, 2, 1);
    std::atomic<std::uint64_t> cell{5};
    std::size_t const spare = memory.acquire().value();
    memory.publish(spare, cell, 5);
    memory.release(spare);
    cell = 6;
    memory.acquire();
    EXPECT_EQ(cell, 6U);
}

TEST(BufferPool, ReturnsTheFileOffsetOfASpare) {
    buffer_pool memory(10, 2, 2);
    std::size_t const spare = memory.acquire().value();
    std::fill_n(memory.slot(1), 10, std::byte{7});
    memory.exchange(1, spare);
    std::byte found{};
    ASSERT_EQ(pread(memory.file(), &found, 1, static_cast<off_t>(memory.file_offset(spare))), 1);
    EXPECT_EQ(found, std::byte{7});
}

TEST(BufferPool, MovesAFrameOutOfItsSlot) {
    constexpr std::size_t larger_than_a_page_table_maps = 5'000'000;
    buffer_pool memory(larger_than_a_page_table_maps, 2, 1);
    std::size_t const spare = memory.acquire().value();
    std::fill_n(memory.slot(1), memory.frame_bytes(), std::byte{1});
    memory.exchange(1, spare);
    std::fill_n(memory.slot(1), memory.frame_bytes(), std::byte{2});
    EXPECT_TRUE(holds(memory.spare(spare).data(), memory.frame_bytes(), std::byte{1}));
    EXPECT_TRUE(holds(memory.slot(1), memory.frame_bytes(), std::byte{2}));
}

RC_GTEST_PROP(FrameMemory, ExchangesSlotsAndSparesLikeNumbersInLists, ()) {
    constexpr std::size_t slots = 3;
    constexpr std::size_t spares = 2;
    constexpr std::size_t bytes = 5'000;
    buffer_pool memory(bytes, slots, spares);
    std::vector<int> in_slots(slots, 0);
    std::vector<int> in_spares(spares, 0);
    int next = 0;
    auto const moves = *rc::gen::container<std::vector<std::pair<std::size_t, std::size_t>>>(
        rc::gen::pair(rc::gen::inRange<std::size_t>(0, slots), rc::gen::inRange<std::size_t>(0, spares)));
    for (auto const& [slot, spare] : moves) {
        in_slots[slot] = ++next;
        std::fill_n(memory.slot(slot), bytes, static_cast<std::byte>(next));
        memory.exchange(slot, spare);
        std::swap(in_slots[slot], in_spares[spare]);
    }
    for (std::size_t i = 0; i < slots; ++i) {
        RC_ASSERT(holds(memory.slot(i), bytes, static_cast<std::byte>(in_slots[i])));
    }
    for (std::size_t i = 0; i < spares; ++i) {
        RC_ASSERT(holds(memory.spare(i).data(), bytes, static_cast<std::byte>(in_spares[i])));
    }
}

TEST(BufferPool, ThrowsIfItsMemoryCannotBeAllocated) {
    file_size_limit const limit(4'096);
    EXPECT_THROW(buffer_pool(1'000, 2, 1), std::system_error);
}
