// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <thread>

#include "base/file_handle.hpp"
#include "base/patient_writer.hpp"

namespace mediagrabber {

/// Captures what this process writes to a standard stream, line by line, and forwards the lines selected by a callback
/// to the stream's original destination. Libraries in the process that write to the stream offer no other way to read
/// their messages.
///
/// The stream's descriptor is redirected into a pipe while the object lives, and a thread reads the pipe. At most one
/// capture per stream. Writers block when the pipe is full, so the callback must be quick. A destination that is not
/// read loses lines (see patient_writer): it must stop neither the writers nor the end of the process.
class stdio_capture {
public:
    /// Called with each line, without its line end, on the capture's thread. \return whether to forward the line
    using line_handler = std::function<bool(std::string_view line)>;

    /// \param stream  STDOUT_FILENO or STDERR_FILENO
    /// \throws std::system_error if the stream cannot be redirected
    stdio_capture(int stream, line_handler on_line);
    /// Restores the stream and handles what is still in the pipe. Does not wait for other holders of the pipe, such as
    /// a child process.
    ~stdio_capture();
    stdio_capture(stdio_capture const&) = delete;
    stdio_capture& operator=(stdio_capture const&) = delete;

private:
    void run();
    bool read_once();
    void take(std::string_view text);

    int const stream_;
    line_handler const on_line_;
    file_handle original_;  ///< the stream's destination without the capture
    file_handle pipe_;      ///< read end
    file_handle end_;       ///< eventfd, readable when the thread must end
    patient_writer writer_;
    std::string partial_;  ///< a line whose end has not arrived
    std::thread thread_;   ///< joined by the destructor, after the stream has been restored
};

}  // namespace mediagrabber
