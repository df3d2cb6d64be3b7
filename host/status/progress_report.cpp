// SPDX-License-Identifier: MIT
#include "status/progress_report.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <cmath>

#include "base/host_log.hpp"
#include "base/patient_writer.hpp"

namespace mediagrabber {

namespace {

constexpr std::chrono::milliseconds terminal_interval{200};  ///< fast enough to look continuous
constexpr std::chrono::seconds line_interval{10};            ///< sparse enough for a log file
constexpr double bytes_per_megabyte = 1e6;

double rate_of(progress_figures const& figures) {
    return figures.handed_over > 1 && figures.seconds > 0.0
               ? static_cast<double>(figures.handed_over - 1) / figures.seconds
               : 0.0;
}

std::string megabytes(std::uint64_t bytes) {
    return fmt::format("{:.1f} MB", static_cast<double>(bytes) / bytes_per_megabyte);
}

std::string time_left(progress_figures const& figures) {
    double const rate = rate_of(figures);
    if (figures.wanted == 0 || rate == 0.0 || figures.handed_over >= figures.wanted) {
        return {};
    }
    return fmt::format(", {:.0f} s left", std::ceil(static_cast<double>(figures.wanted - figures.handed_over) / rate));
}

/// The causes that have occurred: a line of a terminal has no space for all of them all the time.
std::string dropped_text(progress_figures const& figures) {
    if (figures.dropped_queue_full == 0 && figures.dropped_write_error == 0) {
        return ", 0 dropped";
    }
    std::string text;
    if (figures.dropped_queue_full != 0) {
        text += fmt::format(", {} dropped (queue full)", figures.dropped_queue_full);
    }
    if (figures.dropped_write_error != 0) {
        text += fmt::format(", {} dropped (write errors)", figures.dropped_write_error);
    }
    return text;
}

}  // namespace

std::string progress_line(progress_figures const& figures) {
    std::string line = std::to_string(figures.saved);
    line += figures.wanted == 0 ? "" : fmt::format("/{}", figures.wanted);
    line += fmt::format(" frames saved, {:.1f} frames/s, ", rate_of(figures)) + megabytes(figures.bytes);
    line += dropped_text(figures);
    line += figures.empty_fetches == 0 ? "" : fmt::format(", {} fetches without a frame", figures.empty_fetches);
    return line + time_left(figures);
}

std::string summary_text(progress_figures const& figures, std::string const& directory) {
    return fmt::format(
        "{} frames {}, {:.3f} s, {:.2f} frames/s, {}, in {}\n"
        "dropped: {} (queue full), {} (write errors); {} fetches without a frame",
        figures.saved, figures.outcome, figures.seconds, rate_of(figures), megabytes(figures.bytes), directory,
        figures.dropped_queue_full, figures.dropped_write_error, figures.empty_fetches);
}

progress_report::progress_report(grab_progress const& progress, frame_exporter const& exporter, std::uint64_t wanted)
    : progress_(progress), exporter_(exporter), wanted_(wanted), terminal_(isatty(STDERR_FILENO) != 0), thread_([this] {
          run();
      }) {}

progress_report::~progress_report() {
    stop();
}

void progress_report::stop() {
    {
        std::lock_guard const lock(mutex_);
        stopped_ = true;
    }
    changed_.notify_all();
    std::lock_guard const joining(join_mutex_);
    if (thread_.joinable()) {
        thread_.join();
    }
}

progress_figures progress_report::figures() const {
    auto const counts = exporter_.count();
    auto const first = progress_.first_exported.load();
    auto const last = progress_.last_exported.load();
    return {.wanted = wanted_,
            .handed_over = progress_.handed_over,
            .saved = counts.saved,
            .dropped_queue_full = counts.dropped_queue_full,
            .dropped_write_error = counts.dropped_write_error + progress_.unusable,
            .empty_fetches = progress_.empty_fetches,
            .bytes = counts.bytes,
            .seconds = std::chrono::duration<double>(last - first).count()};
}

void progress_report::run() {
    std::unique_lock lock(mutex_);
    auto const interval = terminal_ ? std::chrono::milliseconds(terminal_interval) : line_interval;
    while (!changed_.wait_for(lock, interval, [this] { return stopped_; })) {
        lock.unlock();
        print(terminal_);
        lock.lock();
    }
    if (terminal_) {
        std::string const clear_line = "\r\033[K";
        write_patiently(STDERR_FILENO, clear_line, std::chrono::milliseconds(0));
    }
}

void progress_report::print(bool rewrite) const {
    std::string const line = progress_line(figures());
    if (!rewrite) {
        log_info(line);
        return;
    }
    std::string const text = "\r\033[K" + line;
    write_patiently(STDERR_FILENO, text, std::chrono::milliseconds(0));
}

}  // namespace mediagrabber
