#include "gvsp_assembler.hpp"

#include <algorithm>
#include <deque>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <PvBuffer.h>
#include <PvResult.h>
#include <rapidcheck/gtest.h>

#include "PvBuffer_impl.hpp"

using namespace openpv;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t packet_bytes = 28 + 8 + 22;  // 22 bytes of a block in each packet with short IDs, 10 with long ones
constexpr std::size_t block_bytes = 80;         // four packets with short IDs

using datagram = std::vector<std::byte>;

/// Writes packets of a block as a camera does.
class block_writer {
public:
    explicit block_writer(uint64_t id, std::size_t size = block_bytes, bool extended = false)
        : id_(id), extended_(extended) {
        for (std::size_t i = 0; i < size; ++i) {
            data_.push_back(static_cast<uint8_t>(id * 31 + i));
        }
    }

    datagram leader() const { return leader(data_.size()); }
    datagram leader(std::size_t width) const {
        datagram made = header(1, 0);
        append(made, 1, 4);  // an image
        append(made, timestamp(), 8);
        append(made, 0x01080001, 4);
        append(made, width, 4);
        append(made, 1, 4);
        append(made, 0, 12);
        return made;
    }
    datagram payload(uint32_t number) const {
        datagram made = header(3, number);
        std::size_t const begin = std::min(data_.size(), (number - 1) * step());
        std::size_t const end = std::min(data_.size(), begin + step());
        for (std::size_t i = begin; i < end; ++i) {
            made.push_back(static_cast<std::byte>(data_[i]));
        }
        return made;
    }
    datagram trailer() const {
        datagram made = header(2, packets() + 1);
        append(made, 1, 4);
        append(made, 1, 4);
        return made;
    }
    datagram gone(uint32_t number) const {
        datagram made = header(3, number);
        made[0] = std::byte{0x80};
        made[1] = std::byte{0x0C};
        return made;
    }
    std::vector<datagram> all() const {
        std::vector<datagram> made{leader()};
        for (uint32_t number = 1; number <= packets(); ++number) {
            made.push_back(payload(number));
        }
        made.push_back(trailer());
        return made;
    }

    uint32_t packets() const { return static_cast<uint32_t>((data_.size() + step() - 1) / step()); }
    uint64_t timestamp() const { return 1000 + id_; }
    std::vector<uint8_t> const& data() const { return data_; }

private:
    std::size_t step() const { return packet_bytes - (extended_ ? 48 : 36); }
    static void append(datagram& made, uint64_t value, int count) {
        for (int shift = 8 * (count - 1); shift >= 0; shift -= 8) {
            made.push_back(static_cast<std::byte>(shift >= 64 ? 0 : value >> shift));
        }
    }
    datagram header(int kind, uint32_t number) const {
        datagram made;
        append(made, 0, 2);
        if (extended_) {
            append(made, 0, 2);
            append(made, static_cast<uint64_t>(kind) | 0x80, 1);
            append(made, 0, 3);
            append(made, id_, 8);
            append(made, number, 4);
        } else {
            append(made, id_, 2);
            append(made, static_cast<uint64_t>(kind), 1);
            append(made, number, 3);
        }
        return made;
    }

    uint64_t id_;
    bool extended_;
    std::vector<uint8_t> data_;
};

struct request_range {
    uint64_t block;
    uint32_t first;
    uint32_t last;
    bool operator==(request_range const&) const = default;
};

/// Buffers whose memory stands in front of a guard, and what became of them.
class fake_outlet final : public assembler_outlet {
public:
    explicit fake_outlet(std::size_t buffers, std::size_t bytes = block_bytes) {
        for (std::size_t i = 0; i < buffers; ++i) {
            add_buffer(bytes);
        }
    }
    void add_buffer(std::size_t bytes) {
        memory_.push_back(std::vector<uint8_t>(bytes + 16, 0xA5));
        owners_.push_back(std::make_unique<PvBuffer>(PvPayloadTypeImage));
        states_.push_back(std::make_unique<PvBuffer::impl>(*owners_.back()));
        states_.back()->memory = memory_.back().data();
        states_.back()->size = static_cast<uint32_t>(bytes);
        free_.push_back(states_.back().get());
    }

