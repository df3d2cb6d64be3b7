// SPDX-License-Identifier: MIT
#include "stream/block_sender.hpp"

#include <gmock/gmock.h>
#include <sys/socket.h>

#include "base/file_descriptor.hpp"

using namespace camsim;

using testing::ElementsAre;

namespace {

constexpr ipv4_address loopback = 0x7F000001;

scene_settings small_scene() {
    scene_settings scene;
    scene.sensor_width = 320;
    scene.sensor_height = 100;
    return scene;
}

stream_block small_block(std::uint64_t block_id) {
    stream_block block;
    block.block_id = block_id;
    block.packet_size = 1500;
    block.frame.area = {320, 100, 0, 0};
    return block;
}

/// A receiving socket. On loopback, packets have arrived when the send returns.
class receiver {
public:
    receiver() : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = to_sockaddr({loopback, 0});
        socklen_t length = sizeof(address);
        EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), length), 0);
        EXPECT_EQ(::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
        self_ = from_sockaddr(address);
    }
    endpoint const& self() const { return self_; }
    /// \return the headers of all packets that have arrived
    std::vector<gvsp::packet_header> headers() {
        std::vector<gvsp::packet_header> all;
        std::vector<std::byte> packet(65536);
        for (;;) {
            ssize_t const length = ::recv(socket_.get(), packet.data(), packet.size(), 0);
            if (length < 0) {
                return all;
            }
            all.push_back(*gvsp::decode_header(std::span(packet).first(static_cast<std::size_t>(length))));
        }
    }

private:
    file_descriptor socket_;
    endpoint self_;
};

std::vector<std::uint32_t> packet_ids(std::vector<gvsp::packet_header> const& headers) {
    std::vector<std::uint32_t> ids;
    for (gvsp::packet_header const& header : headers) {
        ids.push_back(header.packet_id);
    }
    return ids;
}

struct BlockOnLoopback : testing::Test {
    receiver there;
    stream_socket socket{loopback};
    active_faults active{1};
    stream_faults faults{active};
    packet_outlet outlet{socket, faults};
    sent_blocks sent{2};
    block_sender sender{small_scene(), outlet, sent};
    block_resender resender{small_scene(), outlet, sent};
    std::vector<block_sender::time_point> waits;

    block_sender::result send(std::uint64_t block_id, std::size_t runs_before_giving_up = 1000) {
        return sender.send(small_block(block_id), there.self(), std::chrono::microseconds(250),
                           [&, runs_before_giving_up](block_sender::time_point when) {
                               waits.push_back(when);
                               return waits.size() <= runs_before_giving_up;
                           });
    }
    std::vector<gvsp::packet_header> resend(gvcp::packet_resend const& request, bool extended_status) {
        resender.resend(request, gvsp::id_mode::standard, extended_status, there.self());
        return there.headers();
    }
};

std::uint16_t number(gvcp::status one) {
    return static_cast<std::uint16_t>(one);
}

}  // namespace

TEST_F(BlockOnLoopback, ArrivesCompleteAndInOrder) {
    auto const result = send(1);
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.unsent_packets, 0U);
    std::uint32_t const packets = small_block(1).layout().packet_count();
    auto const ids = packet_ids(there.headers());
    ASSERT_EQ(ids.size(), packets);
    for (std::uint32_t id = 0; id < packets; ++id) {
        EXPECT_EQ(ids[id], id);
    }
}

TEST_F(BlockOnLoopback, IsSentInRunsOfAMillisecondWhenTheyAreDue) {
    send(1);
    ASSERT_GE(waits.size(), 3U);
    for (std::size_t run = 1; run + 1 < waits.size(); ++run) {
        EXPECT_EQ(waits[run] - waits[run - 1], std::chrono::milliseconds(1));  // four packets of 250 us
    }
}

TEST_F(BlockOnLoopback, EndsWhereItIsAborted) {
    EXPECT_FALSE(send(1, 2).finished);
    EXPECT_THAT(packet_ids(there.headers()), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8));
}

TEST_F(BlockOnLoopback, CountsPacketsThatTheKernelRejects) {
    // The kernel rejects the limited broadcast address on a socket without SO_BROADCAST.
    auto const result = sender.send(small_block(1), {0xFFFFFFFF, 9}, {}, [](auto) { return true; });
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.unsent_packets, small_block(1).layout().packet_count());
}

TEST_F(BlockOnLoopback, PassesTheFaultFilter) {
    active.add(1, default_fault(fault_kind::leader_loss));
    active.add(2, default_fault(fault_kind::trailer_loss));
    auto const result = send(1);
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.unsent_packets, 0U);  // the kernel rejected none
    auto const ids = packet_ids(there.headers());
    ASSERT_EQ(ids.size(), small_block(1).layout().payload_packets());
    EXPECT_EQ(ids.front(), 1U);
    EXPECT_THAT(packet_ids(resend({0, 1, 0, 0}, false)), ElementsAre(0));
}

TEST_F(BlockOnLoopback, IsResentInPartAndMarked) {
    send(1);
    there.headers();
    auto const headers = resend({0, 1, 3, 5}, false);
    EXPECT_THAT(packet_ids(headers), ElementsAre(3, 4, 5));
    for (auto const& header : headers) {
        EXPECT_EQ(header.status, number(gvcp::status::packet_resend));
    }
}

TEST_F(BlockOnLoopback, IsResentUpToItsEnd) {
    send(1);
    there.headers();
    std::uint32_t const trailer = small_block(1).layout().trailer_id();
    EXPECT_THAT(packet_ids(resend({0, 1, trailer - 1, UINT32_MAX}, false)), ElementsAre(trailer - 1, trailer));
    auto const beyond = resend({0, 1, trailer + 1, trailer + 5}, true);
    ASSERT_EQ(beyond.size(), 1U);
    EXPECT_EQ(beyond[0].status, number(gvcp::status::packet_unavailable));
}

TEST_F(BlockOnLoopback, IsUnavailableBeforeItIsSentAndAfterItIsForgotten) {
    send(1);
    send(2, waits.size() + 1);
    there.headers();
    auto const not_yet = resend({0, 2, 9, 9}, true);
    ASSERT_EQ(not_yet.size(), 1U);
    EXPECT_EQ(not_yet[0].status, number(gvcp::status::packet_not_yet_available));
    EXPECT_EQ(resend({0, 2, 9, 9}, false).at(0).status, number(gvcp::status::packet_unavailable));
    send(3);
    there.headers();
    EXPECT_EQ(resend({0, 1, 9, 9}, true).at(0).status, number(gvcp::status::packet_removed_from_memory));
}
