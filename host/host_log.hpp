#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace mediagrabber {

/// mediagrabber's own messages, on standard error; standard output is the plug-in's. They are written by a thread of
/// their own: nobody waits for a terminal that does not take them. When too many wait, the oldest are given up.
void open_log();
/// Has every message told to `hear` as well, on a thread of the log's; nothing: no more.
void hear_log(std::function<void(char level, std::string_view text)> hear);
/// Writes what waits.
void close_log();

/// The log is open while this lives.
class log_opened {
public:
    log_opened() { open_log(); }
    ~log_opened() { close_log(); }
    log_opened(log_opened const&) = delete;
    log_opened& operator=(log_opened const&) = delete;
};

void log_info(std::string const& text);
void log_warning(std::string const& text);
void log_error(std::string const& text);

}  // namespace mediagrabber
