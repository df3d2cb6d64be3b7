// SPDX-License-Identifier: MIT
#include "gvsp/packet_batch.hpp"

#include <algorithm>
#include <cstring>
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

constexpr uint32_t ok = PvResult::Code::OK;

/// Stores a message as the kernel does: into the pieces in order.
void scatter(datagram const& message, msghdr const& header) {
    std::size_t at = 0;
    for (std::size_t i = 0; i < header.msg_iovlen; ++i) {
        std::size_t const bytes = std::min(header.msg_iov[i].iov_len, message.size() - at);
        std::memcpy(header.msg_iov[i].iov_base, message.data() + at, bytes);
        at += bytes;
    }
    ASSERT_EQ(at, message.size()) << "no space for the message";
}

/// Whether the first piece of data of a prepared message lies in a buffer, not in the batch.
bool places_data(msghdr const& header) {
    return header.msg_iovlen > 1;
}

class PacketBatch : public testing::Test {
protected:
    /// Receives one merged message.
    void receive(std::vector<datagram> const& packets) {
        datagram message;
        for (auto const& packet : packets) {
            message.insert(message.end(), packet.begin(), packet.end());
        }
        auto const headers = batch.prepare(1, assembler.expect());
        scatter(message, headers[0].msg_hdr);
        batch.set_received(0, message.size(), packets.front().size());
        batch.deliver(1, assembler, now);
    }
    /// Receives messages of one packet each.
    void receive_singly(std::vector<datagram> const& packets) {
        auto const headers = batch.prepare(packet_batch::max_messages, assembler.expect());
        for (std::size_t i = 0; i < packets.size(); ++i) {
            scatter(packets[i], headers[i].msg_hdr);
            batch.set_received(i, packets[i].size(), packets[i].size());
        }
        batch.deliver(packets.size(), assembler, now);
    }

    fake_callbacks callbacks{8};
    gvsp_assembler assembler{{packet_bytes, block_bytes, true}, callbacks};
    packet_batch batch;
    gvsp_assembler::time_point now{1h};
    block_writer const block{1};
};

}  // namespace

TEST_F(PacketBatch, PredictsNothingWithoutABlock) {
    auto const headers = batch.prepare(1, assembler.expect());
    EXPECT_FALSE(places_data(headers[0].msg_hdr));
}

TEST_F(PacketBatch, PlacesTheDataOfPredictedPackets) {
    receive({block.leader()});
    auto const run = assembler.expect();
    EXPECT_EQ(run.block, 1U);
    EXPECT_EQ(run.first, 1U);
    EXPECT_EQ(run.packets, 3U) << "the last packet is short";
    auto const headers = batch.prepare(1, run);
    datagram message;
    for (uint32_t number = 1; number <= 3; ++number) {
        auto const packet = block.payload(number);
        message.insert(message.end(), packet.begin(), packet.end());
    }
    scatter(message, headers[0].msg_hdr);
    EXPECT_EQ(std::memcmp(run.memory, block.data().data(), 3 * run.data_bytes), 0) << "before it is delivered";
    batch.set_received(0, message.size(), packet_bytes - 28);
    batch.deliver(1, assembler, now);
    EXPECT_EQ(assembler.expect().packets, 0U);
    receive({block.payload(4)});
    receive({block.trailer()});
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_THAT(callbacks.contents, ElementsAre(block.data()));
}

TEST_F(PacketBatch, PassesOnWhatFollowsThePredictedPackets) {
    receive({block.leader()});
    receive({block.payload(1), block.payload(2), block.payload(3), block.payload(4)});
    receive({block.trailer()});
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_THAT(callbacks.contents, ElementsAre(block.data()));
}

TEST_F(PacketBatch, RepairsAnOvertakingPacket) {
    receive({block.leader()});
    receive({block.payload(1), block.payload(3), block.payload(2)});
    receive({block.payload(4)});
    receive({block.trailer()});
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_THAT(callbacks.contents, ElementsAre(block.data()));
    EXPECT_EQ(assembler.counters().packets_duplicate, 0U);
}

TEST_F(PacketBatch, RepairsPacketsAfterALostOne) {
    receive_singly({block.leader()});
    receive_singly({block.payload(1), block.payload(3), block.payload(4), block.trailer()});
    EXPECT_THAT(callbacks.finished, IsEmpty());
    receive_singly({block.payload(2)});
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_THAT(callbacks.contents, ElementsAre(block.data()));
}

