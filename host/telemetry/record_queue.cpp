// SPDX-License-Identifier: MIT
#include "telemetry/record_queue.hpp"

namespace mediagrabber {

bool record_queue::push(frame_record const& record) {
    std::lock_guard const lock(mutex_);
    bool const was_empty = size_ == 0;
    records_[(first_ + size_) % records_.size()] = record;
    if (size_ < records_.size()) {
        ++size_;
    } else {
        first_ = (first_ + 1) % records_.size();
        ++dropped_;
    }
    return was_empty;
}

std::optional<frame_record> record_queue::pop() {
    std::lock_guard const lock(mutex_);
    if (size_ == 0) {
        return std::nullopt;
    }
    auto const record = records_[first_];
    first_ = (first_ + 1) % records_.size();
    --size_;
    return record;
}

void record_queue::drop_all() {
    std::lock_guard const lock(mutex_);
    dropped_ += size_;
    size_ = 0;
}

std::size_t record_queue::size() const {
    std::lock_guard const lock(mutex_);
    return size_;
}

std::uint64_t record_queue::dropped() const {
    std::lock_guard const lock(mutex_);
    return dropped_;
}

}  // namespace mediagrabber
