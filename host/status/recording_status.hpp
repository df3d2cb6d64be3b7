// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "config/configuration.hpp"
#include "frames/frame_record.hpp"
#include "plugin/delivery_check.hpp"
#include "plugin/reported_camera.hpp"
#include "status/log_buffer.hpp"
#include "status/progress_report.hpp"
#include "status/recording_state.hpp"

namespace mediagrabber {

/// State of the MQTT session.
struct broker_status {
    bool connected = false;
    std::uint64_t sent = 0;     ///< messages: at QoS 0 written to the connection, at QoS 1 confirmed by the broker
    std::uint64_t dropped = 0;  ///< messages given up before they were sent
};

/// A snapshot of a recording: the one source of the page, the metrics and the health messages. Counts start with the
/// recording. Assembled by the session for each request, and a value from then on.
struct recording_status {
    progress_figures figures;
    double uptime_s = 0.0;          ///< since the recording started
    std::uint64_t good_frames = 0;  ///< frames from the camera; the first one of a run is not handed over
    bool capturing = false;
    recording_state state;
    std::uint32_t period_us = 0;  ///< active frame period, 0: not known
    std::optional<double> seconds_since_frame;
    std::optional<frame_record> newest;
    log_buffer::counts log_counts;
    std::vector<reported_camera::property> camera;
    std::string plugin_version;
    std::string directory;
    std::optional<std::uint64_t> free_bytes;  ///< available to this user on the file system of `directory`
    std::string name;                         ///< see name_of()
    std::uint32_t instance = 0;               ///< log.instance
    std::shared_ptr<configuration const> active;
    delivery_check::all_values delivery{};  ///< what is configured, and what the camera delivers

    std::string page;  ///< URL of the live page; empty: it has none, or does not listen yet

    std::optional<broker_status> broker;  ///< nothing: no broker is configured

    std::uint64_t ring_readers = 0;    ///< programs connected to the shared-memory ring
    std::uint64_t ring_overtaken = 0;  ///< frames that ring readers missed, as they report
};

}  // namespace mediagrabber
