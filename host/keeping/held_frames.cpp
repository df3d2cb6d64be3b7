#include "keeping/held_frames.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "host_log.hpp"

namespace mediagrabber {

namespace {

constexpr std::uint32_t assumed_period_us = 10'000;  ///< where the plug-in does not tell it

/// "20261121T173318.123Z"
std::string utc_text(std::chrono::system_clock::time_point when) {
    auto const ms = std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()).count();
    auto const seconds = static_cast<std::time_t>(ms / 1000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y%m%dT%H%M%S", &parts);
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%s.%03dZ", date.data(), static_cast<int>(ms % 1000));
    return text.data();
}

std::string decimal(double value, int digits) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", digits, value);
    return text.data();
}

std::filesystem::path usable(std::filesystem::path directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (!error && access(directory.c_str(), W_OK | X_OK) != 0) {
        error = std::error_code(errno, std::generic_category());
    }
    if (error) {
        throw std::runtime_error("the output directory can't be written to: " + directory.string() + ": " +
                                 error.message());
    }
    return directory;
}

}  // namespace

held_frames::held_frames(settings chosen, std::function<std::uint32_t()> period_us, std::function<std::uint64_t()> lost)
    : chosen_(std::move(chosen)), period_us_(std::move(period_us)), lost_(std::move(lost)) {
    usable(chosen_.directory);
    thread_ = std::thread([this] { run(); });
}

held_frames::~held_frames() {
    finish();
}

/// The pixels are copied without the mutex: nobody reads the frame to come, and nobody else writes one.
std::size_t held_frames::keep(frame_view const& frame) {
    {
        std::lock_guard const lock(mutex_);
        make_room(frame.pixels.size());
    }
    std::memcpy(memory_->pixels(next_).data(), frame.pixels.data(), frame.pixels.size());
    {
        std::lock_guard const lock(mutex_);
        memory_->record(next_) = frame.record;
        ++next_;
    }
    ask_when_lost();
    return 0;
}

/// Called with the mutex locked.
void held_frames::make_room(std::size_t frame_bytes) {
    if (memory_ == nullptr || frame_bytes > memory_->frame_bytes()) {
        if (std::ranges::any_of(jobs_, [this](job const& one) { return one.memory != memory_; })) {
            throw std::runtime_error("frames have become larger twice while others wait to be written");
        }
        std::uint32_t const known = period_us_();
        std::uint32_t const period = known == 0 ? assumed_period_us : known;
        auto const in_time = static_cast<std::size_t>(std::ceil(chosen_.time.count() * 1e6 / period)) + 1;
        memory_ = std::make_shared<held_memory>(frame_bytes, in_time + chosen_.spare_frames);
        if (next_ > asked_) {
            log_warning("frames are larger now; " + std::to_string(next_ - std::max(first_, asked_)) +
                        " smaller ones that were held are gone");
        }
        first_ = asked_ = next_ = 0;
        log_info("the last " + decimal(chosen_.time.count(), 1) + " s are held in memory, " + std::to_string(in_time) +
                 " frames" + (known == 0 ? ", for 100 a second" : ""));
        return;
    }
    if (next_ - first_ < memory_->capacity()) {
        return;
    }
    if (is_waiting(first_)) {
        throw std::runtime_error("all frames that are held in memory wait to be written");
    }
    ++first_;
}

bool held_frames::is_waiting(std::uint64_t number) const {
    return std::ranges::any_of(
        jobs_, [&](job const& one) { return one.memory == memory_ && number >= one.next && number < one.end; });
}

/// The frame after a loss is written with those before it. Losses that follow one another closely are kept together.
void held_frames::ask_when_lost() {
    if (!chosen_.keep_when_lost) {
        return;
    }
    std::uint64_t const lost = lost_();
    loss_waits_ = loss_waits_ || lost > std::exchange(lost_before_, lost);
    auto const now = clock::now();
    if (loss_waits_ && now >= next_automatic_) {
        loss_waits_ = false;
        next_automatic_ = now + std::chrono::duration_cast<clock::duration>(chosen_.time);
        ask("frames were lost");
    }
}

