// SPDX-License-Identifier: MIT
#include "gvsp/gvsp_assembler.hpp"

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <PvResult.h>
#include <rapidcheck/gtest.h>

#include "assembler_fixture.hpp"

using namespace openpv;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// \return block of a camera that has restarted its block IDs, not its clock
block_writer restarted(uint64_t id) {
    return block_writer(id, block_bytes, false, 100'000 + id);
}

constexpr uint32_t ok = PvResult::Code::OK;
constexpr uint32_t missing = PvResult::Code::MISSING_PACKETS;
constexpr uint32_t too_small = PvResult::Code::BUFFER_TOO_SMALL;

class Assembler : public testing::Test {
protected:
    explicit Assembler(bool can_resend = true) : assembler({packet_bytes, block_bytes, can_resend}, callbacks) {}

    void add(datagram const& packet) { assembler.add(packet, now); }
    void add(std::vector<datagram> const& packets) {
        for (auto const& packet : packets) {
            add(packet);
        }
    }
    void add_without(block_writer const& block, std::vector<std::size_t> const& places) {
        auto const packets = block.all();
        for (std::size_t i = 0; i < packets.size(); ++i) {
            if (std::ranges::find(places, i) == places.end()) {
                add(packets[i]);
            }
        }
    }
    /// Polls in small steps, as the receiver's thread does.
    void let_pass(std::chrono::milliseconds time) {
        for (auto const end = now + time; now < end; now += 1ms) {
            assembler.poll(now);
        }
        assembler.poll(now);
    }
    /// Polls every millisecond until the block ends.
    /// \return milliseconds until each round of requests, and until the end
    std::vector<int> times_until_the_end() {
        std::vector<int> times;
        std::size_t const finished = callbacks.finished.size();
        for (int time = 0; time <= 1000; ++time, now += 1ms) {
            std::size_t const requests = callbacks.requests.size();
            assembler.poll(now);
            if (callbacks.requests.size() != requests || callbacks.finished.size() != finished) {
                times.push_back(time);
            }
            if (callbacks.finished.size() != finished) {
                return times;
            }
        }
        ADD_FAILURE() << "the block does not end";
        return times;
    }

    gvsp_assembler::time_point now{std::chrono::hours(1)};
    fake_callbacks callbacks{60};
    gvsp_assembler assembler;
};

class AssemblerWithoutResends : public Assembler {
protected:
    AssemblerWithoutResends() : Assembler(false) {}
};

}  // namespace

TEST_F(Assembler, AssemblesABlockFromItsPackets) {
    block_writer const block(1);
    add(block.all());
    ASSERT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_EQ(callbacks.contents[0], block.data());
    EXPECT_EQ(callbacks.finished[0].timestamp, block.timestamp());
    EXPECT_EQ(callbacks.finished[0].width, block_bytes);
    EXPECT_EQ(callbacks.finished[0].height, 1U);
    EXPECT_EQ(callbacks.finished[0].image_bytes, block_bytes);
    EXPECT_EQ(callbacks.finished[0].bytes, block_bytes);
    EXPECT_EQ(assembler.counters().blocks_complete, 1U);
}

TEST_F(Assembler, FinishesABlockWithItsLastPacketWithoutAPoll) {
    auto packets = block_writer(1).all();
    auto const last = packets.back();
    packets.pop_back();
    add(packets);
    EXPECT_THAT(callbacks.finished, IsEmpty());
    add(last);
    EXPECT_EQ(callbacks.finished.size(), 1U);
}

TEST_F(Assembler, AcceptsExtendedIds) {
    block_writer const block(0x100000001, block_bytes, true);
    add(block.all());
    ASSERT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_EQ(callbacks.contents[0], block.data());
}

TEST_F(Assembler, ContinuesWhenShortIdsWrap) {
    for (uint64_t const id : {65'534U, 65'535U, 1U, 2U}) {
        add(block_writer(id).all());
    }
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok, ok, ok));
    EXPECT_EQ(assembler.counters().blocks_missing, 0U);
}

TEST_F(Assembler, AcceptsPacketsInAnyOrder) {
    auto packets = block_writer(1).all();
    std::ranges::reverse(packets);
    add(packets);
    ASSERT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_EQ(callbacks.contents[0], block_writer(1).data());
    EXPECT_THAT(callbacks.requests, IsEmpty());
}

TEST_F(Assembler, CountsDuplicatesAndUsesThemOnce) {
    auto const packets = block_writer(1).all();
    for (std::size_t i = 0; i + 1 < packets.size(); ++i) {
        add(packets[i]);
        add(packets[i]);
    }
    add(packets.back());
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_EQ(assembler.counters().packets_duplicate, packets.size() - 1);
}

TEST_F(Assembler, KeepsSeveralBlocksOpenAndFinishesThemInOrder) {
    auto const first = block_writer(1).all();
    auto const second = block_writer(2).all();
    for (std::size_t i = 0; i < second.size(); ++i) {
        add(second[i]);
        if (i + 1 < first.size()) {
            add(first[i]);
        }
    }
    EXPECT_THAT(callbacks.finished, IsEmpty()) << "the second waits for the first";
    add(first.back());
    ASSERT_THAT(callbacks.results(), ElementsAre(ok, ok));
    EXPECT_EQ(callbacks.finished[0].timestamp, block_writer(1).timestamp());
    EXPECT_EQ(callbacks.contents[1], block_writer(2).data());
}

TEST_F(Assembler, ToleratesReorderedPacketsForTheReorderingTime) {
    auto const packets = block_writer(1).all();
    for (std::size_t const index : {0U, 1U, 3U, 4U}) {
        add(packets[index]);
    }
    let_pass(1ms);
    EXPECT_THAT(callbacks.requests, IsEmpty());
    let_pass(2ms);
    EXPECT_THAT(callbacks.requests, ElementsAre(request_range{1, 2, 2}));
}

TEST_F(Assembler, RequestsRangesOfMissingPackets) {
    block_writer const block(1, 22 * 200);
    fake_callbacks large(2, 22 * 200);
    gvsp_assembler other({packet_bytes, 22 * 200, true}, large);
    auto const packets = block.all();
    for (std::size_t i = 0; i < packets.size(); ++i) {
        bool const lost = i == 0 || (i >= 5 && i <= 7) || (i >= 63 && i <= 70) || i == 200;
        if (!lost) {
            other.add(packets[i], now);
        }
    }
    other.poll(now + 5ms);
    EXPECT_THAT(large.requests, ElementsAre(request_range{1, 0, 0}, request_range{1, 5, 7}, request_range{1, 63, 70},
                                            request_range{1, 200, 200}));
}

TEST_F(Assembler, RequestsTheEndOfABlockWhenTheNextOneHasStarted) {
    add_without(block_writer(1), {4, 5});
    add(block_writer(2).leader());
    let_pass(3ms);
    EXPECT_THAT(callbacks.requests, ElementsAre(request_range{1, 4, 4}, request_range{1, 5, 5}));
}

TEST_F(Assembler, RequestsTheEndOfTheLastBlockAfterASilence) {
    add_without(block_writer(1), {4, 5});
    let_pass(15ms);
    EXPECT_THAT(callbacks.requests, IsEmpty()) << "the camera may still be sending";
    let_pass(6ms);
    EXPECT_THAT(callbacks.requests, ElementsAre(request_range{1, 4, 4}, request_range{1, 5, 5}));
}

TEST_F(Assembler, FinishesABlockWhenTheMissingPacketsArrive) {
    block_writer const block(1);
    add_without(block, {0, 2, 5});
    let_pass(30ms);
    EXPECT_THAT(callbacks.finished, IsEmpty());
    add({block.leader(), block.payload(2), block.trailer()});
    ASSERT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_EQ(callbacks.contents[0], block.data());
}

