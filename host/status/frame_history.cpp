// SPDX-License-Identifier: MIT
#include "status/frame_history.hpp"

#include <algorithm>

namespace mediagrabber {

namespace {

std::int64_t difference(std::uint64_t later, std::uint64_t earlier) {
    return static_cast<std::int64_t>(later - earlier);
}

}  // namespace

frame_history::frame_history(std::size_t capacity) : records_(capacity) {}

void frame_history::on_frame(frame_lease const& frame) noexcept {
    std::lock_guard const lock(mutex_);
    records_[count_ % records_.size()] = frame.record();
    ++count_;
}

std::optional<frame_record> frame_history::newest() const {
    std::lock_guard const lock(mutex_);
    return count_ == 0 ? std::nullopt : std::optional(records_[(count_ - 1) % records_.size()]);
}

std::vector<frame_record> frame_history::after(std::uint64_t number, std::size_t max_records) const {
    std::vector<frame_record> found;
    std::lock_guard const lock(mutex_);
    std::uint64_t const available = std::min<std::uint64_t>({count_, records_.size(), max_records});
    found.reserve(available);
    for (std::uint64_t i = count_ - available; i < count_; ++i) {
        if (auto const& record = records_[i % records_.size()]; record.number > number) {
            found.push_back(record);
        }
    }
    return found;
}

std::optional<std::int64_t> announcement_error_us(frame_record const& record) {
    return record.announced_us ? std::optional(difference(record.timestamp_us, *record.announced_us)) : std::nullopt;
}

std::int64_t handover_delay_us(frame_record const& record) {
    return difference(record.handed_over_us, record.timestamp_us);
}

}  // namespace mediagrabber
