#include "active_faults.hpp"

#include <algorithm>

namespace camsim {

namespace {

constexpr bool is_of_packets(fault_kind kind) {
    return kind <= fault_kind::block_skip;
}

/// The finalizer of SplitMix64: neighbouring numbers become unrelated ones.
std::uint64_t scrambled(std::uint64_t value) {
    value += 0x9E37'79B9'7F4A'7C15U;
    value = (value ^ value >> 30U) * 0xBF58'476D'1CE4'E5B9U;
    value = (value ^ value >> 27U) * 0x94D0'49BB'1331'11EBU;
    return value ^ value >> 31U;
}

}  // namespace

void active_faults::add(std::uint32_t number, fault what) {
    std::scoped_lock const lock(mutex_);
    of_packets_ += is_of_packets(what.kind) ? 1U : 0U;
    auto const after = std::ranges::find_if(faults_, [=](active_fault const& one) { return one.number > number; });
    faults_.insert(after, {.number = number, .what = std::move(what)});
}

/// \return how often it has struck; empty when it is not in force
std::optional<std::uint64_t> active_faults::remove(std::uint32_t number) {
    std::scoped_lock const lock(mutex_);
    auto const found = std::ranges::find(faults_, number, &active_fault::number);
    if (found == faults_.end()) {
        return std::nullopt;
    }
    std::uint64_t const hits = found->hits;
    of_packets_ -= is_of_packets(found->what.kind) ? 1U : 0U;
    faults_.erase(found);
    return hits;
}

std::vector<active_fault> active_faults::list() const {
    std::scoped_lock const lock(mutex_);
    return faults_;
}

/// The latest one of a kind.
std::optional<fault> active_faults::find(fault_kind kind) const {
    std::scoped_lock const lock(mutex_);
    auto const found = std::ranges::find(faults_.rbegin(), faults_.rend(), kind,
                                         [](active_fault const& one) { return one.what.kind; });
    return found == faults_.rend() ? std::nullopt : std::optional(found->what);
}

/// A lot that hangs on nothing but the seed, the fault and what it is drawn for: the same packets are struck however
/// the stream is paced.
///
/// \return 0 up to, but not including, 1
double active_faults::lot(active_fault const& one, std::uint64_t first, std::uint64_t second) const {
    std::uint64_t const mixed =
        scrambled(scrambled(scrambled(seed_ ^ std::uint64_t{one.number} << 40U) ^ first) ^ second);
    return static_cast<double>(mixed >> 11U) * 0x1p-53;
}

/// Draws the next lot of a fault that strikes a share of what comes by.
bool active_faults::next_lot_strikes(active_fault& one) const {
    constexpr std::uint64_t in_turn = ~std::uint64_t{0};
    return lot(one, in_turn, one.drawn++) < one.what.number("share");
}

}  // namespace camsim