TEST_F(Assembler, AbandonsABlockWhenRequestsHaveNoEffect) {
    add_without(block_writer(1), {2});
    let_pass(300ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
    EXPECT_EQ(callbacks.finished[0].width, 0U);
    EXPECT_LE(callbacks.requests.size(), 5U);
    EXPECT_GE(callbacks.requests.size(), 2U);
    EXPECT_EQ(assembler.counters().packets_lost, 1U);
}

TEST_F(Assembler, RequestsTheEndOfASlowBlockAsOftenAsItsStart) {
    block_writer const block(1, 22 * 40);
    fake_callbacks large(2, 22 * 40);
    gvsp_assembler other({packet_bytes, 22 * 40, true}, large);
    auto const packets = block.all();
    for (std::size_t i = 0; i < packets.size(); ++i) {  // a packet every 10 ms: 0.4 s in total
        if (i != 2 && i != 39) {
            other.add(packets[i], now);
        }
        for (auto const end = now + 10ms; now < end; now += 1ms) {
            other.poll(now);
        }
    }
    auto const request_count = [&](uint32_t packet) {
        return std::ranges::count(large.requests, request_range{1, packet, packet});
    };
    EXPECT_GT(request_count(2), 5);
    EXPECT_GT(request_count(39), 0);
    other.add(block.payload(2), now);
    other.add(block.payload(39), now);
    ASSERT_THAT(large.results(), ElementsAre(ok));
    EXPECT_EQ(large.contents[0], block.data());
}

TEST_F(Assembler, RequestsABurstLostAtTheStartOfALargeBlock) {
    block_writer const block(1, 22 * 200);
    fake_callbacks large(2, 22 * 200);
    gvsp_assembler other({packet_bytes, 22 * 200, true}, large);
    auto const packets = block.all();
    for (std::size_t i = 0; i < 60; ++i) {  // 30 of 60 lost, of 200 in total
        if (i < 10 || i >= 40) {
            other.add(packets[i], now);
        }
    }
    other.poll(now + 5ms);
    EXPECT_THAT(large.requests, ElementsAre(request_range{1, 10, 39}));
}

TEST_F(Assembler, CountsAPacketRequestedTwiceThatArrivesOnceAsOneResentPacket) {
    block_writer const block(1);
    add_without(block, {2});
    let_pass(8ms);
    ASSERT_THAT(callbacks.requests, ElementsAre(request_range{1, 2, 2}, request_range{1, 2, 2}));
    EXPECT_EQ(assembler.counters().packets_resent, 0U);
    add(block.payload(2));
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_EQ(assembler.counters().packets_resend_requested, 2U);
    EXPECT_EQ(assembler.counters().packets_resent, 1U);
}

TEST_F(Assembler, DoesNotCountALatePacketAsResentWithoutARequest) {
    block_writer const block(1);
    add_without(block, {2});
    let_pass(1ms);
    add(block.payload(2));
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_EQ(assembler.counters().packets_resend_requested, 0U);
    EXPECT_EQ(assembler.counters().packets_resent, 0U);
}

TEST_F(Assembler, CountsAResentPacketOnceThoughItArrivesTwice) {
    block_writer const block(1);
    add_without(block, {2, 3});
    let_pass(3ms);
    add({block.payload(2), block.payload(2)});
    EXPECT_EQ(assembler.counters().packets_resend_requested, 2U);
    EXPECT_EQ(assembler.counters().packets_resent, 1U);
    EXPECT_EQ(assembler.counters().packets_duplicate, 1U);
}

TEST_F(Assembler, CountsResentLeadersAndTrailers) {
    block_writer const block(1);
    add_without(block, {0, 5});
    let_pass(30ms);
    add({block.leader(), block.trailer()});
    ASSERT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_EQ(assembler.counters().packets_resent, 2U);
}

TEST_F(Assembler, ForgetsTheRequestsOfABlockThatUsedTheSameMemory) {
    add_without(block_writer(1), {2});
    let_pass(300ms);
    ASSERT_THAT(callbacks.results(), ElementsAre(missing));
    ASSERT_GT(assembler.counters().packets_resend_requested, 0U);
    for (uint64_t id = 2; id <= gvsp_assembler::max_open_blocks + 1; ++id) {
        add(block_writer(id).all());
    }
    EXPECT_EQ(assembler.counters().packets_resent, 0U);
}

TEST_F(Assembler, AbandonsABlockWhenThePacketIsUnavailable) {
    add_without(block_writer(1), {2});
    let_pass(3ms);
    EXPECT_EQ(callbacks.requests.size(), 1U);
    add(block_writer(1).unavailable(2));
    let_pass(3ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
    EXPECT_EQ(callbacks.requests.size(), 1U);
}

TEST_F(Assembler, RequestsNothingWhenTooMuchIsMissing) {
    block_writer const block(1, 22 * 100);
    fake_callbacks large(2, 22 * 100);
    gvsp_assembler other({packet_bytes, 22 * 100, true}, large);
    auto const packets = block.all();
    for (std::size_t i = 0; i < packets.size(); ++i) {
        if (i % 3 != 1) {
            other.add(packets[i], now);
        }
    }
    for (int i = 0; i < 10; ++i) {
        other.poll(now + std::chrono::milliseconds(i));
    }
    EXPECT_THAT(large.requests, IsEmpty());
    EXPECT_THAT(large.results(), ElementsAre(missing));
}

TEST_F(Assembler, RejectsABlockInWhichAPacketReplacedAnother) {
    for (bool const damaged_comes_first : {true, false}) {
        block_writer const block(damaged_comes_first ? 1 : 2);
        auto packets = block.all();
        packets[2][7] = std::byte{3};  // one bit of its number
        if (!damaged_comes_first) {
            std::swap(packets[2], packets[3]);
        }
        add(packets);
        add(block.payload(2));  // requested, and the last one missing
        let_pass(5ms);
    }
    EXPECT_THAT(callbacks.results(), ElementsAre(missing, missing));
    callbacks.expect_untouched();
}

TEST_F(Assembler, RejectsABlockWithTwoDifferentLeaders) {
    block_writer const block(1);
    auto other_leader = block_writer(2).leader();
    other_leader[3] = std::byte{1};  // its block ID
    add({block.leader(), other_leader});
    add_without(block, {0});
    let_pass(5ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
}

TEST_F(Assembler, AcceptsIdenticalDuplicates) {
    for (auto const& packet : block_writer(1).all()) {
        add({packet, packet});
    }
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
}

TEST_F(Assembler, RejectsALeaderThatAnnouncesMoreThanArrived) {
    block_writer const block(1);
    add(block.leader(block_bytes + 1));
    add_without(block, {0});
    ASSERT_THAT(callbacks.results(), ElementsAre(missing));
    EXPECT_EQ(callbacks.finished[0].width, 0U);
    EXPECT_EQ(assembler.counters().blocks_incomplete, 1U);
}

TEST_F(Assembler, FinishesABlockOfWhichNothingMoreArrives) {
    add(block_writer(1).leader());
    let_pass(400ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
}

TEST_F(Assembler, DoesNotWriteToAFinishedBlock) {
    block_writer const block(1);
    add_without(block, {2});
    let_pass(300ms);
    ASSERT_EQ(callbacks.finished.size(), 1U);
    add({block.payload(2), block.leader(), block.payload(1)});
    EXPECT_EQ(assembler.counters().packets_late, 3U);
    callbacks.expect_untouched();
    EXPECT_EQ(callbacks.finished.size(), 1U);
}

TEST_F(Assembler, ReportsABufferThatIsTooSmall) {
    block_writer const block(1, block_bytes + 1);
    add(block.all());
    add(block_writer(2).all());
    EXPECT_THAT(callbacks.results(), ElementsAre(too_small, ok));
    EXPECT_EQ(assembler.counters().blocks_too_large, 1U);
}

TEST(AssemblerWithInvalidSettings, CanBeMadeWithAnySizesThatACameraReports) {
    fake_callbacks callbacks(1);
    for (uint32_t const packet : {0U, 1U, 48U, 65535U}) {
        gvsp_assembler assembler({packet, std::numeric_limits<std::size_t>::max(), true}, callbacks);
        EXPECT_EQ(assembler.counters(), assembler_counters{});
    }
}

TEST(AssemblerWithInvalidSettings, BoundsThePacketsPerBlock) {
    constexpr uint32_t max_packets = 0x00FFFFFF;
    fake_callbacks callbacks(1, max_packets + std::size_t{2});  // one byte per packet
    gvsp_assembler assembler({0, 0, false}, callbacks);
    block_writer const block(1, 1, true);
    auto beyond = block.payload(1);
    beyond[16] = std::byte{1};  // packet 0x01000001
    assembler.add(beyond, {});
    EXPECT_THAT(callbacks.results(), ElementsAre(too_small));
    callbacks.expect_untouched();
}

TEST_F(Assembler, ReportsABufferThatIsTooSmallWhenTheTrailerAnnouncesTooManyPackets) {
    block_writer const block(1, block_bytes + 100);
    add({block.leader(), block.trailer()});
    EXPECT_THAT(callbacks.results(), ElementsAre(too_small));
}

TEST_F(Assembler, DropsABlockWithoutABuffer) {
    fake_callbacks none(1);
    gvsp_assembler starved({packet_bytes, block_bytes, true}, none);
    for (uint64_t const id : {1U, 2U, 3U}) {
        if (id == 3) {
            none.add_buffer(block_bytes);
        }
        for (auto const& packet : block_writer(id).all()) {
            starved.add(packet, now);
        }
    }
    EXPECT_THAT(none.results(), ElementsAre(ok, ok));
    EXPECT_EQ(starved.counters().blocks_without_buffer, 1U);
    EXPECT_EQ(starved.counters().blocks_missing, 0U);
}

TEST_F(Assembler, CountsMissingBlocks) {
    add(block_writer(1).all());
    add(block_writer(5).all());
    add(block_writer(6).all());
    EXPECT_EQ(assembler.counters().blocks_missing, 3U);
    add(block_writer(8).all());
    assembler.stop();
    EXPECT_EQ(assembler.counters().blocks_missing, 4U);
}

TEST_F(Assembler, CountsNoMissingBlocksBeforeADamagedBlockId) {
    add(block_writer(1).all());
    auto damaged = block_writer(2).payload(1);
    damaged[2] = std::byte{0x40};  // block 16,386
    add(damaged);
    add(block_writer(2).all());
    let_pass(300ms);  // nothing more of it arrives
    for (uint64_t const id : {3U, 4U}) {
        add(block_writer(id).all());
    }
    assembler.stop();
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok, ok, ok));
    EXPECT_EQ(assembler.counters().blocks_missing, 0U);
    EXPECT_EQ(assembler.counters().packets_malformed, 1U);
}

TEST_F(Assembler, CountsNoMissingBlocksAfterALeaderWithAnEarlierDamagedId) {
    for (uint64_t const id : {299U, 300U}) {
        add(block_writer(id).all());
    }
    auto packets = block_writer(301).all();
    auto damaged = packets[0];
    damaged[2] ^= std::byte{0x01};  // block 45
    add({damaged, damaged});        // a duplicate does not prove that the camera has sent it
    add(std::vector(packets.begin() + 1, packets.end()));
    let_pass(3ms);
    EXPECT_THAT(callbacks.requests, ElementsAre(request_range{301, 0, 0}));
    add(packets[0]);
    for (uint64_t const id : {302U, 303U}) {
        add(block_writer(id).all());
    }
    assembler.stop();
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok, ok, ok, ok));
    EXPECT_EQ(assembler.counters().blocks_missing, 0U);
}

