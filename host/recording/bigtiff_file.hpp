// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "recording/frame_writer_like.hpp"
#include "recording/growing_file.hpp"
#include "recording/tiff_file.hpp"

namespace mediagrabber {

/// `frames.tif`: one BigTIFF file with a page (IFD) per frame. Each page has the tags that a single TIFF file of the
/// frame would have.
///
/// A page is appended as pixels, then directory. The previous page's pointer to it is written last: eight bytes that
/// do not cross a memory page. The file appears under its name together with its first page. So it is valid whenever
/// the process ends. Appending a page costs the same for the first as for the millionth.
///
/// The file is written directly rather than by libtiff, which cannot remove a page that did not fit on the disk and
/// does not specify the order of its writes. libtiff only compresses the pixels.
///
/// Used by one thread at a time. Little-endian machines only.
class bigtiff_file final : public frame_writer_like {
public:
    /// \param directory  descriptor, must stay open as long as the object lives
    /// \param like       supplies compression and text tags
    /// \throws std::system_error  with EEXIST if the file exists
    bigtiff_file(int directory, tiff_file like);

    written_frame write(frame_view const& frame) override;
    void undo_last() override;

    static constexpr char file_name[] = "frames.tif";

private:
    /// The end of the file after some page.
    struct state {
        std::uint64_t size = 0;  ///< bytes
        std::uint64_t link = 0;  ///< offset of the pointer to the next page
        std::uint64_t pages = 0;
    };
    void link(std::uint64_t directory);
    void remove_unlinked();
    void point_to(std::uint64_t directory);

    tiff_file const like_;
    growing_file file_;
    state now_;
    state before_;  ///< without the last page, for undo_last()
    std::vector<std::byte> buffer_;
};

}  // namespace mediagrabber
