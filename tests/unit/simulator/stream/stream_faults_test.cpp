// SPDX-License-Identifier: MIT
#include "stream/stream_faults.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <bit>
#include <numeric>

#include "base/byte_order.hpp"
#include "protocol/chunk_data.hpp"

using namespace camsim;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

scene_settings small_scene() {
    scene_settings scene;
    scene.sensor_width = 320;
    scene.sensor_height = 100;
    return scene;
}

stream_block small_block(std::uint64_t block_id = 1, gvsp::id_mode ids = gvsp::id_mode::standard) {
    stream_block block;
    block.block_id = block_id;
    block.ids = ids;
    block.packet_size = 1400;
    block.timestamp = 1000;
    block.frame.area = {320, 100, 0, 0};
    return block;
}

using datagrams = std::vector<stream_faults::datagram>;

/// A stream with faults, and the blocks sent over it.
struct line {
    explicit line(std::uint64_t seed = 1) : active(seed) {}

    void add(fault_kind kind, std::map<std::string_view, fault_value> const& values = {}) {
        fault one = default_fault(kind);
        for (auto const& [name, value] : values) {
            ASSERT_TRUE(one.values.contains(name)) << name;
            one.values[name] = value;
        }
        active.add(++faults_added, one);
    }
    void take(datagrams& into, packet_run const& run, stream_block const& block) {
        for (auto& one : filter.filter(run, block)) {
            into.push_back(std::move(one));
        }
    }
    /// The packets that arrive when a block is sent.
    datagrams send(stream_block const& block) {
        datagrams all;
        packets.begin(block);
        std::uint32_t const last = block.layout().trailer_id();
        take(all, packets.leader(), block);
        for (std::uint32_t first = 1; first < last; first += 5) {
            take(all, packets.payload(first, std::min(5U, last - first)), block);
        }
        take(all, packets.trailer(), block);
        return all;
    }
    /// The packets that arrive when some are resent.
    datagrams resend(stream_block const& block, std::uint32_t first, std::uint32_t count) {
        datagrams all;
        packets.begin(block);
        take(all, packets.payload(first, count, true), block);
        return all;
    }
    std::uint64_t hits(std::uint32_t number = 1) { return active.list().at(number - 1).hits; }

    std::uint32_t faults_added = 0;
    active_faults active;
    stream_faults filter{active};
    block_packets packets{small_scene()};
};

std::vector<std::uint32_t> ids(datagrams const& all) {
    std::vector<std::uint32_t> numbers;
    for (auto const& one : all) {
        numbers.push_back(gvsp::decode_header(one)->packet_id);
    }
    return numbers;
}

/// Packet IDs 0 to that of the trailer.
std::vector<std::uint32_t> all_ids(stream_block const& block) {
    std::vector<std::uint32_t> numbers(block.layout().packet_count());
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

datagrams without_faults(stream_block const& block) {
    return line().send(block);
}

/// The number of bits in which two packets differ.
unsigned different_bits(stream_faults::datagram const& a, stream_faults::datagram const& b, std::size_t from,
                        std::size_t to) {
    unsigned bits = 0;
    for (std::size_t at = from; at < to; ++at) {
        bits += static_cast<unsigned>(std::popcount(std::to_integer<unsigned>(a[at] ^ b[at])));
    }
    return bits;
}

}  // namespace

TEST(StreamFaults, AreAppliedOnlyWhileOneIsActive) {
    line one;
    EXPECT_FALSE(one.filter.any());
    one.add(fault_kind::ack_loss);
    EXPECT_FALSE(one.filter.any());
    one.add(fault_kind::packet_loss);
    EXPECT_TRUE(one.filter.any());
    one.active.remove(2);
    EXPECT_FALSE(one.filter.any());
}

TEST(StreamFaults, ImplementEachKindOfTheStreamDomain) {
    for (fault_definition const& definition : fault_table()) {
        if (definition.domain == fault_domain::stream) {
            line one;
            one.add(definition.kind, {{"probability", 1.0}});
            stream_block block = small_block();
            block.chunks.set();
            one.filter.drops_block(block.block_id);
            one.send(block);
            EXPECT_GT(one.hits(), 0U) << definition.name;
            EXPECT_THAT(one.filter.take_hits(), ElementsAre(std::pair(std::string(definition.name), one.hits())));
        }
    }
}

