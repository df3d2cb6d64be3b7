// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "status/recording_status.hpp"
#include "status/status_message.hpp"

/// The status of a recording, as it answers /status.json.
inline nlohmann::json sample_status(std::string const& name) {
    mediagrabber::recording_status status;
    status.name = name;
    status.state.what = mediagrabber::recording_state::kind::recording;
    status.figures = {
        .wanted = 100, .saved = 60, .dropped_queue_full = 2, .dropped_write_error = 1, .empty_fetches = 3};
    status.uptime_s = 12.5;
    status.log_counts.packets_lost = 11;
    status.delivery[mediagrabber::delivery_check::frame_rate] = {
        .key = "timing.frame_rate_hz", .requested = 25.0, .actual = 24.5, .differs = false};
    return mediagrabber::status_message(status);
}
