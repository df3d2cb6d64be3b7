#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "configuration.hpp"
#include "frame_watcher_like.hpp"
#include "live/frame_history.hpp"
#include "live/log_memory.hpp"
#include "live/output_tap.hpp"
#include "live/recording_controls.hpp"
#include "live/recording_status.hpp"
#include "live/tone_curve.hpp"
#include "sharing/ring_publisher.hpp"
#include "telemetry/messenger.hpp"
#include "telemetry/metrics.hpp"
#include "web/web_server.hpp"

namespace mediagrabber {

/// What of the plug-in's log the operator wants to see on standard output.
struct wanted_output {
    bool any = false;
    std::uint32_t level = 0;  ///< 0 nothing to 4 debug
};

/// All that look at a recording from outside while it goes on, as configured, and what they look at. Without any
/// configured, nothing of it is there.
class onlookers {
public:
    /// \throws std::runtime_error with a message for the operator when one that is configured can't be
    explicit onlookers(configuration const& chosen);
    ~onlookers();
    onlookers(onlookers const&) = delete;
    onlookers& operator=(onlookers const&) = delete;

    bool any() const { return any_; }
    /// For the exporter.
    std::vector<frame_watcher_like*> watchers();
    /// Frames that they keep beside those that wait for the disk.
    std::size_t frames_kept() const;

    /// Hears what is said from now on; what is not configured to be written is kept from standard output.
    /// \param wanted  is asked for each line, on a thread of its own
    void listen(std::function<wanted_output()> const& wanted);

    /// What they can know and do.
    struct recording_access {
        std::function<recording_status()> status;
        recording_controls controls;
        tone_curve const* tone = nullptr;
        std::atomic<std::uint32_t> const* period_us = nullptr;  ///< frame period in force, 0: not known
    };
    /// Lets them in. \throws std::runtime_error with a message for the operator
    void open(recording_access access);
    /// Sends them away. Waits for calls of theirs that have begun; who they call has to see to that.
    void close();
    /// Tells those who are told of frames that all have been seen. Takes seconds at most.
    void finish();

    frame_history const& history() const { return history_; }
    log_memory const& log() const { return log_; }
    /// How it goes, as Prometheus reads it; after open().
    std::string metrics_text() const { return metrics_.text(access_.status()); }

    /// Adds what the onlookers themselves know.
    void complete(recording_status& status) const;

private:
    configuration const chosen_;
    bool const any_;
    frame_history history_;
    log_memory log_;
    std::unique_ptr<ring_publisher> ring_;
    metrics metrics_;
    std::unique_ptr<messenger> messenger_;
    recording_access access_;
    std::unique_ptr<web_server> web_;  ///< the page, when one is configured
    std::unique_ptr<output_tap> plugin_output_;
    std::unique_ptr<output_tap> error_output_;
};

}  // namespace mediagrabber
