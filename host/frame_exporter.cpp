#include "frame_exporter.hpp"

#include <cstring>
#include <utility>

namespace mediagrabber {

frame_exporter::frame_exporter(frame_sink_like& sink, std::size_t capacity,
                               std::function<void(frame_record const&, std::string const&)> on_failure)
    : sink_(sink), on_failure_(std::move(on_failure)), ring_(capacity), thread_([this] { run(); }) {}

frame_exporter::~frame_exporter() {
    finish();
}

void frame_exporter::export_slot(std::shared_ptr<frame_memory> const& memory, std::size_t slot, std::size_t offset,
                                 frame_record const& record) {
    hand_over(memory, offset, record, [&](std::size_t spare) { memory->exchange(slot, spare); });
}

void frame_exporter::export_copy(std::shared_ptr<frame_memory> const& memory, void const* frame,
                                 frame_record const& record) {
    hand_over(memory, 0, record,
              [&](std::size_t spare) { std::memcpy(memory->spare(spare).data(), frame, record.bytes()); });
}

/// Only this thread makes the queue longer, so room that is there stays there while the frame is brought.
template <typename bring>
void frame_exporter::hand_over(std::shared_ptr<frame_memory> const& memory, std::size_t offset,
                               frame_record const& record, bring&& into_spare) {
    if (!has_room()) {
        ++overrun_;
        return;
    }
    std::optional<std::size_t> spare;
    if (sink_.needs_pixels() && !take_along(*memory, record, spare, into_spare)) {
        return;
    }
    {
        std::lock_guard const lock(mutex_);
        auto& place = ring_[(first_ + waiting_) % ring_.size()];
        place.memory = memory;
        place.spare = spare;
        place.offset = offset;
        place.record = record;
        ++waiting_;
    }
    changed_.notify_one();
}

/// Brings the pixels to a spare. \return false when the frame is lost, and counted
template <typename bring>
bool frame_exporter::take_along(frame_memory& memory, frame_record const& record, std::optional<std::size_t>& spare,
                                bring&& into_spare) {
    spare = memory.take_spare();
    if (!spare) {
        ++overrun_;
        return false;
    }
    try {
        into_spare(*spare);
        return true;
    } catch (std::exception const& error) {
        memory.give_back(*spare);
        ++refused_;
        on_failure_(record, error.what());
        return false;
    }
}

bool frame_exporter::has_room() const {
    std::lock_guard const lock(mutex_);
    return !finishing_ && waiting_ < ring_.size();
}

void frame_exporter::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return waiting_ > 0 || finishing_; });
        if (waiting_ == 0) {
            return;
        }
        // The frame keeps its place in the queue until it is kept: what waits and what is written is one limit.
        waiting_frame const frame = ring_[first_];
        lock.unlock();
        keep(frame);
        if (frame.spare) {
            frame.memory->give_back(*frame.spare);
        }
        lock.lock();
        ring_[first_].memory.reset();
        first_ = (first_ + 1) % ring_.size();
        --waiting_;
    }
}

void frame_exporter::keep(waiting_frame const& frame) {
    std::span<std::byte const> pixels;
    if (frame.spare) {
        pixels = frame.memory->spare(*frame.spare).subspan(frame.offset, frame.record.bytes());
    }
    try {
        bytes_ += sink_.keep({frame.record, pixels});
        ++kept_;
    } catch (std::exception const& error) {
        ++refused_;
        on_failure_(frame.record, error.what());
    }
}

void frame_exporter::finish() {
    {
        std::lock_guard const lock(mutex_);
        finishing_ = true;
    }
    changed_.notify_one();
    std::lock_guard const lock(join_mutex_);
    if (thread_.joinable()) {
        thread_.join();
    }
}

frame_exporter::counts frame_exporter::count() const {
    return {.kept = kept_, .overrun = overrun_, .refused = refused_, .bytes = bytes_};
}

}  // namespace mediagrabber
