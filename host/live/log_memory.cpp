#include "live/log_memory.hpp"

#include <charconv>
#include <chrono>

namespace mediagrabber {

namespace {

constexpr std::size_t longest_camera_report = 32;  ///< lines

std::uint64_t now_us() {
    auto const since_1970 = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(since_1970).count());
}

/// The number that stands before words in a text; 0 when they are not there.
std::uint64_t number_before(std::string_view text, std::string_view words) {
    auto const at = text.find(words);
    auto const first = at == text.npos || at == 0 ? text.npos : text.find_last_not_of("0123456789", at - 1);
    std::uint64_t number = 0;
    if (at != text.npos) {
        std::from_chars(text.data() + (first == text.npos ? 0 : first + 1), text.data() + at, number);
    }
    return number;
}

bool contains(std::string_view text, std::string_view words) {
    return text.find(words) != text.npos;
}

}  // namespace

plugin_line read_plugin_line(std::string_view line) {
    constexpr std::string_view letters = "ewid";
    auto const end = line.find("]: ");
    if (!line.starts_with('[') || end == line.npos || end < 2 || line[end - 2] != ':') {
        return {.severity = log_memory::level::info, .text = line};
    }
    auto const letter = letters.find(line[end - 1]);
    if (letter == letters.npos) {
        return {.severity = log_memory::level::info, .text = line};
    }
    return {.severity = static_cast<log_memory::level>(letter + 1), .text = line.substr(end + 3)};
}

void log_memory::add(level severity, std::string_view text) {
    std::lock_guard const lock(mutex_);
    if (lines_.size() == capacity_) {
        lines_.pop_front();
    }
    lines_.push_back({.number = ++last_number_, .time_us = now_us(), .severity = severity, .text = std::string(text)});
    add_up(text);
    listen_for_camera(text);
}

void log_memory::add_up(std::string_view text) {
    counts_.budgets_exceeded += contains(text, "time budget is over") ? 1U : 0U;
    counts_.drops_told += contains(text, "Frames Drop trigger") ? 1U : 0U;
    counts_.packets_missing += number_before(text, " packets missing for good");
    counts_.packets_asked_again +=
        number_before(text, " asked for again") + number_before(text, " packets asked for again");
}

/// The plug-in reports every camera that it finds, and last the one that it uses.
void log_memory::listen_for_camera(std::string_view text) {
    if (is_camera_heading(text)) {
        report_.clear();
        report_lines_ = longest_camera_report;
    }
    if (report_lines_ != 0) {
        --report_lines_;
        report_ += std::string(text) + "\n";
    }
}

std::vector<log_memory::line> log_memory::after(std::uint64_t number) const {
    std::lock_guard const lock(mutex_);
    std::vector<line> found;
    for (auto const& one : lines_) {
        if (one.number > number) {
            found.push_back(one);
        }
    }
    return found;
}

log_memory::counts log_memory::count() const {
    std::lock_guard const lock(mutex_);
    return counts_;
}

std::vector<reported_camera::property> log_memory::camera() const {
    std::lock_guard const lock(mutex_);
    auto const cameras = find_reported_cameras(report_);
    return cameras.empty() ? std::vector<reported_camera::property>() : cameras.front().properties;
}

}  // namespace mediagrabber
