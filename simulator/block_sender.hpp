#pragma once

#include <chrono>
#include <functional>

#include "gvcp_packet.hpp"
#include "packet_outlet.hpp"
#include "sent_blocks.hpp"
#include "stream_block.hpp"

namespace camsim {

/// Puts blocks on the wire, a run of packets at a time, each run no earlier than its pace allows.
class block_sender {
public:
    using time_point = std::chrono::steady_clock::time_point;
    /// Waits until a time, or not at all when it has passed; false: give the block up.
    using waiter = std::function<bool(time_point)>;

    struct result {
        bool finished = true;              ///< false: given up
        std::uint32_t unsent_packets = 0;  ///< refused by the kernel
    };

    block_sender(scene_settings const& scene, packet_outlet& outlet, sent_blocks& sent);

    result send(stream_block const& block, endpoint const& destination, std::chrono::duration<double> packet_interval,
                waiter const& wait_until);

private:
    void send_run(packet_run const& run, stream_block const& block, endpoint const& destination, result& so_far);

    block_packets packets_;
    packet_outlet& outlet_;
    sent_blocks& sent_;
};

/// Answers PACKETRESEND_CMD. What cannot be sent again is answered with a GVSP packet that says why.
class block_resender {
public:
    block_resender(scene_settings const& scene, packet_outlet& outlet, sent_blocks const& sent);

    void resend(gvcp::packet_resend const& request, gvsp::id_mode ids, bool extended_status,
                endpoint const& destination);

private:
    void resend_range(std::uint32_t first, std::uint32_t last, endpoint const& destination);
    void refuse(gvcp::status why, std::uint64_t block_id, std::uint32_t packet_id, gvsp::id_mode ids,
                endpoint const& destination);

    block_packets packets_;
    stream_block block_;
    packet_outlet& outlet_;
    sent_blocks const& sent_;
};

}  // namespace camsim
