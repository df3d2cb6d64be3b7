#pragma once

#include <functional>
#include <memory>
#include <string>

#include "configuration.hpp"
#include "frame_watcher_like.hpp"
#include "live/frame_history.hpp"
#include "live/log_memory.hpp"
#include "live/recording_controls.hpp"
#include "live/recording_status.hpp"
#include "live/tone_curve.hpp"
#include "web/web_address.hpp"

namespace mediagrabber {

/// The live page of a recording, and what it is made of, over HTTP. Everything happens on threads of its own: neither
/// the plug-in's nor the exporter's ever waits for a browser.
class web_server {
public:
    /// What the page shows and does. The pointers live until close() has returned.
    struct recording_view {
        std::function<recording_status()> status;
        recording_controls controls;
        tone_curve const* tone = nullptr;
        frame_history const* history = nullptr;
        log_memory const* log = nullptr;
        /// What GET /metrics answers; nothing: there is no such thing.
        std::function<std::string()> metrics;
    };

    /// Listens as configured; whoever comes waits until it is opened.
    /// \throws std::runtime_error with a message for the operator when it can't
    explicit web_server(configuration const& chosen);
    ~web_server();
    web_server(web_server const&) = delete;
    web_server& operator=(web_server const&) = delete;

    /// With the port that it has.
    web_address const& address() const;
    /// For the exporter.
    frame_watcher_like& watcher();

    void open(recording_view view);
    /// Waits for calls that have begun; who they call has to see to that.
    void close();

private:
    class site;
    std::unique_ptr<site> site_;
};

}  // namespace mediagrabber