void held_frames::ask(std::string const& why) {
    std::lock_guard const lock(mutex_);
    std::uint64_t const begin = memory_ == nullptr ? next_ : first_within_time();
    if (begin == next_) {
        log_info(why + ": there is nothing to keep, no frame has come since the last time");
        return;
    }
    double const us = static_cast<double>(memory_->record(next_ - 1).timestamp_us) -
                      static_cast<double>(memory_->record(begin).timestamp_us);
    jobs_.push_back({.memory = memory_, .next = begin, .end = next_, .directory = new_directory()});
    asked_ = next_;
    log_info(why + ": keeping " + std::to_string(next_ - begin) + " frames, " + decimal(us / 1e6, 3) + " s, in " +
             jobs_.back().directory.string());
    changed_.notify_all();
}

/// Called with the mutex locked.
std::uint64_t held_frames::first_within_time() const {
    auto const time_us = static_cast<std::uint64_t>(chosen_.time.count() * 1e6);
    std::uint64_t begin = std::max(first_, asked_);
    while (begin < next_ && memory_->record(begin).timestamp_us + time_us < memory_->record(next_ - 1).timestamp_us) {
        ++begin;
    }
    return begin;
}

/// Called with the mutex locked. Two within a millisecond are told apart by a number.
std::filesystem::path held_frames::new_directory() {
    std::string const name = "kept-" + utc_text(std::chrono::system_clock::now());
    std::filesystem::path directory = chosen_.directory / name;
    std::error_code ignored;
    for (int number = 2; std::filesystem::exists(directory, ignored) ||
                         std::ranges::any_of(jobs_, [&](job const& one) { return one.directory == directory; });
         ++number) {
        directory = chosen_.directory / (name + "-" + std::to_string(number));
    }
    return directory;
}

void held_frames::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return !jobs_.empty() || finishing_; });
        if (jobs_.empty()) {
            return;
        }
        job& work = jobs_.front();  // others come behind it, which moves none
        lock.unlock();
        outcome const result = write(work);
        report(work, result);
        lock.lock();
        figures_.kept += result.kept;
        figures_.not_written += result.refused;
        figures_.bytes += result.bytes;
        figures_.recordings += result.kept > 0 ? 1 : 0;
        jobs_.pop_front();
    }
}

held_frames::outcome held_frames::write(job& work) {
    outcome result;
    try {
        auto const into = chosen_.make_recording(work.directory);
        while (work.next < work.end) {
            write_next(*into, work, result);
        }
    } catch (std::exception const& error) {
        result.refused += work.end - work.next;
        result.why = error.what();
    }
    return result;
}

/// A frame keeps its place in memory until it is written. Those that could not be are given up: others come.
void held_frames::write_next(frame_sink_like& into, job& work, outcome& result) {
    frame_record const record = work.memory->record(work.next);
    auto const pixels = work.memory->pixels(work.next).first(record.bytes());
    try {
        result.bytes += into.keep({record, pixels});
        ++result.kept;
    } catch (std::exception const& error) {
        ++result.refused;
        result.why = result.why.empty() ? error.what() : result.why;
    }
    std::lock_guard const lock(mutex_);
    ++work.next;
}

void held_frames::report(job const& work, outcome const& result) {
    std::string const kept = "kept " + std::to_string(result.kept) + " frames, " +
                             decimal(static_cast<double>(result.bytes) / 1e6, 1) + " MB, in " + work.directory.string();
    if (result.refused == 0) {
        log_info(kept);
    } else {
        log_error(kept + "; " + std::to_string(result.refused) + " could not be written: " + result.why);
    }
}

held_frames::figures held_frames::finish() {
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