    PvBuffer::impl* next_buffer() override {
        if (free_.empty()) {
            return nullptr;
        }
        auto* const next = free_.front();
        free_.pop_front();
        return next;
    }
    void block_finished(PvBuffer::impl& buffer, received_block const& block) override {
        finished.push_back(block);
        std::size_t const bytes = std::min<std::size_t>(block.bytes, buffer.size);
        contents.emplace_back(buffer.memory, buffer.memory + bytes);
        for (std::size_t i = 0; i < 16; ++i) {
            EXPECT_EQ(buffer.memory[buffer.size + i], 0xA5) << "beyond the buffer";
        }
        std::fill_n(buffer.memory, buffer.size, uint8_t{0xA5});
        handed_out.push_back(&buffer);
    }
    void ask_again(gvsp::resend_request const& request) override {
        requests.push_back({request.block, request.first, request.last});
    }

    std::vector<uint32_t> results() const {
        std::vector<uint32_t> all;
        for (auto const& block : finished) {
            all.push_back(block.result);
        }
        return all;
    }
    /// Nothing may be written to a buffer after it was handed out.
    void expect_untouched() const {
        for (auto const* buffer : handed_out) {
            for (uint32_t i = 0; i < buffer->size; ++i) {
                ASSERT_EQ(buffer->memory[i], 0xA5) << "written to after it was handed out";
            }
        }
    }

    std::vector<received_block> finished;
    std::vector<std::vector<uint8_t>> contents;
    std::vector<request_range> requests;
    std::vector<PvBuffer::impl*> handed_out;

private:
    std::deque<std::vector<uint8_t>> memory_;
    std::vector<std::unique_ptr<PvBuffer>> owners_;
    std::vector<std::unique_ptr<PvBuffer::impl>> states_;
    std::deque<PvBuffer::impl*> free_;
};

constexpr uint32_t ok = PvResult::Code::OK;
constexpr uint32_t missing = PvResult::Code::MISSING_PACKETS;
constexpr uint32_t too_small = PvResult::Code::BUFFER_TOO_SMALL;

class Assembler : public testing::Test {
protected:
    explicit Assembler(bool can_resend = true) : assembler({packet_bytes, block_bytes, can_resend}, outlet) {}

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
    /// As the receiver's thread does, in small steps.
    void let_pass(std::chrono::milliseconds time) {
        for (auto const end = now + time; now < end; now += 1ms) {
            assembler.attend(now);
        }
        assembler.attend(now);
    }

    gvsp_assembler::time_point now{std::chrono::hours(1)};
    fake_outlet outlet{40};
    gvsp_assembler assembler;
};

class AssemblerWithoutResends : public Assembler {
protected:
    AssemblerWithoutResends() : Assembler(false) {}
};

}  // namespace

TEST_F(Assembler, MakesABlockOfItsPackets) {
    block_writer const block(1);
    add(block.all());
    ASSERT_THAT(outlet.results(), ElementsAre(ok));
    EXPECT_EQ(outlet.contents[0], block.data());
    EXPECT_EQ(outlet.finished[0].timestamp, block.timestamp());
    EXPECT_EQ(outlet.finished[0].width, block_bytes);
    EXPECT_EQ(outlet.finished[0].height, 1U);
    EXPECT_EQ(outlet.finished[0].image_bytes, block_bytes);
    EXPECT_EQ(outlet.finished[0].bytes, block_bytes);
}

TEST_F(Assembler, FinishesABlockWithItsLastPacketWithoutAttention) {
    auto packets = block_writer(1).all();
    auto const last = packets.back();
    packets.pop_back();
    add(packets);
    EXPECT_THAT(outlet.finished, IsEmpty());
    add(last);
    EXPECT_EQ(outlet.finished.size(), 1U);
}

TEST_F(Assembler, TakesLongIds) {
    block_writer const block(0x100000001, block_bytes, true);
    add(block.all());
    ASSERT_THAT(outlet.results(), ElementsAre(ok));
    EXPECT_EQ(outlet.contents[0], block.data());
}

