// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "config/configuration.hpp"
#include "config/web_address.hpp"
#include "control/recording_controls.hpp"
#include "frames/frame_observer_like.hpp"
#include "plugin/tone_curve.hpp"
#include "status/frame_history.hpp"
#include "status/log_buffer.hpp"
#include "status/recording_status.hpp"
#include "web/http_message.hpp"

namespace mediagrabber {

/// The HTTP server of a recording: live page, live image, status, log, controls and metrics. It can serve other pages
/// instead, with the same rules.
///
/// Threads: requests are handled on threads of the server, so neither the plug-in's thread nor the exporter's ever
/// waits for a client. The functions of recording_view are called on those threads, several at a time.
///
/// Security: every request passes access control (origin, host name) and, if a token is configured, authorisation. Only
/// the login page and its static files need no token. TLS is left to a reverse proxy.
class web_server {
public:
    /// What the page shows and controls. The pointers must stay valid until close() has returned.
    struct recording_view {
        std::function<recording_status()> status;
        recording_controls controls;
        tone_curve const* tone = nullptr;
        frame_history const* history = nullptr;
        log_buffer const* log = nullptr;
        std::function<std::string()> metrics;  ///< body of GET /metrics; empty: 404
    };

    /// A page that is not a recording's, for GET. `respond` is called on the threads of the server, several at a time.
    struct page {
        std::string path;
        std::function<void(http_request const&, http_response&)> respond;
    };

    /// Listens at the configured address; clients wait until open(). If the address or the token cannot be used, logs a
    /// warning, and tries again while the server is open.
    /// \throws std::runtime_error  if the text of the address or the origin is not valid
    explicit web_server(web_configuration const& chosen);
    /// Serves these pages, the login page and its static files.
    /// \throws std::runtime_error  if it cannot listen, or the token cannot be used
    web_server(web_configuration const& chosen, std::vector<page> const& pages);
    ~web_server();
    web_server(web_server const&) = delete;
    web_server& operator=(web_server const&) = delete;

    /// \return the address, with the port that the system chose for port 0; null: it does not listen. Any thread may
    /// call it.
    web_address const* address() const;
    /// \return the observer that supplies the live image; lives as long as the server
    frame_observer_like& observer();

    /// Starts to serve clients. Call it at most once.
    void open(recording_view view);
    /// Disconnects all clients. Blocks until running callbacks have returned, so the owner must first end those that
    /// wait for the recording.
    void close();

private:
    class site;
    std::unique_ptr<site> site_;
};

}  // namespace mediagrabber
