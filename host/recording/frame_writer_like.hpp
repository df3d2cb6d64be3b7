#pragma once

#include <cstddef>

#include "frame_record.hpp"
#include "recording/frame_place.hpp"

namespace mediagrabber {

/// A frame that is in a file.
struct written_frame {
    frame_place place;
    std::size_t bytes = 0;  ///< that the recording became longer by
};

/// Something that writes the pixels of frames to files.
class frame_writer_like {
public:
    virtual ~frame_writer_like() = default;
    /// Writes a frame whole or not at all. \throws std::exception when it could not be written
    virtual written_frame write(frame_view const& frame) = 0;
    /// Removes the frame that was written last, for which nothing else has room. To be called once for a frame.
    virtual void take_back() = 0;

protected:
    frame_writer_like() = default;
    frame_writer_like(frame_writer_like const&) = default;
    frame_writer_like& operator=(frame_writer_like const&) = default;
};

}  // namespace mediagrabber