TEST_F(Assembler, GoesOnWhenShortIdsGoRound) {
    for (uint64_t const id : {65'534U, 65'535U, 1U, 2U}) {
        add(block_writer(id).all());
    }
    EXPECT_THAT(outlet.results(), ElementsAre(ok, ok, ok, ok));
    EXPECT_EQ(assembler.counters().blocks_skipped, 0U);
}

TEST_F(Assembler, TakesPacketsInAnyOrder) {
    auto packets = block_writer(1).all();
    std::ranges::reverse(packets);
    add(packets);
    ASSERT_THAT(outlet.results(), ElementsAre(ok));
    EXPECT_EQ(outlet.contents[0], block_writer(1).data());
    EXPECT_THAT(outlet.requests, IsEmpty());
}

TEST_F(Assembler, CountsDuplicatesAndUsesThemOnce) {
    auto const packets = block_writer(1).all();
    for (std::size_t i = 0; i + 1 < packets.size(); ++i) {
        add(packets[i]);
        add(packets[i]);
    }
    add(packets.back());
    EXPECT_THAT(outlet.results(), ElementsAre(ok));
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
    EXPECT_THAT(outlet.finished, IsEmpty()) << "the second waits for the first";
    add(first.back());
    ASSERT_THAT(outlet.results(), ElementsAre(ok, ok));
    EXPECT_EQ(outlet.finished[0].timestamp, block_writer(1).timestamp());
    EXPECT_EQ(outlet.contents[1], block_writer(2).data());
}

TEST_F(Assembler, LetsPacketsOvertakeEachOtherForAMoment) {
    auto const packets = block_writer(1).all();
    for (std::size_t const place : {0U, 1U, 3U, 4U}) {
        add(packets[place]);
    }
    let_pass(1ms);
    EXPECT_THAT(outlet.requests, IsEmpty());
    let_pass(2ms);
    EXPECT_THAT(outlet.requests, ElementsAre(request_range{1, 2, 2}));
}

TEST_F(Assembler, AsksForRangesOfMissingPackets) {
    block_writer const block(1, 22 * 200);
    fake_outlet large(2, 22 * 200);
    gvsp_assembler other({packet_bytes, 22 * 200, true}, large);
    auto const packets = block.all();
    for (std::size_t i = 0; i < packets.size(); ++i) {
        bool const lost = i == 0 || (i >= 5 && i <= 7) || (i >= 63 && i <= 70) || i == 200;
        if (!lost) {
            other.add(packets[i], now);
        }
    }
    other.attend(now + 5ms);
    EXPECT_THAT(large.requests, ElementsAre(request_range{1, 0, 0}, request_range{1, 5, 7}, request_range{1, 63, 70},
                                            request_range{1, 200, 200}));
}

TEST_F(Assembler, AsksForTheEndOfABlockWhenTheNextOneHasBegun) {
    add_without(block_writer(1), {4, 5});
    add(block_writer(2).leader());
    let_pass(3ms);
    EXPECT_THAT(outlet.requests, ElementsAre(request_range{1, 4, 4}, request_range{1, 5, 5}));
}

TEST_F(Assembler, AsksForTheEndOfTheLastBlockAfterASilence) {
    add_without(block_writer(1), {4, 5});
    let_pass(15ms);
    EXPECT_THAT(outlet.requests, IsEmpty()) << "the camera may still be sending";
    let_pass(6ms);
    EXPECT_THAT(outlet.requests, ElementsAre(request_range{1, 4, 4}, request_range{1, 5, 5}));
}

TEST_F(Assembler, FinishesABlockWhenWhatWasMissingCame) {
    block_writer const block(1);
    add_without(block, {0, 2, 5});
    let_pass(30ms);
    EXPECT_THAT(outlet.finished, IsEmpty());
    add({block.leader(), block.payload(2), block.trailer()});
    ASSERT_THAT(outlet.results(), ElementsAre(ok));
    EXPECT_EQ(outlet.contents[0], block.data());
}

