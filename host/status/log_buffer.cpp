// SPDX-License-Identifier: MIT
#include "status/log_buffer.hpp"

#include <charconv>
#include <chrono>
#include <utility>
#include "mg_log_records.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t max_report_lines = 32;  ///< a camera report has about 20

std::uint64_t now_us() {
    auto const since_1970 = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(since_1970).count());
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != text.npos;
}

/// \return the number if `text` is a decimal number and nothing else, else 0
std::uint64_t number_in(std::string_view text) {
    std::uint64_t number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? number : 0;
}

/// Adds one `key=value` pair of openpv's stream statistics; unknown keys are ignored.
void add_pair(log_buffer::counts& to, std::string_view pair) {
    constexpr std::pair<std::string_view, std::uint64_t log_buffer::counts::*> known[] = {
        {mg_log_records::packets_resend_requested, &log_buffer::counts::packets_resend_requested},
        {mg_log_records::packets_resent, &log_buffer::counts::packets_resent},
        {mg_log_records::packets_lost, &log_buffer::counts::packets_lost},
        {mg_log_records::packets_dropped_by_socket, &log_buffer::counts::packets_dropped_by_socket},
    };
    auto const equals = pair.find('=');
    if (equals == pair.npos) {
        return;
    }
    for (auto const& [key, count] : known) {
        if (pair.substr(0, equals) == key) {
            to.*count += number_in(pair.substr(equals + 1));
        }
    }
}

/// The tag follows the sender's prefix, as a separate word; the pairs follow up to the line end.
void add_stream_statistics(log_buffer::counts& to, std::string_view text) {
    constexpr std::string_view tag = mg_log_records::stream_tag;
    auto const at = text.find(tag);
    if (at == text.npos || (at != 0 && text[at - 1] != ' ')) {
        return;
    }
    text.remove_prefix(at + tag.size());
    while (!text.empty()) {
        auto const end = text.find(' ');
        add_pair(to, text.substr(0, end));
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
    }
}

}  // namespace

plugin_line read_plugin_line(std::string_view line) {
    constexpr std::string_view letters = "ewid";
    auto const end = line.find("]: ");
    if (!line.starts_with('[') || end == line.npos || end < 2 || line[end - 2] != ':') {
        return {.severity = log_buffer::level::info, .text = line, .is_message = false};
    }
    auto const letter = letters.find(line[end - 1]);
    if (letter == letters.npos) {
        return {.severity = log_buffer::level::info, .text = line, .is_message = false};
    }
    return {.severity = static_cast<log_buffer::level>(letter + 1), .text = line.substr(end + 3), .is_message = true};
}

void log_buffer::add(level severity, std::string_view text) {
    std::lock_guard const lock(mutex_);
    if (lines_.size() == capacity_) {
        lines_.pop_front();
    }
    lines_.push_back({.number = ++last_number_, .time_us = now_us(), .severity = severity, .text = std::string(text)});
    counts_.budgets_exceeded += contains(text, mg_log_records::budget_exceeded) ? 1U : 0U;
    counts_.drop_reports += contains(text, mg_log_records::drop_report) ? 1U : 0U;
    add_stream_statistics(counts_, text);
    collect_camera_report(text);
}

/// The plug-in reports every camera that it finds, and the one that it uses last: each heading starts a new report.
void log_buffer::collect_camera_report(std::string_view text) {
    if (is_camera_heading(text)) {
        report_.clear();
        report_lines_ = max_report_lines;
    }
    if (report_lines_ != 0) {
        --report_lines_;
        report_ += std::string(text) + "\n";
    }
}

std::vector<log_buffer::line> log_buffer::after(std::uint64_t number) const {
    std::lock_guard const lock(mutex_);
    std::vector<line> found;
    for (auto const& one : lines_) {
        if (one.number > number) {
            found.push_back(one);
        }
    }
    return found;
}

log_buffer::counts log_buffer::count() const {
    std::lock_guard const lock(mutex_);
    return counts_;
}

std::vector<reported_camera::property> log_buffer::camera() const {
    std::lock_guard const lock(mutex_);
    auto const cameras = find_reported_cameras(report_);
    return cameras.empty() ? std::vector<reported_camera::property>() : cameras.front().properties;
}

}  // namespace mediagrabber
