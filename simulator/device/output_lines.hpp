// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

/// The camera's digital output lines and the signals that drive them (SFNC: DigitalIOControl).
namespace camsim {

enum class line_source : std::uint8_t { low, high, exposure_active, frame_active, user_output0, user_output1 };

/// Entries of LineSource, indexed by `line_source`.
inline constexpr std::array<std::string_view, 6> line_source_names{"Low",         "High",        "ExposureActive",
                                                                   "FrameActive", "UserOutput0", "UserOutput1"};

/// Entries of LineSelector.
inline constexpr std::array<std::string_view, 2> line_names{"Line2", "Line3"};

/// LineSource and LineInverter of one line.
struct line_settings {
    line_source source = line_source::low;
    bool inverted = false;
};

/// The state of the lines: a value that gives the level of each line. Not synchronised; part of camera_state.
struct output_lines {
    std::array<line_settings, line_names.size()> lines{};
    std::array<bool, 2> user_outputs{};
    unsigned exposures = 0;  ///< in progress, 0 or 1
    unsigned frames = 0;     ///< from the start of their exposure to their last packet

    bool signal(line_source source) const;

    /// \param line index into line_names
    bool level(std::size_t line) const;
};

/// A change of the lines and its time. Changes of late frames arrive late, so they are not sorted by time.
struct line_change {
    std::chrono::steady_clock::time_point when;
    std::function<void(output_lines&)> apply;
};

}  // namespace camsim