TEST(StreamFaults, DropPacketsWithTheirProbability) {
    line one;
    one.add(fault_kind::packet_loss, {{"probability", 0.2}});
    std::size_t arrived = 0;
    std::size_t sent = 0;
    for (std::uint64_t block_id = 1; block_id <= 200; ++block_id) {
        arrived += one.send(small_block(block_id)).size();
        sent += small_block().layout().packet_count();
    }
    double const lost = static_cast<double>(sent - arrived) / static_cast<double>(sent);
    EXPECT_NEAR(lost, 0.2, 0.02);
    EXPECT_EQ(one.hits(), sent - arrived);
}

TEST(StreamFaults, SelectTheSamePacketsForTheSameSeed) {
    auto const lost_by = [](std::uint64_t seed) {
        line one(seed);
        one.add(fault_kind::packet_loss, {{"probability", 0.5}});
        return ids(one.send(small_block()));
    };
    EXPECT_EQ(lost_by(1), lost_by(1));
    EXPECT_NE(lost_by(1), lost_by(2));
    line one(1);
    one.add(fault_kind::packet_loss, {{"probability", 0.5}});
    one.send(small_block(7));
    EXPECT_EQ(ids(one.send(small_block())), lost_by(1));
}

TEST(StreamFaults, DrawSeparatelyForResentPackets) {
    line one;
    one.add(fault_kind::packet_loss, {{"probability", 0.5}});
    std::vector<bool> outcomes;
    for (int attempt = 0; attempt < 64; ++attempt) {
        outcomes.push_back(one.resend(small_block(), 3, 1).empty());
    }
    auto const lost = std::ranges::count(outcomes, true);
    EXPECT_GT(lost, 16);
    EXPECT_LT(lost, 48);
    EXPECT_THAT(one.filter.take_hits(), IsEmpty());  // counts first transmissions only
}

TEST(StreamFaults, DropABurstOfConsecutivePackets) {
    line one;
    one.add(fault_kind::loss_burst, {{"probability", 1.0}, {"packets", 6.0}});
    unsigned complete_bursts = 0;
    for (std::uint64_t block_id = 1; block_id <= 20; ++block_id) {
        auto const arrived = ids(one.send(small_block(block_id)));
        std::vector<std::uint32_t> lost;
        std::ranges::set_difference(all_ids(small_block()), arrived, std::back_inserter(lost));
        ASSERT_FALSE(lost.empty());
        EXPECT_LE(lost.size(), 6U);
        EXPECT_EQ(lost.back() - lost.front() + 1, lost.size());
        complete_bursts += lost.size() == 6 ? 1U : 0U;
    }
    EXPECT_GT(complete_bursts, 10U);
    EXPECT_EQ(one.resend(small_block(), 1, 5).size(), 5U);
}

TEST(StreamFaults, ReorderPacketsByTheConfiguredDistance) {
    line one;
    one.add(fault_kind::packet_reordering, {{"probability", 0.2}, {"distance", 3.0}});
    auto const arrived = ids(one.send(small_block()));
    auto sorted = arrived;
    std::ranges::sort(sorted);
    EXPECT_EQ(sorted, all_ids(small_block()));
    EXPECT_EQ(arrived.size(), sorted.size());
    EXPECT_NE(arrived, sorted);
    std::uint32_t farthest = 0;
    for (std::size_t place = 0; place < arrived.size(); ++place) {
        for (std::size_t before = 0; before < place; ++before) {
            farthest = std::max(farthest, arrived[before] > arrived[place] ? arrived[before] - arrived[place] : 0U);
        }
    }
    EXPECT_EQ(farthest, 3U);
}

TEST(StreamFaults, ReleaseHeldPacketsAtTheEndOfTheirBlock) {
    line one;
    one.add(fault_kind::packet_reordering, {{"probability", 1.0}, {"distance", 1000.0}});
    auto const arrived = ids(one.send(small_block()));
    EXPECT_EQ(arrived.size(), small_block().layout().packet_count());
    EXPECT_EQ(arrived.front(), small_block().layout().trailer_id());
    EXPECT_EQ(arrived[1], 0U);
}

