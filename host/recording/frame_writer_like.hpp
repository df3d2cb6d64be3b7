// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

#include "frames/frame_record.hpp"
#include "recording/frame_place.hpp"

namespace mediagrabber {

/// The result of writing one frame.
struct written_frame {
    frame_place place;
    std::size_t bytes = 0;  ///< that the recording grew by
};

/// Interface of the file formats: writes the pixels of frames to files. Used by one thread at a time.
class frame_writer_like {
public:
    virtual ~frame_writer_like() = default;
    /// Writes a frame completely or not at all.
    /// \throws std::exception if it cannot be written
    virtual written_frame write(frame_view const& frame) = 0;
    /// Removes the frame written last, if its line did not fit into the frame index. At most once per frame.
    virtual void undo_last() = 0;

protected:
    frame_writer_like() = default;
    frame_writer_like(frame_writer_like const&) = default;
    frame_writer_like& operator=(frame_writer_like const&) = default;
};

}  // namespace mediagrabber
