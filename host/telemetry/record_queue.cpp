#include "telemetry/record_queue.hpp"

namespace mediagrabber {

bool record_queue::push(frame_record const& record) {
    std::lock_guard const lock(mutex_);
    bool const was_empty = waiting_ == 0;
    records_[(first_ + waiting_) % records_.size()] = record;
    if (waiting_ < records_.size()) {
        ++waiting_;
    } else {
        first_ = (first_ + 1) % records_.size();
        ++dropped_;
    }
    return was_empty;
}

std::optional<frame_record> record_queue::pop() {
    std::lock_guard const lock(mutex_);
    if (waiting_ == 0) {
        return std::nullopt;
    }
    auto const record = records_[first_];
    first_ = (first_ + 1) % records_.size();
    --waiting_;
    return record;
}

void record_queue::give_up() {
    std::lock_guard const lock(mutex_);
    dropped_ += waiting_;
    waiting_ = 0;
}

std::size_t record_queue::waiting() const {
    std::lock_guard const lock(mutex_);
    return waiting_;
}

std::uint64_t record_queue::dropped() const {
    std::lock_guard const lock(mutex_);
    return dropped_;
}

}  // namespace mediagrabber