TEST_F(Assembler, GivesABlockUpWhenNobodyAnswers) {
    add_without(block_writer(1), {2});
    let_pass(300ms);
    EXPECT_THAT(outlet.results(), ElementsAre(missing));
    EXPECT_EQ(outlet.finished[0].width, 0U);
    EXPECT_LE(outlet.requests.size(), 5U);
    EXPECT_GE(outlet.requests.size(), 2U);
    EXPECT_EQ(assembler.counters().packets_missing, 1U);
}

TEST_F(Assembler, AsksForTheEndOfASlowBlockAsOftenAsForItsBeginning) {
    block_writer const block(1, 22 * 40);
    fake_outlet large(2, 22 * 40);
    gvsp_assembler other({packet_bytes, 22 * 40, true}, large);
    auto const packets = block.all();
    for (std::size_t i = 0; i < packets.size(); ++i) {  // a packet every 10 ms: 0.4 s in all
        if (i != 2 && i != 39) {
            other.add(packets[i], now);
        }
        for (auto const end = now + 10ms; now < end; now += 1ms) {
            other.attend(now);
        }
    }
    auto const times_asked = [&](uint32_t packet) {
        return std::ranges::count(large.requests, request_range{1, packet, packet});
    };
    EXPECT_GT(times_asked(2), 5);
    EXPECT_GT(times_asked(39), 0);
    other.add(block.payload(2), now);
    other.add(block.payload(39), now);
    ASSERT_THAT(large.results(), ElementsAre(ok));
    EXPECT_EQ(large.contents[0], block.data());
}

TEST_F(Assembler, MendsABurstAtTheBeginningOfALargeBlock) {
    block_writer const block(1, 22 * 200);
    fake_outlet large(2, 22 * 200);
    gvsp_assembler other({packet_bytes, 22 * 200, true}, large);
    auto const packets = block.all();
    for (std::size_t i = 0; i < 60; ++i) {  // 30 of 60, but of 200 that are to come
        if (i < 10 || i >= 40) {
            other.add(packets[i], now);
        }
    }
    other.attend(now + 5ms);
    EXPECT_THAT(large.requests, ElementsAre(request_range{1, 10, 39}));
}

TEST_F(Assembler, GivesABlockUpSoonWhenThePacketIsGone) {
    add_without(block_writer(1), {2});
    let_pass(3ms);
    EXPECT_EQ(outlet.requests.size(), 1U);
    add(block_writer(1).gone(2));
    let_pass(3ms);
    EXPECT_THAT(outlet.results(), ElementsAre(missing));
    EXPECT_EQ(outlet.requests.size(), 1U);
}

TEST_F(Assembler, AsksForNothingWhenTooMuchIsMissing) {
    block_writer const block(1, 22 * 100);
    fake_outlet large(2, 22 * 100);
    gvsp_assembler other({packet_bytes, 22 * 100, true}, large);
    auto const packets = block.all();
    for (std::size_t i = 0; i < packets.size(); ++i) {
        if (i % 3 != 1) {
            other.add(packets[i], now);
        }
    }
    for (int i = 0; i < 10; ++i) {
        other.attend(now + std::chrono::milliseconds(i));
    }
    EXPECT_THAT(large.requests, IsEmpty());
    EXPECT_THAT(large.results(), ElementsAre(missing));
}

TEST_F(Assembler, TrustsNoBlockInWhichAPacketTookThePlaceOfAnother) {
    for (bool const damaged_comes_first : {true, false}) {
        block_writer const block(damaged_comes_first ? 1 : 2);
        auto packets = block.all();
        packets[2][7] = std::byte{3};  // a bit of its number
        if (!damaged_comes_first) {
            std::swap(packets[2], packets[3]);
        }
        add(packets);
        add(block.payload(2));  // it was asked for, and is the last that was missing
        let_pass(5ms);
    }
    EXPECT_THAT(outlet.results(), ElementsAre(missing, missing));
    outlet.expect_untouched();
}

TEST_F(Assembler, TrustsNoBlockWithTwoDifferentLeaders) {
    block_writer const block(1);
    auto stranger = block_writer(2).leader();
    stranger[3] = std::byte{1};  // its block's number
    add({block.leader(), stranger});
    add_without(block, {0});
    let_pass(5ms);
    EXPECT_THAT(outlet.results(), ElementsAre(missing));
}

