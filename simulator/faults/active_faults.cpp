// SPDX-License-Identifier: MIT
#include "faults/active_faults.hpp"

#include <algorithm>

namespace camsim {

namespace {

bool is_stream_fault(fault_kind kind) {
    return definition_of(kind).domain == fault_domain::stream;
}

/// The finalizer of SplitMix64: consecutive inputs give unrelated outputs.
std::uint64_t scramble(std::uint64_t value) {
    value += 0x9E37'79B9'7F4A'7C15U;
    value = (value ^ value >> 30U) * 0xBF58'476D'1CE4'E5B9U;
    value = (value ^ value >> 27U) * 0x94D0'49BB'1331'11EBU;
    return value ^ value >> 31U;
}

}  // namespace

void active_faults::add(std::uint32_t number, fault what) {
    std::lock_guard const lock(mutex_);
    stream_fault_count_ += is_stream_fault(what.kind) ? 1U : 0U;
    auto const after = std::ranges::find_if(faults_, [=](active_fault const& one) { return one.number > number; });
    faults_.insert(after, {.number = number, .what = std::move(what)});
}

std::optional<std::uint64_t> active_faults::remove(std::uint32_t number) {
    std::lock_guard const lock(mutex_);
    auto const found = std::ranges::find(faults_, number, &active_fault::number);
    if (found == faults_.end()) {
        return std::nullopt;
    }
    std::uint64_t const hits = found->hits;
    stream_fault_count_ -= is_stream_fault(found->what.kind) ? 1U : 0U;
    faults_.erase(found);
    return hits;
}

std::vector<active_fault> active_faults::list() const {
    std::lock_guard const lock(mutex_);
    return faults_;
}

std::optional<fault> active_faults::find(fault_kind kind) const {
    std::lock_guard const lock(mutex_);
    auto const found = std::ranges::find(faults_.rbegin(), faults_.rend(), kind,
                                         [](active_fault const& one) { return one.what.kind; });
    return found == faults_.rend() ? std::nullopt : std::optional(found->what);
}

double active_faults::draw(active_fault const& one, std::uint64_t first, std::uint64_t second) const {
    std::uint64_t const mixed = scramble(scramble(scramble(seed_ ^ std::uint64_t{one.number} << 40U) ^ first) ^ second);
    return static_cast<double>(mixed >> 11U) * 0x1p-53;
}

bool active_faults::next_draw_selects(active_fault& one) const {
    constexpr std::uint64_t sequence = ~std::uint64_t{0};  // no block has this ID
    return draw(one, sequence, one.draws++) < one.what.number("probability");
}

}  // namespace camsim
