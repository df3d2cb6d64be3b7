#pragma once

#include <cstdint>
#include <vector>

#include "recording/frame_writer_like.hpp"
#include "recording/growing_file.hpp"
#include "recording/tiff_file.hpp"

namespace mediagrabber {

/// `frames.tif`: a BigTIFF file with a page for each frame, which has the tags of a single TIFF file.
///
/// A page is its pixels, then its directory; it belongs to the file when the page before points to it, which is the
/// last thing to be written, eight bytes that no memory page divides. So the file is readable whenever the process
/// ends, and a page costs the same whether it is the first or the millionth. libtiff can't take back a page that found
/// no room, nor promises in which order it writes; it is asked only to compress.
class bigtiff_file final : public frame_writer_like {
public:
    /// \param directory  descriptor; has to stay open
    /// \param like  what a single file would be written with
    /// \throws std::system_error
    bigtiff_file(int directory, tiff_file like);

    written_frame write(frame_view const& frame) override;
    void take_back() override;

    static constexpr char file_name[] = "frames.tif";

private:
    /// The file up to a page.
    struct state {
        std::uint64_t size = 0;  ///< bytes
        std::uint64_t link = 0;  ///< place of the pointer to the next page
        std::uint64_t pages = 0;
    };
    void begin_file();
    void point_to(std::uint64_t directory);

    tiff_file const like_;
    growing_file file_;
    state now_;
    state before_;  ///< the last page
    std::vector<std::byte> room_;
};

}  // namespace mediagrabber
