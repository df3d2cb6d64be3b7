// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <span>
#include <vector>

#include "faults/active_faults.hpp"
#include "stream/stream_block.hpp"
#include "stream/truth_log.hpp"

namespace camsim {

/// Applies the faults of the stream domain: drops, delays, duplicates and changes GVSP packets on their way out.
///
/// A filter over bytes between the packets of a block and the stream's socket. Blocks are filtered one after the
/// other; packets that are resent may come in between from another thread. One mutex guards the state, so all members
/// may be called by any thread.
class stream_faults {
public:
    using datagram = std::vector<std::byte>;

    explicit stream_faults(active_faults& faults) : faults_(faults) {}

    /// Whether packets must pass the filter: a fault is active, or held packets have yet to leave. Lock-free.
    bool any() const { return faults_.any_stream_fault() || holding_.load(std::memory_order_relaxed); }

    /// Whether fault block_drop selects this block, which then must not be sent.
    bool drops_block(std::uint64_t block_id);

    /// \param block the block that the packets belong to
    /// \return the packets to send instead, in this order
    std::vector<datagram> filter(packet_run const& run, stream_block const& block);

    /// \return how often each kind of fault was applied to packets sent for the first time, since the last call
    fault_hits take_hits();

private:
    struct packet {
        datagram bytes;
        gvsp::packet_header header;
        std::size_t header_bytes = 0;
        bool resent = false;
        bool lost = false;
        unsigned copies = 1;
        std::uint64_t distance = 0;  ///< number of later packets that leave first

        std::span<std::byte> content() { return std::span(bytes).subspan(header_bytes); }
        bool is(gvsp::packet_format format) const { return header.format == format; }
    };
    struct held_packet {
        datagram bytes;
        std::uint64_t remaining;  ///< packets that leave before it
    };

    static packet read(packet_run const& run, std::size_t index);
    void apply_fault(active_fault& one, packet& target, stream_block const& block);
    bool apply(active_fault const& one, packet& target, stream_block const& block);
    double draw_for(active_fault const& one, packet const& target);
    bool selects_packet(active_fault const& one, packet const& target);
    bool selects_block(active_fault const& one, std::uint64_t block_id) const;
    bool in_burst(active_fault const& one, packet const& target, stream_block const& block) const;
    void flip_bit(active_fault const& one, packet const& target, std::span<std::byte> bytes) const;
    void emit(packet& one, std::vector<datagram>& out);

    active_faults& faults_;
    std::mutex mutex_;
    std::deque<held_packet> held_;
    std::atomic<bool> holding_ = false;
    std::uint64_t resent_packets_ = 0;  ///< each resent packet gets a draw of its own, so repeated requests succeed
    fault_hits hits_;
};

}  // namespace camsim