TEST_F(Assembler, DoesNotRestartForALatePacketOfTheBlockThatADamagedIdNames) {
    for (uint64_t id = 1; id <= 9; ++id) {
        add(block_writer(id).all());
    }
    auto damaged = block_writer(10).leader();
    damaged[3] = std::byte{8};  // block 8
    add(damaged);
    add(block_writer(10).all());
    add(block_writer(8).payload(1));  // an earlier copy of it
    add(block_writer(11).all());
    EXPECT_EQ(callbacks.finished.size(), 11U);
    EXPECT_EQ(assembler.counters().blocks_complete, 11U);
    EXPECT_EQ(assembler.counters().packets_late, 1U);
}

TEST_F(Assembler, RestartsAfterALeaderWithoutItsBlock) {
    for (uint64_t const id : {299U, 300U}) {
        add(block_writer(id).all());
    }
    add(restarted(1).leader());
    add(restarted(2).all());
    add(restarted(3).all());
    let_pass(300ms);
    EXPECT_EQ(assembler.counters().blocks_complete, 4U);
    EXPECT_EQ(assembler.counters().blocks_incomplete, 1U);
}

TEST_F(Assembler, CountsABlockWithOnePacketAsMissing) {
    add(block_writer(1).all());
    add(block_writer(3).payload(1));
    let_pass(300ms);
    add(block_writer(4).all());
    add(block_writer(5).all());
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok, ok));
    EXPECT_EQ(assembler.counters().blocks_missing, 2U);
    EXPECT_EQ(assembler.counters().blocks_incomplete, 0U);
}

TEST_F(Assembler, ReusesTheBufferOfADamagedBlockId) {
    fake_callbacks one(2);
    gvsp_assembler starved({packet_bytes, block_bytes, true}, one);
    auto const add_to_poor = [&](datagram const& packet) { starved.add(packet, now); };
    std::ranges::for_each(block_writer(1).all(), add_to_poor);
    add_to_poor(block_writer(4096).payload(1));
    for (auto const end = now + 30ms; now < end; now += 1ms) {
        starved.poll(now);
    }
    std::ranges::for_each(block_writer(2).all(), add_to_poor);
    ASSERT_THAT(one.results(), ElementsAre(ok, ok));
    EXPECT_EQ(one.contents[1], block_writer(2).data());
    EXPECT_EQ(starved.counters().blocks_without_buffer, 0U);
}

TEST_F(Assembler, IgnoresADamagedBlockIdWithoutABuffer) {
    fake_callbacks none(1);
    gvsp_assembler starved({packet_bytes, block_bytes, true}, none);
    auto const add_to_poor = [&](datagram const& packet) { starved.add(packet, now); };
    std::ranges::for_each(block_writer(1).all(), add_to_poor);
    add_to_poor(block_writer(4096).payload(1));
    std::ranges::for_each(block_writer(2).all(), add_to_poor);
    none.add_buffer(block_bytes);
    std::ranges::for_each(block_writer(3).all(), add_to_poor);
    EXPECT_THAT(none.results(), ElementsAre(ok, ok));
    EXPECT_EQ(starved.counters().blocks_without_buffer, 1U);
    EXPECT_EQ(starved.counters().blocks_missing, 0U);
}

TEST_F(Assembler, DoesNotEndABlockBecauseOfADamagedBlockId) {
    auto const packets = block_writer(1).all();
    add({packets[0], packets[1]});
    add(block_writer(600).payload(1));
    let_pass(10ms);  // the camera is slow
    EXPECT_THAT(callbacks.requests, IsEmpty());
    add(std::vector(packets.begin() + 2, packets.end()));
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
}

TEST_F(Assembler, DoesNotResetForOneDamagedPacketWithTheOtherKindOfIds) {
    auto const packets = block_writer(1).all();
    for (std::size_t i = 0; i < packets.size(); ++i) {
        add(packets[i]);
        if (i == 1 || i == 3) {
            add(block_writer(0x7000000001, block_bytes, true).payload(1));
        }
    }
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_EQ(assembler.counters().packets_malformed, 2U);
}

TEST_F(Assembler, ResetsWhenTheCameraContinuesWithTheOtherKindOfIds) {
    add(block_writer(7).all());
    block_writer const other(1, block_bytes, true);
    add(other.all());
    EXPECT_THAT(callbacks.requests, IsEmpty());
    let_pass(5ms);
    ASSERT_THAT(callbacks.requests, ElementsAre(request_range{1, 0, 0}));  // its first packet was discarded
    add(other.leader());
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok));
}

TEST_F(Assembler, ResetsWhenTheCameraRestartsItsIds) {
    for (uint64_t id = 1; id <= 38; ++id) {
        add(block_writer(id).all());
    }
    add(block_writer(1).all());
    add(block_writer(2).all());
    EXPECT_EQ(callbacks.finished.size(), 40U) << "an ID from long ago";
}