TEST_F(Assembler, TakesTheSamePacketTwiceForGranted) {
    for (auto const& packet : block_writer(1).all()) {
        add({packet, packet});
    }
    EXPECT_THAT(outlet.results(), ElementsAre(ok));
}

TEST_F(Assembler, BelievesNoLeaderThatPromisesMoreThanHasCome) {
    block_writer const block(1);
    add(block.leader(block_bytes + 1));
    add_without(block, {0});
    ASSERT_THAT(outlet.results(), ElementsAre(missing));
    EXPECT_EQ(outlet.finished[0].width, 0U);
    EXPECT_EQ(assembler.counters().blocks_incomplete, 1U);
}

TEST_F(Assembler, EndsABlockOfWhichNothingMoreComes) {
    add(block_writer(1).leader());
    let_pass(400ms);
    EXPECT_THAT(outlet.results(), ElementsAre(missing));
}

TEST_F(Assembler, DoesNotWriteToABlockThatWasHandedOut) {
    block_writer const block(1);
    add_without(block, {2});
    let_pass(300ms);
    ASSERT_EQ(outlet.finished.size(), 1U);
    add({block.payload(2), block.leader(), block.payload(1)});
    EXPECT_EQ(assembler.counters().packets_late, 3U);
    outlet.expect_untouched();
    EXPECT_EQ(outlet.finished.size(), 1U);
}

TEST_F(Assembler, SaysThatTheBufferIsTooSmall) {
    block_writer const block(1, block_bytes + 1);
    add(block.all());
    add(block_writer(2).all());
    EXPECT_THAT(outlet.results(), ElementsAre(too_small, ok));
    EXPECT_EQ(assembler.counters().blocks_too_large, 1U);
}

TEST(AssemblerOfABadCamera, IsMadeWhateverSizesTheCameraTells) {
    fake_outlet outlet(1);
    for (uint32_t const packet : {0U, 1U, 48U, 65535U}) {
        gvsp_assembler assembler({packet, std::numeric_limits<std::size_t>::max(), true}, outlet);
        EXPECT_EQ(assembler.counters(), assembler_counters{});
    }
}

TEST(AssemblerOfABadCamera, MarksNoMorePacketsOfABlockThanAnyHas) {
    constexpr uint32_t most_packets = 0x00FFFFFF;
    fake_outlet outlet(1, most_packets + std::size_t{2});  // a byte a packet
    gvsp_assembler assembler({0, 0, false}, outlet);
    block_writer const block(1, 1, true);
    auto beyond = block.payload(1);
    beyond[16] = std::byte{1};  // packet 0x01000001
    assembler.add(beyond, {});
    EXPECT_THAT(outlet.results(), ElementsAre(too_small));
    outlet.expect_untouched();
}

TEST_F(Assembler, SaysSoAsSoonAsTheTrailerTellsOfMorePacketsThanFit) {
    block_writer const block(1, block_bytes + 100);
    add({block.leader(), block.trailer()});
    EXPECT_THAT(outlet.results(), ElementsAre(too_small));
}

TEST_F(Assembler, DropsABlockWithoutABuffer) {
    fake_outlet none(1);
    gvsp_assembler poor({packet_bytes, block_bytes, true}, none);
    for (uint64_t const id : {1U, 2U, 3U}) {
        if (id == 3) {
            none.add_buffer(block_bytes);
        }
        for (auto const& packet : block_writer(id).all()) {
            poor.add(packet, now);
        }
    }
    EXPECT_THAT(none.results(), ElementsAre(ok, ok));
    EXPECT_EQ(poor.counters().blocks_without_buffer, 1U);
    EXPECT_EQ(poor.counters().blocks_skipped, 0U);
}

TEST_F(Assembler, CountsBlocksOfWhichNothingCame) {
    add(block_writer(1).all());
    add(block_writer(5).all());
    add(block_writer(6).all());
    EXPECT_EQ(assembler.counters().blocks_skipped, 3U);
    add(block_writer(8).all());
    assembler.stop();
    EXPECT_EQ(assembler.counters().blocks_skipped, 4U);
}

