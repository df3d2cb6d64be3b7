// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <string>

#include "frames/frame_record.hpp"
#include "recording/frame_place.hpp"

namespace mediagrabber {

/// \return one line of `frames.jsonl` with its line end; values that are not known are null
std::string index_line(frame_record const& record, frame_place const& place);

/// The frame index, `frames.jsonl`: one line of JSON per stored frame.
///
/// A line is written by a single `pwrite` and removed again if the disk took only a part of it, so readers may follow
/// the file while it grows: a last line without a line end is incomplete. The file is locked (flock) while the
/// recording goes on, so that other processes do not take it for finished. Without any line it is removed at the end.
/// Used by one thread at a time.
class frame_index {
public:
    /// Creates the file.
    /// \param directory  descriptor of the recording's directory, which must outlive the object
    /// \throws std::system_error  with EEXIST if the file exists
    explicit frame_index(int directory);
    ~frame_index();
    frame_index(frame_index const&) = delete;
    frame_index& operator=(frame_index const&) = delete;

    /// \param line  as returned by index_line()
    /// \throws std::system_error; the file is then unchanged
    void append(std::string const& line);

    static constexpr char file_name[] = "frames.jsonl";

private:
    int const directory_;
    int file_ = -1;
    off_t size_ = 0;  ///< bytes
};

}  // namespace mediagrabber