TEST_F(Assembler, ResetsForARecentIdWithAnotherTimestamp) {
    add(block_writer(1).all());
    add(block_writer(2).all());
    auto packets = block_writer(1).all();
    packets[0][8 + 11] = std::byte{77};  // the timestamp's last byte
    add(packets);
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok, ok));
    add(block_writer(2).payload(1));
    EXPECT_EQ(callbacks.finished.size(), 3U);
}

TEST_F(Assembler, FinishesTheOldestBlockWhenTooManyAreOpen) {
    for (uint64_t id = 1; id <= gvsp_assembler::max_open_blocks + 2; ++id) {
        add_without(block_writer(id), {2});
    }
    EXPECT_THAT(callbacks.results(), ElementsAre(missing, missing));
}

TEST_F(Assembler, OpensNoBlockBeforeTooManyThatAreOpen) {
    for (uint64_t id = 2; id <= gvsp_assembler::max_open_blocks + 1; ++id) {
        add_without(block_writer(id), {2});
    }
    add(block_writer(1).all());
    EXPECT_THAT(callbacks.finished, IsEmpty());
    EXPECT_EQ(assembler.counters().packets_late, block_writer(1).all().size());
}

TEST_F(Assembler, OpensNoBlockForAnUnavailablePacket) {
    add(block_writer(1).unavailable(2));
    let_pass(400ms);
    EXPECT_THAT(callbacks.finished, IsEmpty());
}

TEST_F(Assembler, ReportsTheProgressOfTheNewestBlock) {
    EXPECT_EQ(assembler.progress().expected, 0U);
    auto const start_time = now;
    auto const packets = block_writer(1).all();
    add(packets[0]);
    now += 1ms;
    add(packets[1]);
    auto const block = assembler.progress();
    EXPECT_EQ(block.start_time, start_time);
    EXPECT_GT(block.bytes, 0U);
    EXPECT_LT(block.bytes, packets[1].size());
    EXPECT_EQ(block.expected, block_bytes);
    add(std::vector(packets.begin() + 2, packets.end()));
    EXPECT_EQ(assembler.progress().bytes, 0U);
    EXPECT_EQ(assembler.progress().finished, 1U);
    EXPECT_EQ(assembler.progress().duration, 1ms);
    EXPECT_TRUE(assembler.progress().undisturbed);
}

TEST_F(Assembler, ReportsBlocksWithLossesAsDisturbed) {
    add_without(block_writer(1), {2});
    let_pass(10ms);
    add(block_writer(1).payload(2));
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_FALSE(assembler.progress().undisturbed);
    add(block_writer(2).all());
    EXPECT_TRUE(assembler.progress().undisturbed);
    add_without(block_writer(3), {4});
    let_pass(400ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok, missing));
    EXPECT_FALSE(assembler.progress().undisturbed);
}

TEST_F(AssemblerWithoutResends, ReportsAnIncompleteBlockAsDisturbed) {
    add_without(block_writer(1), {4});
    let_pass(400ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
    EXPECT_FALSE(assembler.progress().undisturbed);
}

TEST_F(Assembler, IgnoresTestPackets) {
    add(block_writer(0).payload(1));
    let_pass(400ms);
    EXPECT_THAT(callbacks.finished, IsEmpty());
}

TEST_F(Assembler, RejectsABlockWithAShortPacket) {
    block_writer const block(1);
    auto packets = block.all();
    packets[2].pop_back();
    add(packets);
    let_pass(300ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
}

TEST_F(Assembler, RejectsABlockWhoseTrailerHasTooLowANumber) {
    block_writer const block(1);
    auto packets = block.all();
    packets.back()[7] = std::byte{3};
    add(packets);
    let_pass(300ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
}

TEST_F(Assembler, DiscardsOpenBlocksOnStop) {
    add_without(block_writer(1), {2});
    add(block_writer(2).all());
    add(block_writer(3).leader());
    EXPECT_THAT(callbacks.finished, IsEmpty());
    assembler.stop();
    ASSERT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_EQ(callbacks.contents[0], block_writer(2).data());
}

TEST_F(AssemblerWithoutResends, FinishesABlockSoonAfterTheNextOneHasStarted) {
    add_without(block_writer(1), {2});
    add(block_writer(2).leader());
    let_pass(3ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
    EXPECT_THAT(callbacks.requests, IsEmpty());
}

TEST_F(AssemblerWithoutResends, WaitsForASlowCamera) {
    auto const packets = block_writer(1).all();
    add({packets[0], packets[1], packets[3]});
    let_pass(100ms);
    add({packets[2], packets[4], packets[5]});
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
}

TEST_F(AssemblerWithoutResends, WaitsForPacketsBehindTheTrailer) {
    block_writer const block(1);
    add_without(block, {2});
    let_pass(1ms);
    add(block.payload(2));
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
}

TEST_F(Assembler, RepeatsRequestsAtGrowingIntervals) {
    add_without(block_writer(1), {2});
    EXPECT_THAT(times_until_the_end(), ElementsAre(2, 7, 17, 32, 52, 77));
    EXPECT_THAT(callbacks.requests, testing::Each(request_range{1, 2, 2}));
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
}

TEST_F(Assembler, RequestsTheEndOfTheLastBlockAfterASilenceAndWaitsForTheBlockTimeout) {
    add_without(block_writer(1), {4, 5});
    EXPECT_THAT(times_until_the_end(), ElementsAre(20, 25, 35, 50, 70, 250));
}

TEST_F(Assembler, RepeatsTheRequestsForAnEarlierBlockWhileTheNextOneArrives) {
    add_without(block_writer(1), {3, 4, 5});
    add(block_writer(2).leader());
    EXPECT_THAT(times_until_the_end(), ElementsAre(2, 7, 17, 20, 25, 32, 35, 50, 52, 70, 77))
        << "block 2 is silent after 20 ms";
    EXPECT_EQ(std::ranges::count(callbacks.requests, request_range{1, 3, 4}), 5);
    EXPECT_EQ(std::ranges::count(callbacks.requests, request_range{1, 5, 5}), 5);
}

TEST_F(Assembler, MeasuresTheReorderingTimeFromTheFirstGap) {
    auto const packets = block_writer(1).all();
    add({packets[0], packets[1]});
    let_pass(10ms);
    add(packets[3]);
    let_pass(1ms);
    add(packets[4]);  // the gap has not grown
    EXPECT_THAT(callbacks.requests, IsEmpty());
    let_pass(1ms);
    EXPECT_THAT(callbacks.requests, ElementsAre(request_range{1, 2, 2}));
}

TEST_F(Assembler, RequestsEveryFiveMillisecondsWhileTheCameraSendsTheBlock) {
    block_writer const block(1, 22 * 40);
    fake_callbacks large(1, 22 * 40);
    gvsp_assembler other({packet_bytes, 22 * 40, true}, large);
    std::vector<int> times;
    for (uint32_t number = 0; number < 30; ++number, now += 1ms) {
        if (number != 1) {
            other.add(number == 0 ? block.leader() : block.payload(number), now);
        }
        std::size_t const before = large.requests.size();
        other.poll(now);
        if (large.requests.size() != before) {
            times.push_back(static_cast<int>(number));
        }
    }
    EXPECT_THAT(times, ElementsAre(4, 9, 14, 19, 24, 29)) << "packet 2 arrives after 2 ms and shows the gap";
    EXPECT_THAT(large.requests, testing::Each(request_range{1, 1, 1}));
}

TEST_F(Assembler, RequestsALeaderAfterTheReorderingTime) {
    add_without(block_writer(1), {0});
    EXPECT_THAT(times_until_the_end(), ElementsAre(2, 7, 17, 32, 52, 77));
    EXPECT_THAT(callbacks.requests, testing::Each(request_range{1, 0, 0}));
}

TEST_F(Assembler, RequestsALeaderWhileTheCameraSendsTheBlock) {
    block_writer const block(1, 22 * 40);
    fake_callbacks large(1, 22 * 40);
    gvsp_assembler other({packet_bytes, 22 * 40, true}, large);
    for (uint32_t number = 1; number <= 4; ++number, now += 1ms) {
        other.add(block.payload(number), now);
        other.poll(now);
        EXPECT_EQ(large.requests.size(), number < 3 ? 0U : 1U);
    }
    EXPECT_THAT(large.requests, ElementsAre(request_range{1, 0, 0}));
}

TEST_F(Assembler, DoesNotWaitLongerForASecondGap) {
    block_writer const block(1, 22 * 40);
    fake_callbacks large(1, 22 * 40);
    gvsp_assembler other({packet_bytes, 22 * 40, true}, large);
    for (auto const& packet : {block.leader(), block.payload(1), block.payload(3)}) {
        other.add(packet, now);
    }
    other.poll(now);
    other.add(block.payload(5), now + 1ms);
    other.poll(now + 1ms);
    EXPECT_THAT(large.requests, IsEmpty());
    other.poll(now + 2ms);
    EXPECT_THAT(large.requests, ElementsAre(request_range{1, 2, 2}, request_range{1, 4, 4}));
}

TEST_F(Assembler, RequestsNothingMoreOfABlockWithAnUnavailablePacket) {
    block_writer const block(1);
    add({block.leader(), block.payload(1), block.payload(3)});
    let_pass(3ms);
    add(block.unavailable(2));
    let_pass(15ms);
    EXPECT_THAT(callbacks.requests, ElementsAre(request_range{1, 2, 2}));
    EXPECT_THAT(callbacks.finished, IsEmpty()) << "the camera may still be sending it";
}

TEST_F(Assembler, RequestsNothingOfABlockThatIsTooLarge) {
    add_without(block_writer(1), {2});
    block_writer const too_large(2, block_bytes + 100);
    add({too_large.leader(), too_large.trailer()});
    let_pass(3ms);
    EXPECT_THAT(callbacks.requests, ElementsAre(request_range{1, 2, 2}));
    add(block_writer(1).payload(2));
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, too_small));
}

TEST_F(Assembler, ExpectsWhatTheTrailerAnnounces) {
    block_writer const block(1, 40);  // the buffer holds twice as much
    add_without(block, {2});
    let_pass(2ms);
    EXPECT_THAT(callbacks.requests, ElementsAre(request_range{1, 2, 2}));
    let_pass(100ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
    EXPECT_EQ(assembler.counters().packets_lost, 1U);
}

TEST_F(Assembler, ExpectsNoMorePacketsThanTheReportedSizeFills) {
    fake_callbacks large(1, 22 * 10);
    gvsp_assembler other({packet_bytes, 44, true}, large);
    block_writer const block(1, 44);
    other.add(block.leader(), now);
    other.add(block.payload(1), now);
    other.poll(now + 20ms);
    EXPECT_THAT(large.requests, ElementsAre(request_range{1, 2, 2}, request_range{1, 3, 3}));
}

TEST_F(Assembler, RequestsWithTheKindOfIdsOfTheBlock) {
    block_writer const block(1, block_bytes, true);
    add_without(block, {2});
    let_pass(2ms);
    EXPECT_THAT(callbacks.requests, ElementsAre(request_range{1, 2, 2}));
    EXPECT_TRUE(callbacks.last_request_extended);
    add(block.payload(2));
    let_pass(30ms);
    add(block_writer(1).all());
    add_without(block_writer(2), {2});
    let_pass(2ms);
    EXPECT_FALSE(callbacks.last_request_extended);
}

TEST_F(Assembler, RejectsATrailerBehindWhichThereIsPayload) {
    block_writer const block(1);
    auto early = block.trailer();
    early[7] = std::byte{3};
    add_without(block, {1, 5});
    add(early);
    let_pass(2ms);
    EXPECT_THAT(callbacks.requests, IsEmpty());
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
}

TEST_F(Assembler, RejectsABlockAfterAConflictThoughDuplicatesAgree) {
    block_writer const block(1);
    auto other_leader = block_writer(2).leader();
    other_leader[3] = std::byte{1};  // its block ID
    add({block.leader(), other_leader, block.leader()});
    add_without(block, {0});
    let_pass(5ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
}

TEST_F(Assembler, AddsNothingToABlockThatWaitsForAnEarlierOne) {
    add_without(block_writer(1), {2});
    add(block_writer(2).all());
    auto damaged = block_writer(2).payload(1);
    damaged[8] ^= std::byte{1};
    add(damaged);
    add(block_writer(1).payload(2));
    ASSERT_THAT(callbacks.results(), ElementsAre(ok, ok));
    EXPECT_EQ(callbacks.contents[1], block_writer(2).data());
    EXPECT_EQ(assembler.counters().packets_late, 1U);
    EXPECT_EQ(assembler.counters().packets_duplicate, 0U);
}

TEST_F(Assembler, TakesTheIdOfTheSecondPacketForTheNewest) {
    add(block_writer(1).all());
    add({block_writer(3).leader(), block_writer(3).payload(1)});
    add({block_writer(2).leader(), block_writer(2).payload(1)});
    now += 1ms;
    add(block_writer(4).leader());
    EXPECT_EQ(assembler.progress().start_time, now) << "one packet suffices for the next ID";
}

TEST_F(Assembler, ContinuesAfterABlockOfOnePacket) {
    add(block_writer(1).all());
    for (uint64_t id = 2; id <= 3; ++id) {
        add(block_writer(id).leader());
        let_pass(250ms);
    }
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, missing, missing));
}

TEST_F(Assembler, SurvivesManyDamagedBlockIds) {
    add(block_writer(1).all());
    for (uint64_t id = 0; id < 2 * gvsp_assembler::max_open_blocks; ++id) {
        add(block_writer(600 + 10 * id).payload(1));
        let_pass(20ms);
    }
    add(block_writer(2).all());
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok));
    EXPECT_EQ(assembler.counters().packets_malformed, 2 * gvsp_assembler::max_open_blocks);
}

