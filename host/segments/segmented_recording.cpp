// SPDX-License-Identifier: MIT
#include "segments/segmented_recording.hpp"

#include <exception>
#include <utility>

#include "base/host_log.hpp"
#include "segments/recording_place.hpp"

namespace mediagrabber {

namespace fs = std::filesystem;

segmented_recording::segmented_recording(settings chosen, std::chrono::system_clock::time_point start,
                                         std::function<void()> finished)
    : chosen_(std::move(chosen)), finished_(std::move(finished)), current_(make_segment(start)) {
    contents_.interval = interval_of(static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(start.time_since_epoch()).count()));
}

segmented_recording::~segmented_recording() {
    fs::path const last = current_->directory();
    current_.reset();
    finish(last);
}

fs::path segmented_recording::directory() const {
    std::lock_guard const lock(mutex_);
    return current_->directory();
}

std::size_t segmented_recording::write(frame_view const& frame) {
    if (is_full(frame.record)) {
        begin_segment(frame.record);
    }
    std::size_t const bytes = current_->write(frame);
    if (contents_.summary.frames == 0) {
        contents_.summary.first_frame = frame.record.number;
        contents_.summary.first_timestamp_us = frame.record.timestamp_us;
    }
    ++contents_.summary.frames;
    contents_.summary.bytes += bytes;
    contents_.summary.last_frame = frame.record.number;
    contents_.summary.last_timestamp_us = frame.record.timestamp_us;
    return bytes;
}

std::uint64_t segmented_recording::interval_of(std::uint64_t timestamp_us) const {
    return chosen_.max_time.count() == 0 ? 0 : timestamp_us / static_cast<std::uint64_t>(chosen_.max_time.count());
}

bool segmented_recording::is_full(frame_record const& next) const {
    return (chosen_.max_frames != 0 && contents_.summary.frames >= chosen_.max_frames) ||
           interval_of(next.timestamp_us) != contents_.interval;
}

std::unique_ptr<recording> segmented_recording::make_segment(std::chrono::system_clock::time_point start) const {
    return std::make_unique<recording>(recording_place(chosen_.directory, start), chosen_.format);
}

void segmented_recording::begin_segment(frame_record const& first) {
    std::unique_ptr<recording> next;
    try {
        next = make_segment(std::chrono::system_clock::time_point(std::chrono::microseconds(first.timestamp_us)));
    } catch (std::exception const& error) {
        if (!std::exchange(failing_, true)) {
            log_warning("the recording goes on in " + current_->directory().string() +
                        ", because no new segment can be created: " + error.what());
        }
        return;
    }
    failing_ = false;
    {
        std::lock_guard const lock(mutex_);
        std::swap(current_, next);
    }
    fs::path const full = next->directory();
    next.reset();  // closes its files
    finish(full);
    contents_ = {.interval = interval_of(first.timestamp_us), .summary = {}};
}

/// \param segment  whose files are closed
void segmented_recording::finish(fs::path const& segment) {
    if (!has_limits()) {
        return;
    }
    if (contents_.summary.frames != 0) {
        write_summary(segment, contents_.summary);
    }
    finished_();
}

}  // namespace mediagrabber