TEST_F(PacketBatch, DropsMessagesOfLengthZero) {
    receive_singly({block.leader()});
    auto const headers = batch.prepare(packet_batch::max_messages, assembler.expect());
    scatter(block_writer(7).payload(1), headers[0].msg_hdr);
    batch.set_received(0, 0, 1);
    for (uint32_t number = 1; number <= 4; ++number) {
        auto const packet = block.payload(number);
        scatter(packet, headers[number].msg_hdr);
        batch.set_received(number, packet.size(), packet.size());
    }
    batch.deliver(5, assembler, now);
    receive_singly({block.trailer()});
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_THAT(callbacks.contents, ElementsAre(block.data()));
}

TEST_F(PacketBatch, RepairsPacketsOfAnotherSize) {
    receive({block.leader()});
    // Packets without the last two bytes of their data: each is accepted, and the block is not complete.
    auto shortened = [&](uint32_t number) {
        auto packet = block.payload(number);
        packet.resize(packet.size() - 2);
        return packet;
    };
    receive({shortened(1), shortened(2), shortened(3)});
    EXPECT_EQ(assembler.progress().bytes, 2 * (packet_bytes - 36) + (packet_bytes - 38));
    EXPECT_EQ(assembler.counters().packets_malformed, 0U);
}

TEST_F(PacketBatch, PredictsNothingBehindTheTrailer) {
    receive_singly({block.leader(), block.payload(1), block.trailer()});
    EXPECT_EQ(assembler.expect().packets, 0U);
}

TEST_F(PacketBatch, PredictsNothingBeyondASmallBuffer) {
    fake_callbacks small(1, 50);
    gvsp_assembler other({packet_bytes, block_bytes, true}, small);
    other.add(block.leader(), now);
    EXPECT_EQ(other.expect().packets, 2U);
}

TEST_F(PacketBatch, PredictsPacketsWithExtendedIds) {
    block_writer const wide(5, block_bytes, true);
    receive({wide.leader()});
    auto const run = assembler.expect();
    EXPECT_TRUE(run.extended);
    EXPECT_EQ(run.header_bytes, 20U);
    EXPECT_EQ(run.data_bytes, 10U);
    EXPECT_EQ(run.packets, 8U);
}

TEST_F(PacketBatch, PredictsNothingBeyondTheImageInALargerBuffer) {
    fake_callbacks large(1, 2 * block_bytes);
    gvsp_assembler other({packet_bytes, block_bytes, true}, large);
    other.add(block.leader(), now);
    EXPECT_EQ(other.expect().packets, 3U);
}

TEST_F(PacketBatch, PredictsNothingBehindAShortPacket) {
    auto shortened = block.payload(1);
    shortened.pop_back();
    receive({block.leader()});
    receive({shortened});
    EXPECT_EQ(assembler.expect().packets, 0U);
}

TEST_F(PacketBatch, PredictsNothingForABlockWithoutABuffer) {
    fake_callbacks none(0);
    gvsp_assembler starved({packet_bytes, block_bytes, true}, none);
    starved.add(block.leader(), now);
    EXPECT_EQ(starved.expect().packets, 0U);
}

TEST_F(PacketBatch, CountsPlacedPacketsThatWereRequested) {
    receive({block.leader()});
    assembler.poll(now + 20ms);
    ASSERT_FALSE(callbacks.requests.empty());
    receive({block.payload(1), block.payload(2), block.payload(3)});
    EXPECT_EQ(assembler.counters().packets_resent, 3U);
}

TEST_F(PacketBatch, PlacesPayloadPacketsOnly) {
    auto trailer = block.payload(1);
    trailer[4] = std::byte{2};
    receive({block.leader()});
    receive({trailer});
    EXPECT_EQ(assembler.expect().packets, 0U) << "the block's end is known";
    EXPECT_EQ(assembler.progress().bytes, 0U);
}

TEST_F(PacketBatch, PlacesNoPacketWithAnError) {
    auto refused = block.payload(1);
    refused[0] = std::byte{0x80};
    refused[1] = std::byte{0x0C};
    receive({block.leader()});
    receive({refused});
    EXPECT_EQ(assembler.progress().bytes, 0U);
}

TEST_F(PacketBatch, PlacesPacketsWithIdsOfTheSameKindOnly) {
    block_writer const wide(5, block_bytes, true);
    receive({wide.leader()});
    receive({block_writer(5).payload(1)});
    EXPECT_EQ(assembler.counters().packets_malformed, 1U);
    EXPECT_EQ(assembler.progress().bytes, 0U);
}