TEST_F(Assembler, RestartsAfterABlockWithoutALeader) {
    add_without(block_writer(1), {0});
    let_pass(100ms);
    add(block_writer(5).all());
    add(block_writer(6).all());
    add(restarted(4).all());
    EXPECT_THAT(callbacks.results(), ElementsAre(missing, ok, ok, ok));
    EXPECT_EQ(assembler.counters().packets_late, 0U);
}

TEST_F(Assembler, DoesNotTakeAnIdBeforeARestartForTheNext) {
    for (uint64_t id = 1; id <= 3; ++id) {
        add(block_writer(id).all());
    }
    add(restarted(1).all());
    auto const packets = restarted(2).all();
    add({packets[0], packets[1]});
    add(block_writer(4).payload(1));
    let_pass(10ms);  // the camera is slow
    EXPECT_THAT(callbacks.requests, IsEmpty());
    add(std::vector(packets.begin() + 2, packets.end()));
    EXPECT_EQ(callbacks.results(), std::vector<uint32_t>(5, ok));
}

TEST_F(Assembler, CountsMissingLeadersAndTrailersAsLostPackets) {
    add_without(block_writer(1), {0, 3});
    add_without(block_writer(2), {5});
    add_without(block_writer(3), {1});
    add(block_writer(4).all());
    let_pass(300ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(missing, missing, missing, ok));
    EXPECT_EQ(assembler.counters().packets_lost, 4U);
    EXPECT_EQ(assembler.counters().blocks_incomplete, 3U);
}

TEST_F(Assembler, RequestsAgainWhenAPacketIsNotYetAvailable) {
    block_writer const block(1);
    add_without(block, {2});
    let_pass(3ms);
    add(block.not_yet_available(2));
    let_pass(5ms);
    EXPECT_THAT(callbacks.requests, ElementsAre(request_range{1, 2, 2}, request_range{1, 2, 2}));
    EXPECT_EQ(assembler.counters().packets_malformed, 0U);
    add(block.payload(2));
    ASSERT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_EQ(callbacks.contents[0], block.data());
}

TEST_F(Assembler, StaysUnrecoverableWhenAnotherPacketIsNotYetAvailable) {
    block_writer const block(1);
    add_without(block, {2, 3});
    let_pass(3ms);
    add({block.unavailable(2), block.not_yet_available(3), block.payload(3)});
    let_pass(3ms);
    EXPECT_THAT(callbacks.requests, ElementsAre(request_range{1, 2, 3}));
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
}

