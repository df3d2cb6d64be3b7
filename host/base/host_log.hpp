// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace mediagrabber {

/// Opens the log of mediagrabber itself: standard error, or the systemd journal if standard error goes there. Standard
/// output belongs to the plug-in. A separate thread writes the messages, so that a blocked terminal blocks no caller;
/// if too many are queued, the oldest are dropped.
/// \param name  of the recording, which precedes each message on standard error; empty: none
void open_log(std::string const& name = {});
/// Also passes every message to a function, on the log's thread; null: stops.
/// \param forward  receives the level as spdlog's letter (D, I, W, E, C)
void forward_log(std::function<void(char level, std::string_view text)> forward);
/// Writes all queued messages and closes the log.
void close_log();

/// Keeps the log open during its lifetime.
class log_opened {
public:
    explicit log_opened(std::string const& name = {}) { open_log(name); }
    ~log_opened() { close_log(); }
    log_opened(log_opened const&) = delete;
    log_opened& operator=(log_opened const&) = delete;
};

// May be called by any thread; without effect while the log is closed.
void log_info(std::string const& text);
void log_warning(std::string const& text);
void log_error(std::string const& text);

}  // namespace mediagrabber
