#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "reported_camera.hpp"

namespace mediagrabber {

/// The last lines of the log, whoever wrote them, and what they add up to: what a plug-in finds out and tells in words
/// alone. Used from any thread.
class log_memory {
public:
    enum class level : std::uint8_t { error = 1, warning, info, debug };

    struct line {
        std::uint64_t number = 0;   ///< from 1
        std::uint64_t time_us = 0;  ///< since 1970
        level severity = level::info;
        std::string text;
    };

    /// What the log has told of since the beginning.
    struct counts {
        std::uint64_t budgets_exceeded =
            0;                         ///< times that a step of the plug-in's loop took longer than a frame period
        std::uint64_t drops_told = 0;  ///< times that the plug-in told of dropped frames
        std::uint64_t packets_asked_again = 0;  ///< sent again by the camera when they were missing
        std::uint64_t packets_missing = 0;      ///< that never came
    };

    /// \param capacity lines that are remembered, above 0
    explicit log_memory(std::size_t capacity) : capacity_(capacity) {}

    /// A line without its line end.
    void add(level severity, std::string_view text);
    /// The lines behind line `number`, oldest first.
    std::vector<line> after(std::uint64_t number) const;
    counts count() const;
    /// What the plug-in has reported of the camera that it uses; empty before.
    std::vector<reported_camera::property> camera() const;

private:
    void listen_for_camera(std::string_view text);
    void add_up(std::string_view text);

    std::size_t const capacity_;
    mutable std::mutex mutex_;
    std::deque<line> lines_;
    std::uint64_t last_number_ = 0;
    counts counts_;
    std::string report_;            ///< of the last camera that was reported
    std::size_t report_lines_ = 0;  ///< that may still belong to it
};

/// A line as the plug-in writes it, "[TAG:w]: text"; of others the text is the whole line.
struct plugin_line {
    log_memory::level severity = log_memory::level::info;
    std::string_view text;
};
plugin_line read_plugin_line(std::string_view line);

}  // namespace mediagrabber
