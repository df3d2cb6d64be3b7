// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace mediagrabber {

/// Limits how often changes of a state are logged: at most one message per interval, and none for a state that is back
/// to what was logged last. Used by one thread; the caller supplies the time and writes the log.
class rate_limited_log {
public:
    using clock = std::chrono::steady_clock;

    struct message {
        bool good = false;  ///< selects the log level
        std::string text;
        bool operator==(message const&) const = default;
    };

    /// \param interval  minimum time between two messages
    explicit rate_limited_log(clock::duration interval) : interval_(interval) {}

    /// Sets the current state.
    void note(message state) { latest_ = std::move(state); }
    /// \return the message to log now, if any; it counts as logged
    std::optional<message> due(clock::time_point now);

private:
    clock::duration const interval_;
    std::optional<message> latest_;
    std::optional<message> logged_;
    clock::time_point next_{};
};

}  // namespace mediagrabber
