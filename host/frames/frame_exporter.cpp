// SPDX-License-Identifier: MIT
#include "frames/frame_exporter.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace mediagrabber {

frame_exporter::frame_exporter(frame_sink_like& sink, std::size_t capacity,
                               std::function<void(frame_record const&, std::string const&)> on_failure,
                               std::vector<frame_observer_like*> observers)
    : sink_(sink),
      on_failure_(std::move(on_failure)),
      observers_(std::move(observers)),
      ring_(capacity),
      thread_([this] { run(); }) {}

frame_exporter::~frame_exporter() {
    finish();
}

void frame_exporter::export_slot(std::shared_ptr<buffer_pool> const& memory, std::size_t slot, std::size_t offset,
                                 frame_record const& record) {
    enqueue(memory, offset, record, [&](std::size_t spare) { memory->exchange(slot, spare); });
}

void frame_exporter::export_copy(std::shared_ptr<buffer_pool> const& memory, void const* frame,
                                 frame_record const& record) {
    enqueue(memory, 0, record,
            [&](std::size_t spare) { std::memcpy(memory->spare(spare).data(), frame, record.bytes()); });
}

/// Only the calling thread adds to the queue, so free capacity stays free while the frame is moved.
template <typename copier>
void frame_exporter::enqueue(std::shared_ptr<buffer_pool> const& memory, std::size_t offset, frame_record const& record,
                             copier&& into_spare) {
    if (!has_capacity()) {
        ++dropped_queue_full_;
        return;
    }
    std::optional<std::size_t> spare;
    if (pixels_needed() && !fill_spare(*memory, record, spare, into_spare)) {
        return;
    }
    {
        std::lock_guard const lock(mutex_);
        ring_[(first_ + queued_) % ring_.size()] = frame_lease(memory, spare, offset, record);
        ++queued_;
    }
    changed_.notify_one();
}

/// Moves the pixels to a spare. \return false if the frame was dropped, and counted
template <typename copier>
bool frame_exporter::fill_spare(buffer_pool& memory, frame_record const& record, std::optional<std::size_t>& spare,
                                copier&& into_spare) {
    spare = memory.acquire();
    if (!spare) {
        ++dropped_queue_full_;
        return false;
    }
    try {
        into_spare(*spare);
        return true;
    } catch (std::exception const& error) {
        memory.release(*spare);
        ++dropped_write_error_;
        on_failure_(record, error.what());
        return false;
    }
}

bool frame_exporter::has_capacity() const {
    std::lock_guard const lock(mutex_);
    return !finishing_ && queued_ < ring_.size();
}

bool frame_exporter::pixels_needed() const {
    return sink_.needs_pixels() || std::any_of(observers_.begin(), observers_.end(),
                                               [](auto const* observer) { return observer->needs_pixels(); });
}

void frame_exporter::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return queued_ > 0 || finishing_; });
        if (queued_ == 0) {
            return;
        }
        // The frame stays in the queue until it is saved, so that queued frames and the one being saved have one limit.
        frame_lease const& frame = ring_[first_];
        lock.unlock();
        for (auto* const observer : observers_) {
            observer->on_frame(frame);
        }
        save(frame);
        ring_[first_] = {};
        lock.lock();
        first_ = (first_ + 1) % ring_.size();
        --queued_;
    }
}

void frame_exporter::save(frame_lease const& frame) {
    try {
        bytes_ += sink_.write(frame.view());
        ++saved_;
    } catch (std::exception const& error) {
        ++dropped_write_error_;
        on_failure_(frame.record(), error.what());
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
    return {.saved = saved_,
            .dropped_queue_full = dropped_queue_full_,
            .dropped_write_error = dropped_write_error_,
            .bytes = bytes_};
}

}  // namespace mediagrabber