TEST_F(Assembler, AcceptsATrailerThatOvertakesPayload) {
    block_writer const block(1);
    add({block.leader(), block.payload(1), block.trailer()});
    let_pass(1ms);
    EXPECT_THAT(callbacks.finished, IsEmpty());
    add({block.payload(2), block.payload(3), block.payload(4)});
    ASSERT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_EQ(callbacks.contents[0], block.data());
    EXPECT_THAT(callbacks.requests, IsEmpty());
}

TEST_F(Assembler, RejectsPayloadBehindATrailerThatOvertookIt) {
    block_writer const block(1);
    auto early = block.trailer();
    early[7] = std::byte{3};
    add({block.leader(), early, block.payload(1), block.payload(3)});
    EXPECT_THAT(callbacks.finished, IsEmpty());
    let_pass(2ms);
    EXPECT_THAT(callbacks.requests, IsEmpty());
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
}

TEST_F(Assembler, RejectsABlockWithTwoDifferentTrailers) {
    block_writer const block(1);
    auto other = block.trailer();
    other[7] = std::byte{4};
    add_without(block, {4});
    add(other);
    add(block.payload(4));
    let_pass(5ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
    EXPECT_EQ(assembler.counters().packets_duplicate, 1U);
}

TEST_F(Assembler, RejectsABlockWhoseShortPacketIsNotTheLast) {
    block_writer const block(1);
    auto const packets = block.all();
    auto cut = packets[3];
    cut.pop_back();
    add({packets[0], packets[4], cut, packets[1], packets[2], packets[5]});  // the last packet is short too
    let_pass(2ms);
    EXPECT_THAT(callbacks.requests, IsEmpty()) << "the packet that was cut is not sent again";
    EXPECT_THAT(callbacks.results(), ElementsAre(missing));
}

TEST_F(Assembler, CountsPacketsThatNoBlockCanHave) {
    block_writer const block(1);
    add(block.leader());
    auto payload = block.payload(1);
    auto number_zero = payload;
    number_zero[7] = std::byte{0};
    auto empty = payload;
    empty.resize(8);
    auto too_long = payload;
    too_long.push_back(std::byte{1});
    auto trailer = block.trailer();
    trailer[7] = std::byte{0};
    auto leader = block.leader();
    leader[7] = std::byte{1};
    auto short_leader = block.leader();
    short_leader.resize(20);
    std::vector const malformed{number_zero, empty, too_long, trailer, leader, short_leader};
    for (std::size_t i = 0; i < malformed.size(); ++i) {
        add(malformed[i]);
        EXPECT_EQ(assembler.counters().packets_malformed, i + 1);
    }
    add(datagram(7));
    EXPECT_EQ(assembler.counters().packets_malformed, malformed.size() + 1);
    add_without(block, {0});
    EXPECT_THAT(callbacks.results(), ElementsAre(ok)) << "they change nothing";
    EXPECT_EQ(assembler.counters().packets_duplicate, 0U);
}

TEST_F(Assembler, TakesTheBlockSizeFromTheLeaderIfTheCameraReportsNone) {
    fake_callbacks one(1);
    gvsp_assembler other({packet_bytes, 0, true}, one);
    block_writer const block(1);
    other.add(block.leader(), now);
    other.add(block.payload(1), now);
    EXPECT_EQ(other.progress().expected, block_bytes);
    other.poll(now + 20ms);
    EXPECT_THAT(one.requests, ElementsAre(request_range{1, 2, 4}, request_range{1, 5, 5}));
}

TEST_F(Assembler, RequestsWhatTheBufferHoldsAtMost) {
    fake_callbacks one(1);
    gvsp_assembler other({packet_bytes, std::numeric_limits<std::size_t>::max(), true}, one);
    other.add(block_writer(1).leader(), now);
    other.add(block_writer(1).payload(1), now);
    other.poll(now + 20ms);
    EXPECT_THAT(one.requests, ElementsAre(request_range{1, 2, 4}, request_range{1, 5, 5}));
}

TEST_F(Assembler, RequestsUpToTheHighestPacketOfABlockThatIsLargerThanReported) {
    block_writer const block(1, 22 * 8);
    fake_callbacks large(1, 22 * 20);
    gvsp_assembler other({packet_bytes, 22 * 4, true}, large);
    auto small_leader = block.leader(22 * 4);
    for (auto const& packet : {small_leader, block.payload(1), block.payload(8)}) {
        other.add(packet, now);
    }
    other.poll(now + 20ms);
    EXPECT_THAT(large.requests, ElementsAre(request_range{1, 2, 7}, request_range{1, 9, 9}));
}

/// Requests for a block of many packets.
class LargeBlock : public testing::Test {
protected:
    /// Adds block 1 without the payload packets for which `lost` returns true, and polls after the reordering time.
    template <class function>
    std::vector<request_range> const& request_after(uint32_t packets, function&& lost) {
        std::size_t const bytes = std::size_t{22} * packets;
        callbacks = std::make_unique<fake_callbacks>(1, bytes);
        assembler = std::make_unique<gvsp_assembler>(gvsp_assembler::settings{packet_bytes, bytes, true}, *callbacks);
        block_writer const block(1, bytes);
        assembler->add(block.leader(), now);
        for (uint32_t number = 1; number <= packets; ++number) {
            if (!lost(number)) {
                assembler->add(block.payload(number), now);
            }
        }
        assembler->add(block.trailer(), now);
        assembler->poll(now + 2ms);
        return callbacks->requests;
    }

    gvsp_assembler::time_point now{std::chrono::hours(1)};
    std::unique_ptr<fake_callbacks> callbacks;
    std::unique_ptr<gvsp_assembler> assembler;
};

TEST_F(LargeBlock, RequestsAGapOfWholeWords) {
    EXPECT_THAT(request_after(1000, [](uint32_t number) { return number >= 100 && number <= 300; }),
                ElementsAre(request_range{1, 100, 300}));
    EXPECT_THAT(request_after(1000, [](uint32_t number) { return number >= 129 && number <= 256; }),
                ElementsAre(request_range{1, 129, 256}));
    EXPECT_THAT(request_after(1000, [](uint32_t number) { return number >= 65 && number <= 65; }),
                ElementsAre(request_range{1, 65, 65}));
}

TEST_F(LargeBlock, RequestsTwoGapsInNeighbouringWords) {
    EXPECT_THAT(request_after(300, [](uint32_t number) { return (number >= 10 && number <= 12) || number == 65; }),
                ElementsAre(request_range{1, 10, 12}, request_range{1, 65, 65}));
}

TEST_F(LargeBlock, CountsAResentTrailerInAWordOfItsOwn) {
    request_after(63, [](uint32_t) { return false; });
    block_writer const next(2, 22 * 63);
    callbacks->add_buffer(22 * 63);
    auto packets = next.all();
    packets.pop_back();
    for (auto const& packet : packets) {
        assembler->add(packet, now);
    }
    assembler->poll(now + 20ms);
    EXPECT_THAT(callbacks->requests, ElementsAre(request_range{2, 64, 64}));
    assembler->add(next.trailer(), now + 21ms);
    EXPECT_EQ(assembler->counters().packets_resent, 1U);
    EXPECT_THAT(callbacks->results(), ElementsAre(ok, ok));
}

TEST_F(LargeBlock, RequestsAGapAtTheEnd) {
    EXPECT_THAT(request_after(1000, [](uint32_t number) { return number >= 800; }),
                ElementsAre(request_range{1, 800, 1000}));
    EXPECT_THAT(request_after(1024, [](uint32_t number) { return number == 1024; }),
                ElementsAre(request_range{1, 1024, 1024}));
    EXPECT_THAT(request_after(1025, [](uint32_t number) { return number == 1025; }),
                ElementsAre(request_range{1, 1025, 1025}));
}

RC_GTEST_FIXTURE_PROP(LargeBlock, RequestsExactlyTheMissingPackets, ()) {
    auto const packets = *rc::gen::inRange<uint32_t>(300, 700);
    std::vector<request_range> expected;
    uint32_t at = 1;
    for (auto const gap :
         *rc::gen::container<std::vector<uint32_t>>(*rc::gen::inRange<std::size_t>(1, 3), rc::gen::inRange(1U, 37U))) {
        uint32_t const first = at + *rc::gen::inRange(0U, packets / 2 - 37);
        if (expected.empty() || first > expected.back().last + 1) {
            expected.push_back({1, first, std::min(packets, first + gap - 1)});
            at = expected.back().last + 1;
        }
    }
    RC_ASSERT(request_after(packets, [&](uint32_t number) {
                  return std::ranges::any_of(
                      expected, [&](auto const& gap) { return number >= gap.first && number <= gap.last; });
              }) == expected);
}

TEST_F(LargeBlock, RequestsAQuarterOfItsPacketsAtMost) {
    EXPECT_THAT(request_after(200, [](uint32_t number) { return number > 100 && number <= 150; }),
                ElementsAre(request_range{1, 101, 150}));
    EXPECT_THAT(request_after(200, [](uint32_t number) { return number > 100 && number <= 151; }), IsEmpty());
    EXPECT_THAT(callbacks->results(), ElementsAre(missing)) << "it is abandoned at once";
}

TEST_F(LargeBlock, RequestsSixteenPacketsEvenIfThatIsMoreThanAQuarter) {
    EXPECT_THAT(request_after(20, [](uint32_t number) { return number > 2 && number <= 18; }),
                ElementsAre(request_range{1, 3, 18}));
    EXPECT_THAT(request_after(20, [](uint32_t number) { return number > 2 && number <= 19; }), IsEmpty());
}

TEST_F(LargeBlock, RequestsAtMostSixtyFourRangesPerRound) {
    auto const& requests = request_after(500, [](uint32_t number) { return number % 5 == 0; });
    EXPECT_EQ(requests.size(), 64U);
    EXPECT_EQ(requests.back(), (request_range{1, 320, 320}));
}

TEST_F(LargeBlock, CountsResentPacketsInEachWord) {
    request_after(1000, [](uint32_t number) { return number >= 100 && number <= 300; });
    block_writer const block(1, 22 * 1000);
    for (uint32_t const number : {100U, 127U, 128U, 191U, 192U, 300U}) {
        assembler->add(block.payload(number), now + 3ms);
    }
    EXPECT_EQ(assembler->counters().packets_resend_requested, 201U);
    EXPECT_EQ(assembler->counters().packets_resent, 6U);
}

TEST_F(Assembler, LateLeadersEndNoOpenBlock) {
    add_without(block_writer(1), {0});
    let_pass(100ms);
    ASSERT_THAT(callbacks.results(), ElementsAre(missing));
    add_without(block_writer(2), {5});
    add(block_writer(1).leader());
    add(block_writer(2).trailer());
    EXPECT_THAT(callbacks.results(), ElementsAre(missing, ok));
    EXPECT_EQ(assembler.counters().packets_late, 1U);
}

TEST_F(Assembler, DuplicatesOfFinishedBlocksEndNoOpenBlock) {
    for (uint64_t id = 1; id <= 40; ++id) {
        add(block_writer(id).all());
    }
    add_without(block_writer(41), {5});
    add({block_writer(9).leader(), block_writer(40).leader(), block_writer(40).payload(1), block_writer(40).trailer()});
    add({block_writer(1).payload(1), block_writer(1).trailer()});  // of a block whose ID has been discarded
    add(block_writer(41).trailer());
    EXPECT_EQ(callbacks.finished.size(), 41U);
    EXPECT_EQ(callbacks.finished.back().result, ok);
    EXPECT_EQ(callbacks.finished.back().timestamp, block_writer(41).timestamp());
    EXPECT_EQ(assembler.counters().packets_late, 6U);
}

TEST_F(Assembler, AnOvertakenBlockEndsNoOpenBlock) {
    add(block_writer(1).all());
    add(block_writer(3).all());
    add_without(block_writer(4), {5});
    add(block_writer(2).all());
    add({block_writer(3).leader(), block_writer(4).trailer()});
    add(block_writer(5).all());
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok, ok, ok));
    EXPECT_EQ(callbacks.contents[2], block_writer(4).data());
    EXPECT_EQ(assembler.counters().packets_late, 7U);
    EXPECT_EQ(assembler.counters().blocks_missing, 1U);
}

