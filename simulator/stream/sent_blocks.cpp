// SPDX-License-Identifier: MIT
#include "stream/sent_blocks.hpp"

#include <algorithm>

namespace camsim {

void sent_blocks::begin(stream_block const& block) {
    std::lock_guard const lock(mutex_);
    entries_.push_back({block, 0});
    if (entries_.size() > capacity_) {
        entries_.pop_front();
    }
}

void sent_blocks::advance(std::uint32_t packets_sent) {
    std::lock_guard const lock(mutex_);
    if (!entries_.empty()) {
        entries_.back().packets_sent = packets_sent;
    }
}

void sent_blocks::clear() {
    std::lock_guard const lock(mutex_);
    entries_.clear();
}

std::optional<sent_blocks::entry> sent_blocks::find(std::uint64_t block_id, gvsp::id_mode ids) const {
    std::lock_guard const lock(mutex_);
    auto const found = std::ranges::find_if(
        entries_, [&](entry const& one) { return one.block.block_id == block_id && one.block.ids == ids; });
    return found == entries_.end() ? std::nullopt : std::optional(*found);
}

}  // namespace camsim
