#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <span>
#include <vector>

#include "active_faults.hpp"
#include "stream_block.hpp"
#include "truth_log.hpp"

namespace camsim {

/// What the faults in force make of the packets that leave: a filter that sees bytes. Blocks come one after the other;
/// packets that are sent again may come in between, from another thread.
class stream_faults {
public:
    using datagram = std::vector<std::byte>;

    explicit stream_faults(active_faults& faults) : faults_(faults) {}

    /// Whether there is anything to do; packets that were held back have to leave even when the fault is over.
    bool any() const { return faults_.strike_packets() || holds_back_.load(std::memory_order_relaxed); }
    bool skips(std::uint64_t block_id);
    std::vector<datagram> filter(packet_run const& run, stream_block const& block);
    fault_hits take_hits();

private:
    struct packet {
        datagram bytes;
        gvsp::packet_header header;
        std::size_t header_bytes = 0;
        bool resent = false;
        bool lost = false;
        unsigned copies = 1;
        std::uint64_t held_for = 0;  ///< packets that are to overtake it

        std::span<std::byte> content() { return std::span(bytes).subspan(header_bytes); }
    };
    struct held_packet {
        datagram bytes;
        std::uint64_t left;
    };

    static packet read(packet_run const& run, std::size_t index);
    void strike(active_fault& one, packet& target, stream_block const& block);
    bool apply(active_fault const& one, packet& target, stream_block const& block);
    double lot_for(active_fault const& one, packet const& target);
    bool strikes_packet(active_fault const& one, packet const& target);
    bool strikes_block(active_fault const& one, std::uint64_t block_id) const;
    bool lose_burst(active_fault const& one, packet& target, stream_block const& block) const;
    void flip_bit(active_fault const& one, packet const& target, std::span<std::byte> bytes) const;
    void pass(packet& one, std::vector<datagram>& out);

    active_faults& faults_;
    std::mutex mutex_;
    std::deque<held_packet> held_;
    std::atomic<bool> holds_back_ = false;
    std::uint64_t resent_packets_ = 0;  ///< each of them draws lots of its own
    fault_hits hits_;
};

}  // namespace camsim