TEST_F(Assembler, ABlockOvertakenByOneWithoutALeaderEndsNoOpenBlock) {
    add(block_writer(1).all());
    add_without(block_writer(3), {0});
    let_pass(100ms);
    ASSERT_EQ(callbacks.finished.size(), 2U);
    add_without(block_writer(4), {5});
    add({block_writer(2).leader(), block_writer(4).trailer()});
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, missing, ok));
    EXPECT_EQ(assembler.counters().packets_late, 1U);
}

TEST_F(Assembler, TakesALeaderForOvertakenWithinThirtyTwoBlocks) {
    add(block_writer(40).all());
    add(block_writer(8).leader());
    EXPECT_EQ(assembler.counters().packets_late, 1U);
    add(block_writer(7).all());
    EXPECT_EQ(assembler.counters().packets_late, 1U);
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok));
}

TEST_F(Assembler, TakesPayloadOfAnOvertakenBlockForLate) {
    add(block_writer(1).all());
    add(block_writer(3).all());
    add(block_writer(2).payload(1));
    let_pass(300ms);
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok));
    EXPECT_EQ(assembler.counters().packets_late, 1U);
}

TEST_F(Assembler, AcceptsABlockThatALaterOneOvertakes) {
    add(block_writer(1).all());
    add_without(block_writer(3), {5});
    add(block_writer(2).all());
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok));
    add(block_writer(3).trailer());
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok, ok));
    EXPECT_EQ(assembler.counters().blocks_missing, 0U);
}

TEST_F(Assembler, EndsOpenBlocksWhenTheCameraRestartsItsIds) {
    add({block_writer(1).leader(), block_writer(1).payload(1)});
    add(block_writer(2).all());
    add_without(block_writer(3), {5});
    auto const again = restarted(1);
    let_pass(100ms);
    ASSERT_THAT(callbacks.results(), ElementsAre(missing, ok)) << "the first is abandoned";
    add(again.all());
    EXPECT_THAT(callbacks.results(), ElementsAre(missing, ok, missing, ok));
    EXPECT_EQ(callbacks.finished[3].timestamp, again.timestamp());
    add(restarted(2).all());
    EXPECT_EQ(callbacks.finished.size(), 5U);
    EXPECT_EQ(assembler.counters().packets_late, 0U);
}

TEST_F(Assembler, RestartsWithAnIdThatWasNotUsed) {
    add(block_writer(5).all());
    add(block_writer(6).all());
    add(restarted(1).all());
    add(restarted(2).all());
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok, ok, ok));
    EXPECT_EQ(assembler.counters().packets_late, 0U);
    EXPECT_EQ(assembler.counters().blocks_missing, 0U);
}

