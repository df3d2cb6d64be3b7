// SPDX-License-Identifier: MIT
#include "recording/raw_file.hpp"

#include "frames/frame_pixels.hpp"

namespace mediagrabber {

written_frame raw_file::write(frame_view const& frame) {
    auto const pixels = without_padding(frame, buffer_);
    std::uint64_t const begin = file_.size();
    file_.append({pixels});
    before_last_ = begin;
    return {.place = {.file = file_.name(), .page = {}, .offset = begin, .bytes = pixels.size()},
            .bytes = pixels.size()};
}

}  // namespace mediagrabber
