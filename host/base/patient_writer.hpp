// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

namespace mediagrabber {

/// Writes text to a descriptor whose reader may have stopped reading, without waiting longer than `patience` for it.
/// Any thread may call it. A process that shares the pipe or terminal can still delay a write in a rare race.
/// \return whether all text was written, or the other end is closed
bool write_patiently(int descriptor, std::string_view text, std::chrono::milliseconds patience);

/// Writes lines to a standard stream. A reader that pauses gets a moment to continue; if it does not, lines are dropped
/// at once until it reads again, and then counted in a line of their own. Used by one thread at a time.
class patient_writer {
public:
    /// \param descriptor  stays the caller's
    explicit patient_writer(int descriptor) : descriptor_(descriptor) {}

    /// \param line  with its line end
    void write_line(std::string_view line);

private:
    int const descriptor_;
    std::size_t dropped_ = 0;  ///< lines since the reader has stopped; 0: it reads
};

}  // namespace mediagrabber