TEST(StreamFaults, ReleaseHeldPacketsAfterTheFaultHasEnded) {
    line one;
    stream_block const block = small_block();
    one.add(fault_kind::packet_reordering, {{"probability", 1.0}, {"distance", 2.0}});
    one.packets.begin(block);
    datagrams arrived;
    one.take(arrived, one.packets.leader(), block);
    EXPECT_THAT(arrived, IsEmpty());
    one.active.remove(1);
    EXPECT_TRUE(one.filter.any());
    one.take(arrived, one.packets.payload(1, 3), block);
    EXPECT_THAT(ids(arrived), ElementsAre(1, 2, 0, 3));
    EXPECT_FALSE(one.filter.any());
}

TEST(StreamFaults, DuplicatePackets) {
    line one;
    one.add(fault_kind::packet_duplication, {{"probability", 1.0}});
    auto const arrived = one.send(small_block());
    auto const expected = without_faults(small_block());
    ASSERT_EQ(arrived.size(), 2 * expected.size());
    for (std::size_t index = 0; index < expected.size(); ++index) {
        EXPECT_EQ(arrived[2 * index], expected[index]);
        EXPECT_EQ(arrived[2 * index + 1], expected[index]);
    }
}

TEST(StreamFaults, InvertOneBitOfAHeader) {
    for (auto const mode : {gvsp::id_mode::standard, gvsp::id_mode::extended}) {
        line one;
        one.add(fault_kind::header_corruption, {{"probability", 1.0}});
        std::size_t const header = gvsp::header_size_of(mode);
        auto const arrived = one.send(small_block(1, mode));
        auto const expected = without_faults(small_block(1, mode));
        ASSERT_EQ(arrived.size(), expected.size());
        for (std::size_t index = 0; index < expected.size(); ++index) {
            EXPECT_EQ(different_bits(arrived[index], expected[index], 0, header), 1U);
            EXPECT_EQ(different_bits(arrived[index], expected[index], header, expected[index].size()), 0U);
        }
    }
}

TEST(StreamFaults, InvertOneBitOfAPayloadAndCountIt) {
    line one;
    one.add(fault_kind::payload_corruption, {{"probability", 1.0}});
    auto const arrived = one.send(small_block());
    auto const expected = without_faults(small_block());
    ASSERT_EQ(arrived.size(), expected.size());
    EXPECT_EQ(arrived.front(), expected.front());
    EXPECT_EQ(arrived.back(), expected.back());
    for (std::size_t index = 1; index + 1 < expected.size(); ++index) {
        EXPECT_EQ(different_bits(arrived[index], expected[index], 0, 8), 0U);
        EXPECT_EQ(different_bits(arrived[index], expected[index], 8, expected[index].size()), 1U);
    }
    EXPECT_THAT(one.filter.take_hits(),
                ElementsAre(std::pair("payload_corruption", small_block().layout().payload_packets())));
    EXPECT_THAT(one.filter.take_hits(), IsEmpty());
}

TEST(StreamFaults, DropALeaderOrTrailerAndItsResendIfConfigured) {
    stream_block const block = small_block();
    std::uint32_t const trailer = block.layout().trailer_id();
    for (auto const kind : {fault_kind::leader_loss, fault_kind::trailer_loss}) {
        std::uint32_t const lost = kind == fault_kind::leader_loss ? 0 : trailer;
        for (bool const including_resends : {false, true}) {
            line one;
            one.add(kind, {{"including_resends", including_resends}});
            auto expected = all_ids(block);
            std::erase(expected, lost);
            EXPECT_EQ(ids(one.send(block)), expected);
            datagrams resent;
            one.packets.begin(block);
            one.take(resent, lost == 0 ? one.packets.leader(true) : one.packets.trailer(true), block);
            EXPECT_EQ(resent.empty(), including_resends);
        }
    }
}

TEST(StreamFaults, ChangeTheSizeInTheLeader) {
    auto const size_with = [](double factor) {
        line one;
        one.add(fault_kind::leader_size, {{"factor", factor}});
        auto const arrived = one.send(small_block());
        EXPECT_EQ(std::vector(arrived.begin() + 1, arrived.end()), [&] {
            auto remaining = without_faults(small_block());
            remaining.erase(remaining.begin());
            return remaining;
        }());
        return gvsp::decode_image_leader(std::span(arrived[0]).subspan(8))->area;
    };
    EXPECT_EQ(size_with(2.0).width, 640U);
    EXPECT_EQ(size_with(2.0).height, 200U);
    EXPECT_EQ(size_with(0.5).width, 160U);
    EXPECT_EQ(size_with(0.0).height, 0U);
    EXPECT_EQ(size_with(1e10).width, 0xFFFFFFFFU);
}