TEST_F(Assembler, RestartsWithALargeIdThatWasNotUsed) {
    add(block_writer(50'001).all());
    add(restarted(50'000).all());
    EXPECT_THAT(callbacks.results(), ElementsAre(ok, ok));
    EXPECT_EQ(assembler.counters().packets_late, 0U);
}

TEST_F(Assembler, RestartsWithInterleavedBlocks) {
    for (uint64_t id = 1; id <= 4; ++id) {
        add(block_writer(id).all());
    }
    auto const first = restarted(1).all();
    auto const second = restarted(2).all();
    for (std::size_t i = 0; i < first.size(); ++i) {
        add({first[i], second[i]});
    }
    EXPECT_EQ(callbacks.results(), std::vector<uint32_t>(6, ok));
    EXPECT_EQ(callbacks.finished[4].timestamp, restarted(1).timestamp());
    EXPECT_EQ(callbacks.finished[5].timestamp, restarted(2).timestamp());
    EXPECT_EQ(assembler.counters().packets_late, 0U);
}

TEST_F(Assembler, CountsNoGapBeforeARestart) {
    add(block_writer(1).all());
    add(block_writer(5).all());
    for (uint64_t id = 1; id <= 3; ++id) {
        add(restarted(id).all());
    }
    assembler.stop();
    EXPECT_EQ(callbacks.results(), std::vector<uint32_t>(5, ok));
    EXPECT_EQ(assembler.counters().blocks_missing, 0U) << "the ID before the restart may have been damaged";
}

TEST_F(Assembler, RestartsWhileOnlyADamagedBlockIdIsOpen) {
    fake_callbacks three(4);
    gvsp_assembler other({packet_bytes, block_bytes, true}, three);
    auto const add_all = [&](block_writer const& block) {
        for (auto const& packet : block.all()) {
            other.add(packet, now);
        }
    };
    add_all(block_writer(1));
    add_all(block_writer(2));
    other.add(block_writer(600).payload(1), now);
    add_all(restarted(1));
    add_all(restarted(2));
    EXPECT_THAT(three.results(), ElementsAre(ok, ok, ok, ok)) << "the buffer of block 600 is used again";
    EXPECT_EQ(other.counters().packets_malformed, 1U);
    EXPECT_EQ(other.counters().blocks_missing, 0U);
}

TEST_F(Assembler, ForgetsTheBlocksBeforeARestart) {
    for (uint64_t id = 1; id <= 3; ++id) {
        add(block_writer(id).all());
    }
    add(restarted(1).all());
    add(restarted(3).all());
    add_without(restarted(4), {5});
    add(restarted(2).leader());
    add(restarted(4).trailer());
    EXPECT_EQ(callbacks.results(), std::vector<uint32_t>(6, ok));
    EXPECT_EQ(assembler.counters().packets_late, 1U);
}

TEST_F(Assembler, EndsOpenBlocksWhenTheKindOfIdsChanges) {
    add_without(block_writer(7), {5});
    block_writer const other(9, block_bytes, true);
    add(other.all());
    add(other.leader());
    EXPECT_THAT(callbacks.results(), ElementsAre(missing, ok));
    EXPECT_EQ(assembler.counters().packets_malformed, 1U);
    add(block_writer(10, block_bytes, true).all());
    EXPECT_THAT(callbacks.results(), ElementsAre(missing, ok, ok));
    EXPECT_EQ(assembler.counters().blocks_missing, 0U);
}

TEST_F(Assembler, OpensNoBlockBeforeTheLastFinishedOne) {
    add_without(block_writer(1), {2});
    for (uint64_t id = 3; id <= gvsp_assembler::max_open_blocks + 1; ++id) {
        add(block_writer(id).all());
    }
    EXPECT_THAT(callbacks.finished, IsEmpty()) << "all wait for the first";
    add(block_writer(2).all());
    add(block_writer(gvsp_assembler::max_open_blocks + 2).all());
    ASSERT_EQ(callbacks.finished.size(), gvsp_assembler::max_open_blocks + 1);
    for (std::size_t i = 1; i < callbacks.finished.size(); ++i) {
        EXPECT_GT(callbacks.finished[i].timestamp, callbacks.finished[i - 1].timestamp);
    }
    EXPECT_EQ(assembler.counters().packets_late, block_writer(2).all().size());
}

TEST_F(Assembler, DropsADamagedBlockIdAfterASilence) {
    add(block_writer(1).all());
    add(block_writer(600).payload(1));
    let_pass(19ms);
    EXPECT_EQ(assembler.counters().packets_malformed, 0U);
    let_pass(1ms);
    EXPECT_EQ(assembler.counters().packets_malformed, 1U);
}

TEST_F(Assembler, ReportsTheNewestBlockThoughADamagedBlockIdIsOpen) {
    add(block_writer(1).all());
    add({block_writer(2).leader(), block_writer(2).payload(1)});
    now += 1ms;
    add(block_writer(600).payload(1));
    EXPECT_EQ(assembler.progress().start_time, now - 1ms);
}

TEST(AssemblerCounters, SubtractEachCount) {
    assembler_counters const now{11, 22, 33, 44, 55, 66, 77, 88, 99, 111, 122};
    assembler_counters difference = now;
    difference -= assembler_counters{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    EXPECT_EQ(difference, (assembler_counters{10, 20, 30, 40, 50, 60, 70, 80, 90, 101, 111}));
}

/// With packets lost, duplicated and reordered at random: a complete block has the camera's data, each block is
/// reported at most once, in order, and no other memory is written to. Without losses, each block is complete, unless
/// all packets of a later one overtook it.
RC_GTEST_PROP(AssemblerProperty, WholeBlocksAreTheCamerasAndComeInOrder, ()) {
    auto const seed = *rc::gen::arbitrary<uint32_t>();
    bool const extended = *rc::gen::arbitrary<bool>();
    bool const can_resend = *rc::gen::arbitrary<bool>();
    double const lost = *rc::gen::element(0.0, 0.01, 0.2);
    std::mt19937 random(seed);
    std::uniform_real_distribution<> uniform;
    uint64_t const first = extended ? 0xFFFFFFFF0 : 65'530;
    struct arrivals {
        double first;
        double last;
    };
    // A packet arrives up to six places late, and a place takes 250 us: packets of a block follow each other within the
    // reordering time.
    constexpr double max_delay = 6;
    constexpr double place_us = 250;
    int place = 0;
    std::vector<std::pair<double, datagram>> sent;
    std::vector<block_writer> blocks;
    std::vector<arrivals> arrived;
    for (uint64_t i = 0; i < 12; ++i) {
        uint64_t const id = extended || first + i <= 65'535 ? first + i : first + i - 65'535;
        blocks.emplace_back(id, 1 + random() % block_bytes, extended, 1000 + i);
        arrived.push_back({std::numeric_limits<double>::max(), 0});
        for (auto const& packet : blocks.back().all()) {
            double const position = place++ + max_delay * uniform(random);
            if (uniform(random) >= lost) {
                sent.emplace_back(position, packet);
                arrived.back() = {std::min(arrived.back().first, position), std::max(arrived.back().last, position)};
            }
            if (uniform(random) < 0.05) {
                sent.emplace_back(position + 30 * uniform(random), packet);
            }
        }
    }
    std::ranges::stable_sort(sent, {}, [](auto const& each) { return each.first; });
    fake_callbacks callbacks(40);
    gvsp_assembler assembler({packet_bytes, block_bytes, can_resend}, callbacks);
    gvsp_assembler::time_point const start{std::chrono::hours(1)};
    gvsp_assembler::time_point now;
    for (auto const& [position, packet] : sent) {
        now = start + std::chrono::microseconds(static_cast<int>(position * place_us));
        assembler.add(packet, now);
        assembler.poll(now);
    }
    for (int i = 0; i < 400; ++i) {
        assembler.poll(now += 1ms);
    }
    std::vector<bool> complete(blocks.size());
    std::size_t next = 0;
    for (std::size_t i = 0; i < callbacks.finished.size(); ++i) {
        if (callbacks.finished[i].result == ok) {
            while (next < blocks.size() && blocks[next].timestamp() != callbacks.finished[i].timestamp) {
                ++next;
            }
            RC_ASSERT(next < blocks.size());
            RC_ASSERT(callbacks.contents[i] == blocks[next].data());
            complete[next++] = true;
        }
    }
    auto const is_overtaken = [&](std::size_t block) {
        return std::any_of(arrived.begin() + static_cast<std::ptrdiff_t>(block) + 1, arrived.end(),
                           [&](auto const& later) { return later.last < arrived[block].first; });
    };
    for (std::size_t i = 0; i < blocks.size() && lost == 0.0; ++i) {
        RC_ASSERT(complete[i] || is_overtaken(i));
    }
    RC_ASSERT(callbacks.finished.size() <= blocks.size());
    callbacks.expect_untouched();
}

RC_GTEST_PROP(AssemblerProperty, MalformedPacketsDoNoHarm, (std::vector<std::vector<uint8_t>> const& datagrams)) {
    fake_callbacks callbacks(8);
    gvsp_assembler assembler({packet_bytes, block_bytes, true}, callbacks);
    gvsp_assembler::time_point now{std::chrono::hours(1)};
    for (auto bytes : datagrams) {
        if (bytes.size() > 4) {
            bytes[4] = static_cast<uint8_t>(1 + bytes[4] % 3 + (bytes[4] & 0x80));  // one of the kinds
        }
        assembler.add(std::as_bytes(std::span(bytes)), now += 1ms);
        assembler.poll(now);
    }
    RC_ASSERT(callbacks.finished.size() <= 8U);
    callbacks.expect_untouched();
}
