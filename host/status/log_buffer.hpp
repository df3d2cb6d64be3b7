// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "plugin/reported_camera.hpp"

namespace mediagrabber {

/// The latest lines of the log (the plug-in's, the libraries' and mediagrabber's own), and the counts that are reported
/// only there.
///
/// Two kinds of lines are counted, both defined in mg_log_records.hpp: the stream statistics of openpv, a record of a
/// tag and `key=value` pairs, and two messages of the plug-in with a fixed text. Sentences are never parsed, so texts
/// for people can change without changing a count. With a stream library that does not write the record the packet
/// counts stay 0.
///
/// Any thread may call any member; a mutex guards all state.
class log_buffer {
public:
    enum class level : std::uint8_t { error = 1, warning, info, debug };

    struct line {
        std::uint64_t number = 0;   ///< from 1
        std::uint64_t time_us = 0;  ///< since 1970
        level severity = level::info;
        std::string text;
    };

    /// Totals over all lines added, including those no longer retained.
    struct counts {
        std::uint64_t budgets_exceeded = 0;  ///< steps of the plug-in's loop that took longer than a frame period
        std::uint64_t drop_reports = 0;      ///< the plug-in's reports of dropped frames
        std::uint64_t packets_resend_requested =
            0;                             ///< packets named in resend requests; one requested twice counts twice
        std::uint64_t packets_resent = 0;  ///< distinct packets that arrived after a resend request for them
        std::uint64_t packets_lost = 0;    ///< packets that never arrived
        std::uint64_t packets_dropped_by_socket = 0;  ///< packets dropped because the socket receive buffer was full
    };

    /// \param capacity  number of lines that are retained, above 0
    explicit log_buffer(std::size_t capacity) : capacity_(capacity) {}

    /// \param text  a line without its line end
    void add(level severity, std::string_view text);
    /// \return the retained lines with a number above `number`, oldest first
    std::vector<line> after(std::uint64_t number) const;
    counts count() const;
    /// \return the properties of the camera in use as the plug-in reported them; empty before the report
    std::vector<reported_camera::property> camera() const;

private:
    void collect_camera_report(std::string_view text);

    std::size_t const capacity_;
    mutable std::mutex mutex_;  ///< guards all members below
    std::deque<line> lines_;
    std::uint64_t last_number_ = 0;
    counts counts_;
    std::string report_;            ///< lines from the last camera heading on
    std::size_t report_lines_ = 0;  ///< further lines that may belong to the report
};

/// A line of the plug-in's standard output.
struct plugin_line {
    log_buffer::level severity = log_buffer::level::info;
    std::string_view text;
    bool is_message = true;  ///< of the plug-in's log; otherwise something else that was printed
};

/// Splits "[TAG:w]: text" into level and text. A line of any other form is returned unchanged at level info.
plugin_line read_plugin_line(std::string_view line);

}  // namespace mediagrabber
