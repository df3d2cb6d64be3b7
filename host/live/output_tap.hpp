#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <thread>

#include "file_handle.hpp"

namespace mediagrabber {

/// Stands between what this process writes to a standard stream and where that goes, and hears every line: what a
/// library says has no other way out of it.
class output_tap {
public:
    /// Hears a line, without its end, on the tap's thread. \return whether it is to be passed on
    using listener = std::function<bool(std::string_view line)>;

    /// \param stream  STDOUT_FILENO or STDERR_FILENO
    /// \throws std::system_error
    output_tap(int stream, listener hear);
    /// Passes on what waits; the stream is then as it was.
    ~output_tap();
    output_tap(output_tap const&) = delete;
    output_tap& operator=(output_tap const&) = delete;

private:
    void run();
    void take(std::string_view text);
    void pass_on(std::string_view text) const;

    int const stream_;
    listener const hear_;
    file_handle before_;   ///< where the stream goes without the tap
    file_handle written_;  ///< what was written to it
    std::string begun_;    ///< a line whose end has not come
    std::thread thread_;
};

}  // namespace mediagrabber
