#pragma once

#include <sys/types.h>

#include <string>

#include "frame_record.hpp"
#include "recording/frame_place.hpp"

namespace mediagrabber {

/// One line of `frames.jsonl`, with its line end.
std::string journal_line(frame_record const& record, frame_place const& place);

/// `frames.jsonl`: a line of JSON for each frame that is on disk. A line is there whole or not at all.
class frame_journal {
public:
    /// Creates the file in the directory `directory` (a descriptor). \throws std::system_error, with EEXIST when there
    /// is one already
    explicit frame_journal(int directory);
    ~frame_journal();
    frame_journal(frame_journal const&) = delete;
    frame_journal& operator=(frame_journal const&) = delete;

    /// \throws std::system_error; the file is then as it was before
    void append(std::string const& line);

    static constexpr char file_name[] = "frames.jsonl";

private:
    int file_ = -1;
    off_t size_ = 0;
};

}  // namespace mediagrabber