TEST(StreamFaults, ChangeTheFormatInTheLeader) {
    line one;
    one.add(fault_kind::leader_format);
    auto const arrived = one.send(small_block());
    EXPECT_EQ(load_be32(arrived[0], 8 + 12), 0x02180014U);
    EXPECT_EQ(gvsp::decode_image_leader(std::span(arrived[0]).subspan(8))->area.width, 320U);
}

TEST(StreamFaults, ChangeTheLengthOfTheLastChunkAcrossPacketBoundaries) {
    stream_block block = small_block();
    block.chunks.set();
    for (auto const& [how, length] : std::vector<std::pair<std::string, std::size_t>>{
             {"zero", 0}, {"odd", 5}, {"too_large", block.payload_bytes()}}) {
        // Different packet sizes, some of which split the length between two packets.
        for (std::size_t more = 0; more < 12; more += 4) {
            std::size_t const payload = (block.payload_bytes() - 2 + more) / 10;
            block.packet_size = payload + 28 + 8;
            line one;
            one.add(fault_kind::chunk_length, {{"length", how}});
            std::vector<std::byte> received;
            for (auto const& packet : one.send(block)) {
                if (gvsp::decode_header(packet)->format == gvsp::packet_format::payload) {
                    received.insert(received.end(), packet.begin() + 8, packet.end());
                }
            }
            ASSERT_EQ(received.size(), block.payload_bytes());
            EXPECT_EQ(load_be32(received, received.size() - 4), length);
            EXPECT_EQ(load_be32(received, received.size() - 8), 0x200FU);
        }
    }
}

TEST(StreamFaults, LeaveBlocksWithoutChunksUnchanged) {
    line one;
    one.add(fault_kind::chunk_length);
    EXPECT_EQ(one.send(small_block()), without_faults(small_block()));
    EXPECT_EQ(one.hits(), 0U);
}

TEST(StreamFaults, DropBlocksWithTheirProbability) {
    line one;
    EXPECT_FALSE(one.filter.drops_block(1));
    one.add(fault_kind::block_drop, {{"probability", 0.25}});
    unsigned dropped = 0;
    for (std::uint64_t block_id = 1; block_id <= 1000; ++block_id) {
        dropped += one.filter.drops_block(block_id) ? 1U : 0U;
    }
    EXPECT_NEAR(dropped, 250, 50);
    EXPECT_EQ(one.hits(), dropped);
    EXPECT_THAT(one.filter.take_hits(), ElementsAre(std::pair("block_drop", dropped)));
}

TEST(StreamFaults, WorkTogetherWithFaultsOfAllOtherKinds) {
    line one;
    one.add(fault_kind::packet_loss, {{"probability", 1.0}});
    for (auto const& other : fault_table()) {
        one.add(other.kind);
    }
    EXPECT_THAT(one.send(small_block()), IsEmpty());
}

TEST(StreamFaults, IgnoreFaultsOfOtherDomains) {
    line one;
    one.add(fault_kind::packet_duplication, {{"probability", 1.0}});
    one.add(fault_kind::read_failure);
    one.add(fault_kind::freeze);
    EXPECT_EQ(one.hits(2), 0U);
    EXPECT_EQ(one.send(small_block()).size(), 2U * (small_block().layout().trailer_id() + 1));
}

TEST(StreamFaults, CanBeCombined) {
    line one;
    one.add(fault_kind::leader_loss);
    one.add(fault_kind::packet_duplication, {{"probability", 1.0}});
    stream_block const block = small_block();
    auto const arrived = ids(one.send(block));
    EXPECT_EQ(arrived.size(), 2U * (block.layout().packet_count() - 1));
    EXPECT_EQ(arrived.front(), 1U);
    EXPECT_THAT(one.filter.take_hits(),
                UnorderedElementsAre(std::pair("leader_loss", 1U),
                                     std::pair("packet_duplication", block.layout().packet_count() - 1)));
}
