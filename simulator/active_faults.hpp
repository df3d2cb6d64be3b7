#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "fault.hpp"

namespace camsim {

/// A fault that is in force.
struct active_fault {
    std::uint32_t number = 0;  ///< by which it is told from others
    fault what;
    std::uint64_t hits = 0;   ///< packets, blocks, answers or accesses that it has struck
    std::uint64_t drawn = 0;  ///< lots drawn one after the other
};

/// The faults in force. Any thread may look at them or change them.
class active_faults {
public:
    explicit active_faults(std::uint64_t seed) : seed_(seed) {}

    void add(std::uint32_t number, fault what);
    std::optional<std::uint64_t> remove(std::uint32_t number);
    std::vector<active_fault> list() const;
    std::optional<fault> find(fault_kind kind) const;
    /// Whether any fault of the stream's packets is in force; cheap enough to be asked for each packet.
    bool strike_packets() const { return of_packets_.load(std::memory_order_relaxed) != 0; }

    /// Calls `visit(active_fault&)` for each, in the order of their numbers, while nobody else has them.
    template <typename Visit>
    void for_each(Visit visit) {
        std::scoped_lock const lock(mutex_);
        for (active_fault& one : faults_) {
            visit(one);
        }
    }

    double lot(active_fault const& one, std::uint64_t first, std::uint64_t second = 0) const;
    bool next_lot_strikes(active_fault& one) const;

private:
    std::uint64_t const seed_;
    mutable std::mutex mutex_;
    std::vector<active_fault> faults_;
    std::atomic<unsigned> of_packets_ = 0;
};

}  // namespace camsim