TEST_F(Assembler, CountsNoBlocksBeforeOneWhoseNumberWasDamaged) {
    add(block_writer(1).all());
    auto damaged = block_writer(2).payload(1);
    damaged[2] = std::byte{0x40};  // block 16,386
    add(damaged);
    add(block_writer(2).all());
    let_pass(300ms);  // nothing more comes of it
    for (uint64_t const id : {3U, 4U}) {
        add(block_writer(id).all());
    }
    assembler.stop();
    EXPECT_THAT(outlet.results(), ElementsAre(ok, ok, ok, ok));
    EXPECT_EQ(assembler.counters().blocks_skipped, 0U);
    EXPECT_EQ(assembler.counters().packets_wrong, 1U);
}

TEST_F(Assembler, CountsABlockOfWhichOnePacketCameAmongThoseOfWhichNothingCame) {
    add(block_writer(1).all());
    add(block_writer(3).payload(1));
    let_pass(300ms);
    add(block_writer(4).all());
    add(block_writer(5).all());
    EXPECT_THAT(outlet.results(), ElementsAre(ok, ok, ok));
    EXPECT_EQ(assembler.counters().blocks_skipped, 2U);
    EXPECT_EQ(assembler.counters().blocks_incomplete, 0U);
}

TEST_F(Assembler, UsesTheMemoryThatADamagedNumberTookForTheNextBlock) {
    fake_outlet one(2);
    gvsp_assembler poor({packet_bytes, block_bytes, true}, one);
    auto const add_to_poor = [&](datagram const& packet) { poor.add(packet, now); };
    std::ranges::for_each(block_writer(1).all(), add_to_poor);
    add_to_poor(block_writer(4096).payload(1));
    for (auto const end = now + 30ms; now < end; now += 1ms) {
        poor.attend(now);
    }
    std::ranges::for_each(block_writer(2).all(), add_to_poor);
    ASSERT_THAT(one.results(), ElementsAre(ok, ok));
    EXPECT_EQ(one.contents[1], block_writer(2).data());
    EXPECT_EQ(poor.counters().blocks_without_buffer, 0U);
}

TEST_F(Assembler, WithoutABufferIsNotLedAstrayByADamagedNumber) {
    fake_outlet none(1);
    gvsp_assembler poor({packet_bytes, block_bytes, true}, none);
    auto const add_to_poor = [&](datagram const& packet) { poor.add(packet, now); };
    std::ranges::for_each(block_writer(1).all(), add_to_poor);
    add_to_poor(block_writer(4096).payload(1));
    std::ranges::for_each(block_writer(2).all(), add_to_poor);
    none.add_buffer(block_bytes);
    std::ranges::for_each(block_writer(3).all(), add_to_poor);
    EXPECT_THAT(none.results(), ElementsAre(ok, ok));
    EXPECT_EQ(poor.counters().blocks_without_buffer, 1U);
    EXPECT_EQ(poor.counters().blocks_skipped, 0U);
}

TEST_F(Assembler, DoesNotThinkTheCameraThroughWithABlockBecauseOfADamagedNumber) {
    auto const packets = block_writer(1).all();
    add({packets[0], packets[1]});
    add(block_writer(600).payload(1));
    let_pass(10ms);  // the camera is slow
    EXPECT_THAT(outlet.requests, IsEmpty());
    add(std::vector(packets.begin() + 2, packets.end()));
    EXPECT_THAT(outlet.results(), ElementsAre(ok));
}

TEST_F(Assembler, DoesNotBeginAnewForOneDamagedPacketOfTheOtherKind) {
    auto const packets = block_writer(1).all();
    for (std::size_t i = 0; i < packets.size(); ++i) {
        add(packets[i]);
        if (i == 1 || i == 3) {
            add(block_writer(0x7000000001, block_bytes, true).payload(1));
        }
    }
    EXPECT_THAT(outlet.results(), ElementsAre(ok));
    EXPECT_EQ(assembler.counters().packets_wrong, 2U);
}

