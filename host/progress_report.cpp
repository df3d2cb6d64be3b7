#include "progress_report.hpp"

#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>

#include "host_log.hpp"

namespace mediagrabber {

namespace {

constexpr std::chrono::milliseconds terminal_interval{200};
constexpr std::chrono::seconds line_interval{10};
constexpr double bytes_per_megabyte = 1e6;

template <typename... arguments>
std::string formatted(char const* format, arguments... values) {
    std::array<char, 256> text{};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(text.data(), text.size(), format, values...);
#pragma GCC diagnostic pop
    return text.data();
}

double rate_of(progress_figures const& figures) {
    return figures.handed_over > 1 && figures.seconds > 0.0
               ? static_cast<double>(figures.handed_over - 1) / figures.seconds
               : 0.0;
}

std::string megabytes(std::uint64_t bytes) {
    return formatted("%.1f MB", static_cast<double>(bytes) / bytes_per_megabyte);
}

std::string time_left(progress_figures const& figures) {
    double const rate = rate_of(figures);
    if (figures.wanted == 0 || rate == 0.0 || figures.handed_over >= figures.wanted) {
        return {};
    }
    double const seconds = std::ceil(static_cast<double>(figures.wanted - figures.handed_over) / rate);
    return formatted(", %.0f s left", seconds);
}

}  // namespace

std::string progress_line(progress_figures const& figures) {
    std::string line = std::to_string(figures.kept);
    line += figures.wanted == 0 ? "" : "/" + std::to_string(figures.wanted);
    line += formatted(" frames, %.1f frames/s, ", rate_of(figures)) + megabytes(figures.bytes) + ", " +
            std::to_string(figures.overrun + figures.not_written) + " lost";
    line += figures.empty_fetches == 0 ? "" : ", " + std::to_string(figures.empty_fetches) + " empty fetches";
    return line + time_left(figures);
}

std::string summary_text(progress_figures const& figures, std::string const& directory) {
    return formatted("%llu frames %s, %.3f s, %.2f frames/s, ", static_cast<unsigned long long>(figures.kept),
                     figures.kept_where.c_str(), figures.seconds, rate_of(figures)) +
           megabytes(figures.bytes) + ", in " + directory + "\n" + "lost: " + std::to_string(figures.overrun) +
           " overrun, " + std::to_string(figures.not_written) + " not written; " +
           std::to_string(figures.empty_fetches) + " fetches without a frame";
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
    std::lock_guard const lock(join_mutex_);
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
            .kept = counts.kept,
            .overrun = counts.overrun,
            .not_written = counts.refused + progress_.unusable,
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
        std::string const wipe = "\r\033[K";
        [[maybe_unused]] auto const written = write(STDERR_FILENO, wipe.data(), wipe.size());
    }
}

void progress_report::print(bool rewritten) const {
    std::string const line = progress_line(figures());
    if (!rewritten) {
        log_info(line);
        return;
    }
    std::string const text = "\r\033[K" + line;
    [[maybe_unused]] auto const written = write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace mediagrabber
