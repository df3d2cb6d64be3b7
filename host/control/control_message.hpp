// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "base/exit_status.hpp"
#include "config/settings.hpp"

namespace mediagrabber {

/// A request of `mediagrabber set`, `signal`, `get` or `status` to a running mediagrabber. On the socket it is one line
/// of JSON: {"set": ["gain.db=6", ...], "timeout_s": 5, "restart": false}, {"signal": "stop"}, {"signal":
/// "trigger", "event": "20261121T173318.123Z-door"}, {"get": ["gain.db", ...]} or {"status": true}
struct change_request {
    std::vector<setting> settings;
    std::string signal = {};             ///< a request of `mediagrabber signal`; empty: none
    std::string event = {};              ///< of a trigger, see is_event(); empty: none
    std::vector<std::string> keys = {};  ///< of `mediagrabber get`; empty: none
    bool asks_status = false;
    double timeout_s = 5.0;
    bool restart = false;  ///< also accept values whose change restarts acquisition

    /// Whether it is a change, which may wait for a frame; everything else is answered at once.
    bool is_change() const { return !settings.empty(); }
};

/// The answer, with the exit status of the command: {"status": 0, "lines": ["...", ...], "result": {...}}
struct change_answer {
    exit_status status = exit_status::success;
    std::vector<std::string> lines;  ///< for the user
    std::string result = {};         ///< the same for programs, as JSON; empty: none
};

/// The maximum length of a line, bytes.
inline constexpr std::size_t max_message = 65'536;
/// The maximum of `timeout_s`, an hour: it keeps the thread busy that carries requests out.
inline constexpr double max_timeout_s = 3'600.0;

/// Whether the text is the time and the name of an event, TIME-NAME as in 20261121T173318.123Z-door. Several recordings
/// that are triggered with the same text save directories with this name.
bool is_event(std::string const& text);
inline constexpr char event_form[] =
    "TIME-NAME as in 20261121T173318.123Z-door, a name of up to 100 letters, digits, \".\", \"_\" and \"-\"";

// Each returns one line, including its line end.
std::string written(change_request const& request);
std::string written(change_answer const& answer);

/// \throws setting_refused if the text is not a valid request
change_request read_request(std::string const& line);
/// \throws std::runtime_error if the text is not a valid answer
change_answer read_answer(std::string const& line);

}  // namespace mediagrabber