TEST_F(Assembler, BeginsAnewWithACameraThatGoesOnWithTheOtherKindOfIds) {
    add(block_writer(7).all());
    block_writer const other(1, block_bytes, true);
    add(other.all());
    EXPECT_THAT(outlet.requests, IsEmpty());
    let_pass(5ms);
    ASSERT_THAT(outlet.requests, ElementsAre(request_range{1, 0, 0}));  // what its first packet was
    add(other.leader());
    EXPECT_THAT(outlet.results(), ElementsAre(ok, ok));
}

TEST_F(Assembler, BeginsAnewWithACameraThatDoes) {
    for (uint64_t id = 1; id <= 38; ++id) {
        add(block_writer(id).all());
    }
    add(block_writer(1).all());
    add(block_writer(2).all());
    EXPECT_EQ(outlet.finished.size(), 40U) << "an ID of long ago";
}

TEST_F(Assembler, BeginsAnewWithAnIdOfAMomentAgoWhenItsTimeIsAnother) {
    add(block_writer(1).all());
    add(block_writer(2).all());
    auto packets = block_writer(1).all();
    packets[0][8 + 11] = std::byte{77};  // the timestamp's last byte
    add(packets);
    EXPECT_THAT(outlet.results(), ElementsAre(ok, ok, ok));
    add(block_writer(2).payload(1));
    EXPECT_EQ(outlet.finished.size(), 3U);
}

TEST_F(Assembler, EndsTheOldestBlockWhenTooManyAreOpen) {
    for (uint64_t id = 1; id <= gvsp_assembler::most_open_blocks + 2; ++id) {
        add_without(block_writer(id), {2});
    }
    EXPECT_THAT(outlet.results(), ElementsAre(missing, missing));
}

TEST_F(Assembler, OpensNoBlockBeforeTooManyThatAreOpen) {
    for (uint64_t id = 2; id <= gvsp_assembler::most_open_blocks + 1; ++id) {
        add_without(block_writer(id), {2});
    }
    add(block_writer(1).all());
    EXPECT_THAT(outlet.finished, IsEmpty());
    EXPECT_EQ(assembler.counters().packets_late, block_writer(1).all().size());
}

TEST_F(Assembler, OpensNoBlockForAPacketThatIsGone) {
    add(block_writer(1).gone(2));
    let_pass(400ms);
    EXPECT_THAT(outlet.finished, IsEmpty());
}

TEST_F(Assembler, TellsHowFarTheNewestBlockHasCome) {
    EXPECT_EQ(assembler.newest_block().expected, 0U);
    auto const began = now;
    auto const packets = block_writer(1).all();
    add(packets[0]);
    now += 1ms;
    add(packets[1]);
    auto const block = assembler.newest_block();
    EXPECT_EQ(block.began, began);
    EXPECT_GT(block.bytes, 0U);
    EXPECT_LT(block.bytes, packets[1].size());
    EXPECT_EQ(block.expected, block_bytes);
    add(std::vector(packets.begin() + 2, packets.end()));
    EXPECT_EQ(assembler.newest_block().bytes, 0U);
}

TEST_F(Assembler, IgnoresTestPackets) {
    add(block_writer(0).payload(1));
    let_pass(400ms);
    EXPECT_THAT(outlet.finished, IsEmpty());
}

TEST_F(Assembler, DoesNotTakeABlockForWholeWhosePacketsAreShort) {
    block_writer const block(1);
    auto packets = block.all();
    packets[2].pop_back();
    add(packets);
    let_pass(300ms);
    EXPECT_THAT(outlet.results(), ElementsAre(missing));
}

TEST_F(Assembler, DoesNotTakeABlockForWholeWhoseTrailerComesTooEarlyByItsNumber) {
    block_writer const block(1);
    auto packets = block.all();
    packets.back()[7] = std::byte{3};
    add(packets);
    let_pass(300ms);
    EXPECT_THAT(outlet.results(), ElementsAre(missing));
}

TEST_F(Assembler, StopsWithoutTheBlocksThatHaveNotEnded) {
    add_without(block_writer(1), {2});
    add(block_writer(2).all());
    add(block_writer(3).leader());
    EXPECT_THAT(outlet.finished, IsEmpty());
    assembler.stop();
    ASSERT_THAT(outlet.results(), ElementsAre(ok));
    EXPECT_EQ(outlet.contents[0], block_writer(2).data());
}

