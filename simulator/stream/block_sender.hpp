// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>

#include "protocol/gvcp_packet.hpp"
#include "stream/packet_outlet.hpp"
#include "stream/sent_blocks.hpp"
#include "stream/stream_block.hpp"

namespace camsim {

/// Sends blocks: renders their packets in runs and passes each run to the outlet no earlier than the pacing allows.
///
/// Used by one thread. The outlet and the list of sent blocks must outlive it.
class block_sender {
public:
    using time_point = std::chrono::steady_clock::time_point;
    /// Blocks until the given time; returns at once if it has passed. \return false to abort the block
    using waiter = std::function<bool(time_point)>;

    struct result {
        bool finished = true;              ///< false: aborted
        std::uint32_t unsent_packets = 0;  ///< rejected by the kernel
    };

    block_sender(scene_settings const& scene, packet_outlet& outlet, sent_blocks& sent);

    /// Sends leader, payload packets and trailer. Runs that are late are sent at once, until the block has caught up.
    /// \param packet_interval time between the starts of packets; 0: as fast as possible
    result send(stream_block const& block, endpoint const& destination, std::chrono::duration<double> packet_interval,
                waiter const& wait_until);

private:
    void send_run(packet_run const& run, stream_block const& block, endpoint const& destination, result& so_far);

    block_packets packets_;
    packet_outlet& outlet_;
    sent_blocks& sent_;
};

/// Executes PACKETRESEND_CMD: renders the requested packets again and sends them. For a packet that is not available
/// it sends a GVSP packet with the reason as status.
///
/// Used by one thread, the control channel's. The outlet and the list of sent blocks must outlive it.
class block_resender {
public:
    block_resender(scene_settings const& scene, packet_outlet& outlet, sent_blocks const& sent);

    /// \param extended_status whether the application has enabled the status codes that give the reason why a packet is
    /// not available; GEV_STATUS_PACKET_UNAVAILABLE is sent otherwise
    void resend(gvcp::packet_resend const& request, gvsp::id_mode ids, bool extended_status,
                endpoint const& destination);

private:
    void resend_range(std::uint32_t first, std::uint32_t last, endpoint const& destination);
    void send_unavailable(gvcp::status reason, std::uint64_t block_id, std::uint32_t packet_id, gvsp::id_mode ids,
                          endpoint const& destination);

    block_packets packets_;
    stream_block block_;
    packet_outlet& outlet_;
    sent_blocks const& sent_;
};

}  // namespace camsim
