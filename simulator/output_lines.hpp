#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

/// The camera's digital outputs and the signals that drive them.
namespace camsim {

enum class line_source : std::uint8_t { low, high, exposure_active, frame_active, user_output0, user_output1 };

/// As the feature LineSource spells them, by `line_source`.
inline constexpr std::array<std::string_view, 6> line_source_names{"Low",         "High",        "ExposureActive",
                                                                   "FrameActive", "UserOutput0", "UserOutput1"};

/// As the feature LineSelector spells them.
inline constexpr std::array<std::string_view, 2> line_names{"Line2", "Line3"};

struct line_settings {
    line_source source = line_source::low;
    bool inverted = false;
};

/// Everything that the lines' levels depend on.
struct output_lines {
    std::array<line_settings, line_names.size()> lines{};
    std::array<bool, 2> user_outputs{};
    unsigned exposures = 0;  ///< going on; one at most
    unsigned frames = 0;     ///< between the beginning of their exposure and their last packet

    bool signal(line_source source) const;
    bool level(std::size_t line) const;
};

/// A change and when it happened; late frames bring theirs in late.
struct line_change {
    std::chrono::steady_clock::time_point when;
    std::function<void(output_lines&)> apply;
};

}  // namespace camsim