TEST_F(AssemblerWithoutResends, EndsABlockSoonAfterTheNextOneHasBegun) {
    add_without(block_writer(1), {2});
    add(block_writer(2).leader());
    let_pass(3ms);
    EXPECT_THAT(outlet.results(), ElementsAre(missing));
    EXPECT_THAT(outlet.requests, IsEmpty());
}

TEST_F(AssemblerWithoutResends, WaitsForPacketsThatWereOvertakenByATrailer) {
    block_writer const block(1);
    add_without(block, {2});
    let_pass(1ms);
    add(block.payload(2));
    EXPECT_THAT(outlet.results(), ElementsAre(ok));
}

/// Whatever is lost, doubled and shuffled within a few packets: a block that is reported whole is the camera's, each
/// block is reported at most once, in order, and no memory is touched that should not be.
RC_GTEST_PROP(AssemblerProperty, WholeBlocksAreTheCamerasAndComeInOrder, ()) {
    auto const seed = *rc::gen::arbitrary<uint32_t>();
    bool const extended = *rc::gen::arbitrary<bool>();
    bool const can_resend = *rc::gen::arbitrary<bool>();
    double const lost = *rc::gen::element(0.0, 0.01, 0.2);
    std::mt19937 random(seed);
    std::uniform_real_distribution<> uniform;
    uint64_t const first = extended ? 0xFFFFFFFF0 : 65'530;
    std::vector<std::pair<double, datagram>> sent;
    std::vector<block_writer> blocks;
    for (uint64_t i = 0; i < 12; ++i) {
        uint64_t const id = extended || first + i <= 65'535 ? first + i : first + i - 65'535;
        blocks.emplace_back(id, 1 + random() % block_bytes, extended);
        for (auto const& packet : blocks.back().all()) {
            double const place = static_cast<double>(sent.size()) + 6 * uniform(random);
            if (uniform(random) >= lost) {
                sent.emplace_back(place, packet);
            }
            if (uniform(random) < 0.05) {
                sent.emplace_back(place + 30 * uniform(random), packet);
            }
        }
    }
    std::ranges::stable_sort(sent, {}, [](auto const& each) { return each.first; });
    fake_outlet outlet(40);
    gvsp_assembler assembler({packet_bytes, block_bytes, can_resend}, outlet);
    gvsp_assembler::time_point now{std::chrono::hours(1)};
    for (auto const& [place, packet] : sent) {
        now += std::chrono::microseconds(random() % 500);
        assembler.add(packet, now);
        assembler.attend(now);
    }
    for (int i = 0; i < 400; ++i) {
        assembler.attend(now += 1ms);
    }
    auto next = blocks.begin();
    for (std::size_t i = 0; i < outlet.finished.size(); ++i) {
        if (outlet.finished[i].result == ok) {
            next = std::find_if(next, blocks.end(),
                                [&](auto const& block) { return block.timestamp() == outlet.finished[i].timestamp; });
            RC_ASSERT(next != blocks.end());
            RC_ASSERT(outlet.contents[i] == next->data());
            ++next;
        }
    }
    if (lost == 0.0) {
        RC_ASSERT(assembler.counters().blocks_whole == blocks.size());
    }
    RC_ASSERT(outlet.finished.size() <= blocks.size());
    outlet.expect_untouched();
}

RC_GTEST_PROP(AssemblerProperty, PacketsOfNoSenseDoNoHarm, (std::vector<std::vector<uint8_t>> const& datagrams)) {
    fake_outlet outlet(8);
    gvsp_assembler assembler({packet_bytes, block_bytes, true}, outlet);
    gvsp_assembler::time_point now{std::chrono::hours(1)};
    for (auto bytes : datagrams) {
        if (bytes.size() > 4) {
            bytes[4] = static_cast<uint8_t>(1 + bytes[4] % 3 + (bytes[4] & 0x80));  // one of the kinds
        }
        assembler.add(std::as_bytes(std::span(bytes)), now += 1ms);
        assembler.attend(now);
    }
    RC_ASSERT(outlet.finished.size() <= 8U);
    outlet.expect_untouched();
}
