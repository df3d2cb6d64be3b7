// SPDX-License-Identifier: MIT
#include "pretrigger/pretrigger_recorder.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "base/host_log.hpp"

namespace mediagrabber {

namespace {

constexpr std::uint32_t assumed_period_us = 10'000;  ///< 100 frames/s, while the plug-in has not published the period

/// \return for example "20261121T173318.123Z"
std::string utc_text(std::chrono::system_clock::time_point when) {
    auto const ms = std::chrono::floor<std::chrono::milliseconds>(when.time_since_epoch()).count();
    return fmt::format("{:%Y%m%dT%H%M%S}.{:03}Z", fmt::gmtime(static_cast<std::time_t>(ms / 1000)), ms % 1000);
}

std::string decimal(double value, int digits) {
    return fmt::format("{:.{}f}", value, digits);
}

std::filesystem::path writable_directory(std::filesystem::path directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (!error && access(directory.c_str(), W_OK | X_OK) != 0) {
        error = std::error_code(errno, std::generic_category());
    }
    if (error) {
        throw std::runtime_error("cannot write to the output directory: " + directory.string() + ": " +
                                 error.message());
    }
    return directory;
}

}  // namespace

pretrigger_recorder::pretrigger_recorder(settings chosen, std::function<std::uint32_t()> period_us,
                                         std::function<std::uint64_t()> lost)
    : chosen_(std::move(chosen)), period_us_(std::move(period_us)), lost_(std::move(lost)) {
    writable_directory(chosen_.directory);
    thread_ = std::jthread([this] { run(); });
}

pretrigger_recorder::~pretrigger_recorder() {
    finish();
}

/// The pixels are copied without the mutex: the slot of the next frame is read by no other thread.
std::size_t pretrigger_recorder::write(frame_view const& frame) {
    {
        std::lock_guard const lock(mutex_);
        make_space(frame.pixels.size());
    }
    std::memcpy(buffer_->pixels(next_).data(), frame.pixels.data(), frame.pixels.size());
    {
        std::lock_guard const lock(mutex_);
        buffer_->record(next_) = frame.record;
        ++next_;
    }
    trigger_if_lost();
    return 0;
}

/// Called with the mutex locked.
void pretrigger_recorder::make_space(std::size_t frame_bytes) {
    if (buffer_ == nullptr || frame_bytes > buffer_->frame_bytes()) {
        if (std::ranges::any_of(jobs_, [this](job const& one) { return one.buffer != buffer_; })) {
            throw std::runtime_error("the frame size has grown twice while earlier frames wait to be written");
        }
        std::uint32_t const known = period_us_();
        std::uint32_t const period = known == 0 ? assumed_period_us : known;
        auto const in_time = static_cast<std::size_t>(std::ceil(chosen_.time.count() * 1e6 / period)) + 1;
        buffer_ = std::make_shared<pretrigger_buffer>(frame_bytes, in_time + chosen_.spare_frames);
        if (next_ > selected_) {
            log_warning("the frame size has grown: " + std::to_string(next_ - std::max(first_, selected_)) +
                        " smaller frames in the pre-trigger buffer were discarded");
        }
        first_ = selected_ = next_ = 0;
        log_info("the pre-trigger buffer holds the last " + decimal(chosen_.time.count(), 1) + " s, " +
                 std::to_string(in_time) + " frames" + (known == 0 ? ", assuming 100 frames/s" : ""));
        return;
    }
    if (next_ - first_ < buffer_->capacity()) {
        return;
    }
    if (is_queued(first_)) {
        throw std::runtime_error("the pre-trigger buffer is full of frames that wait to be written");
    }
    ++first_;
}

bool pretrigger_recorder::is_queued(std::uint64_t number) const {
    return std::ranges::any_of(
        jobs_, [&](job const& one) { return one.buffer == buffer_ && number >= one.next && number < one.end; });
}

/// Called after the frame behind the loss is in the buffer. Losses within `time` of each other share one trigger.
void pretrigger_recorder::trigger_if_lost() {
    if (!chosen_.trigger_on_loss) {
        return;
    }
    std::uint64_t const lost = lost_();
    loss_pending_ = loss_pending_ || lost > std::exchange(lost_before_, lost);
    auto const now = clock::now();
    if (loss_pending_ && now >= next_automatic_) {
        loss_pending_ = false;
        next_automatic_ = now + std::chrono::duration_cast<clock::duration>(chosen_.time);
        trigger("frames were lost");
    }
}

std::optional<std::filesystem::path> pretrigger_recorder::trigger(std::string const& why, std::string const& name) {
    std::lock_guard const lock(mutex_);
    std::uint64_t const begin = buffer_ == nullptr ? next_ : first_within_time();
    if (begin == next_) {
        log_info(why + ": no recording, because no frame has arrived since the last trigger");
        return std::nullopt;
    }
    double const us = static_cast<double>(buffer_->record(next_ - 1).timestamp_us) -
                      static_cast<double>(buffer_->record(begin).timestamp_us);
    jobs_.push_back({.buffer = buffer_, .next = begin, .end = next_, .directory = new_directory(name)});
    selected_ = next_;
    log_info(why + ": writing " + std::to_string(next_ - begin) + " frames, " + decimal(us / 1e6, 3) + " s, to " +
             jobs_.back().directory.string());
    changed_.notify_all();
    return jobs_.back().directory;
}

/// Called with the mutex locked.
std::uint64_t pretrigger_recorder::first_within_time() const {
    auto const time_us = static_cast<std::uint64_t>(chosen_.time.count() * 1e6);
    std::uint64_t begin = std::max(first_, selected_);
    while (begin < next_ && buffer_->record(begin).timestamp_us + time_us < buffer_->record(next_ - 1).timestamp_us) {
        ++begin;
    }
    return begin;
}

/// Called with the mutex locked. Directories of the same millisecond or event are distinguished by a number.
std::filesystem::path pretrigger_recorder::new_directory(std::string const& chosen) {
    std::string const name = "pretrigger/" + (chosen.empty() ? utc_text(std::chrono::system_clock::now()) : chosen);
    std::filesystem::path directory = chosen_.directory / name;
    std::error_code ignored;
    for (int number = 2; std::filesystem::exists(directory, ignored) ||
                         std::ranges::any_of(jobs_, [&](job const& one) { return one.directory == directory; });
         ++number) {
        directory = chosen_.directory / (name + "-" + std::to_string(number));
    }
    return directory;
}

void pretrigger_recorder::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return !jobs_.empty() || finishing_; });
        if (jobs_.empty()) {
            return;
        }
        job& work = jobs_.front();  // a deque does not move it when others are appended
        lock.unlock();
        outcome const result = write_job(work);
        report(work, result);
        lock.lock();
        figures_.saved += result.saved;
        figures_.dropped_write_error += result.failed;
        figures_.bytes += result.bytes;
        figures_.recordings += result.saved > 0 ? 1 : 0;
        jobs_.pop_front();
    }
}

