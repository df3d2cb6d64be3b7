// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "recording/frame_writer_like.hpp"
#include "recording/growing_file.hpp"

namespace mediagrabber {

/// `frames.raw`: the frames one after the other, in their memory format and without padding between lines. The frame
/// index holds the offset of each.
class raw_file final : public frame_writer_like {
public:
    /// \param directory  descriptor, must stay open as long as the object lives
    /// \throws std::system_error  with EEXIST if the file exists
    explicit raw_file(int directory) : file_(directory, file_name) {}

    written_frame write(frame_view const& frame) override;
    void undo_last() override { file_.truncate(before_last_); }

    static constexpr char file_name[] = "frames.raw";

private:
    growing_file file_;
    std::uint64_t before_last_ = 0;  ///< size without the last frame, bytes
    std::vector<std::byte> buffer_;  ///< for frames with padding
};

}  // namespace mediagrabber
