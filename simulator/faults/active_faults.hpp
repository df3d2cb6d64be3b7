// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "faults/fault.hpp"

namespace camsim {

/// A fault that is active, with its counters.
struct active_fault {
    std::uint32_t number = 0;  ///< identifies it on the control socket; unique while the camera runs
    fault what;
    std::uint64_t hits = 0;   ///< packets, blocks, ACKs or register accesses affected so far
    std::uint64_t draws = 0;  ///< random draws made so far by next_draw_selects()
};

/// The faults that are active now, shared by the filters that apply them.
///
/// fault_timeline adds and removes faults; the filters of the stream, the control channel and the registers visit them
/// for each packet, ACK or access. All members may be called by any thread; one mutex guards the list. A visitor runs
/// with that mutex held, so it must not call members that lock (draw() and next_draw_selects() do not).
///
/// Random decisions are reproducible: they depend on the seed, the fault's number, and the block, packet or ACK that
/// they concern.
class active_faults {
public:
    explicit active_faults(std::uint64_t seed) : seed_(seed) {}

    void add(std::uint32_t number, fault what);

    /// \return how often the fault was applied; empty if it is not active
    std::optional<std::uint64_t> remove(std::uint32_t number);

    /// \return a copy of the active faults, by ascending number
    std::vector<active_fault> list() const;

    /// \return the latest active fault of a kind; empty if there is none
    std::optional<fault> find(fault_kind kind) const;

    /// Whether a fault of the stream is active. Lock-free, because the sender calls it for each run of packets.
    bool any_stream_fault() const { return stream_fault_count_.load(std::memory_order_relaxed) != 0; }

    /// Calls `visit(active_fault&)` for each fault, by ascending number, with the list locked.
    template <typename visitor>
    void for_each(visitor visit) {
        std::lock_guard const lock(mutex_);
        for (active_fault& one : faults_) {
            visit(one);
        }
    }

    /// A random number that depends on the seed, the fault's number, `first` and `second` only. The same packets are
    /// therefore affected regardless of pacing and threads.
    /// \return 0 up to, but not including, 1
    double draw(active_fault const& one, std::uint64_t first, std::uint64_t second = 0) const;

    /// Makes the next random decision of a fault that has a `probability`. For ACKs, which have no number of their own.
    bool next_draw_selects(active_fault& one) const;

private:
    std::uint64_t const seed_;
    mutable std::mutex mutex_;
    std::vector<active_fault> faults_;
    std::atomic<unsigned> stream_fault_count_ = 0;
};

}  // namespace camsim