pretrigger_recorder::outcome pretrigger_recorder::write_job(job& work) {
    outcome result;
    try {
        auto const into = chosen_.make_recording(work.directory);
        while (work.next < work.end) {
            write_next(*into, work, result);
        }
    } catch (std::exception const& error) {
        result.failed += work.end - work.next;
        result.why = error.what();
    }
    return result;
}

/// A frame keeps its slot until it has been written or has failed; failed frames are not written again.
void pretrigger_recorder::write_next(frame_sink_like& into, job& work, outcome& result) {
    frame_record const record = work.buffer->record(work.next);
    auto const pixels = work.buffer->pixels(work.next).first(record.bytes());
    try {
        result.bytes += into.write({record, pixels});
        ++result.saved;
    } catch (std::exception const& error) {
        ++result.failed;
        result.why = result.why.empty() ? error.what() : result.why;
    }
    std::lock_guard const lock(mutex_);
    ++work.next;
}

void pretrigger_recorder::report(job const& work, outcome const& result) {
    std::string const saved = "saved " + std::to_string(result.saved) + " frames, " +
                              decimal(static_cast<double>(result.bytes) / 1e6, 1) + " MB, in " +
                              work.directory.string();
    if (result.failed == 0) {
        log_info(saved);
    } else {
        log_error(saved + "; " + std::to_string(result.failed) + " could not be written: " + result.why);
    }
}

pretrigger_recorder::figures pretrigger_recorder::finish() {
    {
        std::lock_guard const lock(mutex_);
        finishing_ = true;
    }
    changed_.notify_all();
    std::lock_guard const joining(join_mutex_);
    if (thread_.joinable()) {
        thread_.join();
    }
    std::lock_guard const lock(mutex_);
    return figures_;
}

}  // namespace mediagrabber
