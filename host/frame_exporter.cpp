#include "frame_exporter.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace mediagrabber {

frame_exporter::frame_exporter(frame_sink_like& sink, std::size_t capacity,
                               std::function<void(frame_record const&, std::string const&)> on_failure,
                               std::vector<frame_watcher_like*> watchers)
    : sink_(sink), on_failure_(std::move(on_failure)), watchers_(std::move(watchers)), ring_(capacity), thread_([this] {
          run();
      }) {}

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
    if (pixels_needed() && !take_along(*memory, record, spare, into_spare)) {
        return;
    }
    {
        std::lock_guard const lock(mutex_);
        ring_[(first_ + waiting_) % ring_.size()] = frame_lease(memory, spare, offset, record);
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

bool frame_exporter::pixels_needed() const {
    return sink_.needs_pixels() ||
           std::any_of(watchers_.begin(), watchers_.end(), [](auto const* watcher) { return watcher->needs_pixels(); });
}

void frame_exporter::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return waiting_ > 0 || finishing_; });
        if (waiting_ == 0) {
            return;
        }
        // The frame keeps its place in the queue until it is kept: what waits and what is written is one limit.
        frame_lease const& frame = ring_[first_];
        lock.unlock();
        for (auto* const watcher : watchers_) {
            watcher->see(frame);
        }
        keep(frame);
        ring_[first_] = {};
        lock.lock();
        first_ = (first_ + 1) % ring_.size();
        --waiting_;
    }
}

void frame_exporter::keep(frame_lease const& frame) {
    try {
        bytes_ += sink_.keep(frame.view());
        ++kept_;
    } catch (std::exception const& error) {
        ++refused_;
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
    return {.kept = kept_, .overrun = overrun_, .refused = refused_, .bytes = bytes_};
}

}  // namespace mediagrabber
