#include "frame_memory.hpp"

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

TEST(FrameMemory, IsOneBlockOfEquallySpacedSlots) {
    frame_memory memory(1'000, 3, 1);
    EXPECT_GE(memory.stride(), 1'000U);
    EXPECT_EQ(memory.slot(1), memory.slot(0) + memory.stride());
    EXPECT_EQ(memory.slot(2), memory.slot(1) + memory.stride());
}

TEST(FrameMemory, KnowsWhichSlotBytesLieIn) {
    frame_memory memory(1'000, 3, 1);
    EXPECT_EQ(memory.slot_around(memory.slot(2), 1'000), 2U);
    EXPECT_EQ(memory.slot_around(memory.slot(1) + 10, 990), 1U);
    EXPECT_FALSE(memory.slot_around(memory.slot(1) + 10, 991));
    EXPECT_FALSE(memory.slot_around(memory.slot(1), 1'001));
    EXPECT_FALSE(memory.slot_around(memory.slot(0) - 1, 1));
    EXPECT_FALSE(memory.slot_around(memory.slot(2) + memory.stride(), 1));
    int elsewhere = 0;
    EXPECT_FALSE(memory.slot_around(&elsewhere, 1));
}

TEST(FrameMemory, LendsEachSpareOnce) {
    frame_memory memory(10, 2, 3);
    std::set<std::size_t> lent;
    for (int i = 0; i < 3; ++i) {
        lent.insert(memory.take_spare().value());
    }
    EXPECT_EQ(lent.size(), 3U);
    EXPECT_FALSE(memory.take_spare());
    memory.give_back(1);
    EXPECT_EQ(memory.take_spare(), 1U);
}

TEST(FrameMemory, LendsTheSpareThatHasBeenFreeForLongest) {
    frame_memory memory(10, 2, 3);
    std::vector<std::size_t> lent;
    for (int i = 0; i < 9; ++i) {
        lent.push_back(memory.take_spare().value());
        memory.give_back(lent.back());
    }
    EXPECT_EQ(lent, (std::vector<std::size_t>{0, 1, 2, 0, 1, 2, 0, 1, 2}));
}

TEST(FrameMemory, FreesASpareWithItsLastUser) {
    frame_memory memory(10, 2, 1);
    std::size_t const spare = memory.take_spare().value();
    memory.share(spare);
    memory.give_back(spare);
    EXPECT_FALSE(memory.take_spare());
    memory.give_back(spare);
    EXPECT_TRUE(memory.take_spare());
}

TEST(FrameMemory, VoidsTheCellOfAFrameBeforeItsSpareIsUsedAgain) {
    frame_memory memory(10, 2, 1);
    std::atomic<std::uint64_t> cell{5};
    std::size_t const spare = memory.take_spare().value();
    memory.show(spare, cell, 5);
    memory.give_back(spare);
    EXPECT_EQ(cell, 5U) << "it still lies there";
    memory.take_spare();
    EXPECT_EQ(cell, 0U);
}

TEST(FrameMemory, LeavesACellThatAnotherFrameHas) {
    frame_memory memory(10, 2, 1);
    std::atomic<std::uint64_t> cell{5};
    std::size_t const spare = memory.take_spare().value();
    memory.show(spare, cell, 5);
    memory.give_back(spare);
    cell = 6;
    memory.take_spare();
    EXPECT_EQ(cell, 6U);
}

TEST(FrameMemory, KnowsWhereInItsFileASpareLies) {
    frame_memory memory(10, 2, 2);
    std::size_t const spare = memory.take_spare().value();
    std::fill_n(memory.slot(1), 10, std::byte{7});
    memory.exchange(1, spare);
    std::byte found{};
    ASSERT_EQ(pread(memory.file(), &found, 1, static_cast<off_t>(memory.file_offset(spare))), 1);
    EXPECT_EQ(found, std::byte{7});
}

TEST(FrameMemory, TakesAFrameOutOfItsSlot) {
    constexpr std::size_t larger_than_a_page_table_maps = 5'000'000;
    frame_memory memory(larger_than_a_page_table_maps, 2, 1);
    std::size_t const spare = memory.take_spare().value();
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
    frame_memory memory(bytes, slots, spares);
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

TEST(FrameMemory, ThatCantBeHadIsAnErrorAtOnce) {
    file_size_limit const limit(4'096);
    EXPECT_THROW(frame_memory(1'000, 2, 1), std::system_error);
}
