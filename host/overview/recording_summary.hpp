// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace mediagrabber {

/// What the overview shows of a recording's status. Texts come from other machines: they are short, without control
/// characters, and may have bytes that are not valid UTF-8.
struct recording_summary {
    std::string name;
    std::string state;
    std::string waiting_reason;  ///< empty: it does not wait
    std::uint64_t saved = 0;
    std::uint64_t wanted = 0;  ///< 0: no limit
    std::uint64_t dropped_queue_full = 0;
    std::uint64_t dropped_write_error = 0;
    std::uint64_t packets_lost = 0;
    std::uint64_t empty_fetches = 0;
    std::optional<double> frames_per_s;
    double uptime_s = 0.0;
};

/// \param text  as of /status.json
/// \throws std::runtime_error if it is not the status of a recording
recording_summary read_summary(std::string_view text);

nlohmann::json json_of(recording_summary const& summary);

/// \return the text without control characters, and not longer than the page shows
std::string shown_text(std::string text);

}  // namespace mediagrabber
