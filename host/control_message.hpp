#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "exit_status.hpp"
#include "settings.hpp"

namespace mediagrabber {

/// What `mediagrabber set` asks of a mediagrabber that is running. On the wire it is a line of JSON:
/// {"set": ["gain.db=6", ...], "timeout_s": 5, "another_run": false}
struct change_request {
    std::vector<setting> settings;
    double timeout_s = 5.0;
    bool another_run = false;  ///< values that need another run of the plug-in are accepted, too
};

/// What it answers, and with what status the command is to end: {"status": 0, "lines": ["...", ...]}
struct change_answer {
    exit_status status = exit_status::success;
    std::vector<std::string> lines;  ///< for the operator
};

/// The longest line, in bytes.
inline constexpr std::size_t longest_message = 65'536;
/// The longest time that a change can be waited for.
inline constexpr double longest_timeout_s = 3'600.0;

// Each a line, with its line end.
std::string written(change_request const& request);
std::string written(change_answer const& answer);

/// \throws setting_refused when a text is no request
change_request read_request(std::string const& line);
/// \throws std::runtime_error when a text is no answer
change_answer read_answer(std::string const& line);

}  // namespace mediagrabber