TEST_F(PacketBatch, PlacesNothingBehindAMessageOfLengthZero) {
    receive_singly({block.leader()});
    auto const headers = batch.prepare(packet_batch::max_messages, assembler.expect());
    batch.set_received(0, 0, 1);
    auto const packet = block.payload(2);  // in the place of packet 2, as if a message without data had been packet 1
    scatter(packet, headers[1].msg_hdr);
    batch.set_received(1, packet.size(), packet.size());
    batch.deliver(2, assembler, now);
    receive_singly({block.payload(1), block.payload(3), block.payload(4), block.trailer()});
    EXPECT_THAT(callbacks.results(), ElementsAre(ok));
    EXPECT_THAT(callbacks.contents, ElementsAre(block.data()));
    EXPECT_EQ(assembler.counters().packets_duplicate, 0U);
}

/// With lost, repeated and reordered packets, blocks and counts are those of an assembler that copies each packet.
RC_GTEST_PROP(PacketBatchProperty, DeliversTheSameAsWithoutPrediction, ()) {
    std::mt19937 random(*rc::gen::arbitrary<uint32_t>());
    bool const extended = *rc::gen::arbitrary<bool>();
    bool const merged = *rc::gen::arbitrary<bool>();
    double const disturbed = *rc::gen::element(0.0, 0.02, 0.2);
    std::uniform_real_distribution<> uniform;
    std::vector<datagram> sent;
    for (uint64_t id = 1; id <= 12; ++id) {
        for (auto const& packet : block_writer(id, 1 + random() % 400, extended).all()) {
            if (uniform(random) >= disturbed) {
                sent.push_back(packet);
            }
            if (!sent.empty() && uniform(random) < disturbed) {
                sent.push_back(sent[random() % sent.size()]);
            }
            if (sent.size() > 1 && uniform(random) < disturbed) {
                std::swap(sent[sent.size() - 1], sent[sent.size() - 2]);
            }
        }
    }
    constexpr std::size_t buffer_bytes = 380;
    fake_callbacks expected(16, buffer_bytes);
    fake_callbacks delivered(16, buffer_bytes);
    gvsp_assembler copying({packet_bytes, 300, true}, expected);
    gvsp_assembler placing({packet_bytes, 300, true}, delivered);
    packet_batch batch;
    gvsp_assembler::time_point now{1h};
    for (std::size_t at = 0; at < sent.size();) {
        now += std::chrono::microseconds(random() % 300);
        std::size_t const wanted = 1 + random() % 40;
        std::size_t const count = std::min(wanted, sent.size() - at);
        std::size_t taken = 0;
        if (merged) {
            auto const headers = batch.prepare(1, placing.expect());
            datagram message = sent[at];
            // The kernel merges packets of equal size, and a last shorter one.
            for (taken = 1; taken < count && sent[at + taken - 1].size() == sent[at].size() &&
                            sent[at + taken].size() <= sent[at].size();
                 ++taken) {
                message.insert(message.end(), sent[at + taken].begin(), sent[at + taken].end());
            }
            scatter(message, headers[0].msg_hdr);
            batch.set_received(0, message.size(), sent[at].size());
            batch.deliver(1, placing, now);
        } else {
            auto const headers = batch.prepare(packet_batch::max_messages, placing.expect());
            for (; taken < count; ++taken) {
                scatter(sent[at + taken], headers[taken].msg_hdr);
                batch.set_received(taken, sent[at + taken].size(), sent[at + taken].size());
            }
            batch.deliver(count, placing, now);
        }
        for (std::size_t i = 0; i < taken; ++i) {
            copying.add(sent[at + i], now);
        }
        at += taken;
        placing.poll(now);
        copying.poll(now);
    }
    for (int i = 0; i < 400; ++i) {
        now += 1ms;
        placing.poll(now);
        copying.poll(now);
    }
    RC_ASSERT(placing.counters() == copying.counters());
    RC_ASSERT(delivered.results() == expected.results());
    for (std::size_t i = 0; i < delivered.finished.size(); ++i) {
        if (delivered.finished[i].result == ok) {
            RC_ASSERT(delivered.contents[i] == expected.contents[i]);
        }
    }
    RC_ASSERT(delivered.requests == expected.requests);
    delivered.expect_untouched();
}
