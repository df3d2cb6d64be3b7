// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "config/configuration.hpp"
#include "control/recording_controls.hpp"
#include "frames/frame_observer_like.hpp"
#include "plugin/tone_curve.hpp"
#include "ring/ring_publisher.hpp"
#include "status/frame_history.hpp"
#include "status/log_buffer.hpp"
#include "status/recording_status.hpp"
#include "status/stdio_capture.hpp"
#include "telemetry/metrics.hpp"
#include "telemetry/mqtt_publisher.hpp"
#include "web/web_server.hpp"

namespace mediagrabber {

/// Which of the plug-in's log messages go to standard output.
struct wanted_output {
    bool any = false;
    std::uint32_t level = 0;  ///< 0 nothing to 4 debug
};

/// Everything that observes a running recording, as configured: live page, MQTT, shared frame ring, metrics, and the
/// histories that they read. If none is configured, nothing is created but the log buffer and a history of one frame,
/// for `mediagrabber status`.
///
/// Lifetime: created before the recording, so that an error leaves no files behind; open() when the recording runs;
/// close() before the objects that clients access are destroyed; finish() after the last frame. open(), close() and
/// finish() are called by the session's threads one after the other.
class monitoring {
public:
    /// \throws std::runtime_error with a message for the user if a configured observer cannot be set up
    explicit monitoring(configuration const& chosen);
    ~monitoring();
    monitoring(monitoring const&) = delete;
    monitoring& operator=(monitoring const&) = delete;

    bool any() const { return any_; }
    /// The observers to pass to the exporter; they live as long as this object.
    std::vector<frame_observer_like*> observers();
    /// The maximum number of frames that observers hold at the same time, in addition to the export queue.
    std::size_t max_frames_held() const;

    /// Captures standard output and standard error from now on for the log buffer, and forwards everything but messages
    /// of the plug-in that are not configured.
    /// \param wanted     called for each line on a thread of the capture
    /// \param read_line  called with each line of standard output, on a thread of the capture
    void capture(std::function<wanted_output()> const& wanted, std::function<void(std::string_view)> const& read_line);

    /// What clients can read and request.
    struct recording_access {
        std::function<recording_status()> status;
        recording_controls controls;
        tone_curve const* tone = nullptr;
        std::atomic<std::uint32_t> const* period_us = nullptr;  ///< configured frame period; 0: unknown
    };
    /// Starts serving clients. \throws std::runtime_error with a message for the user
    void open(recording_access access);
    /// Disconnects all clients. Blocks until running callbacks have returned, so callbacks must not block on this
    /// thread.
    void close();
    /// Publishes the end of the recording. Takes at most a few seconds.
    void finish();

    frame_history const& history() const { return history_; }
    log_buffer const& log() const { return log_; }
    /// The metrics in the Prometheus text format; only after open().
    std::string metrics_text() const { return metrics_.text(access_.status()); }

    /// Adds the observers' counts and latest frame to a status.
    void complete(recording_status& status) const;

private:
    configuration const chosen_;
    bool const any_;
    frame_history history_;
    log_buffer log_;
    std::unique_ptr<ring_publisher> ring_;
    metrics metrics_;
    std::unique_ptr<mqtt_publisher> mqtt_publisher_;
    recording_access access_;
    std::unique_ptr<web_server> web_;  ///< null: no page configured
    std::unique_ptr<stdio_capture> plugin_output_;
    std::unique_ptr<stdio_capture> error_output_;
};

}  // namespace mediagrabber
