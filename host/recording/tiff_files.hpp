// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "recording/frame_writer_like.hpp"
#include "recording/tiff_file.hpp"

namespace mediagrabber {

/// One TIFF file per frame, `frame-NUMBER-TIMESTAMP.tif`. A file is written under a hidden temporary name and renamed
/// when it is complete, so other programs never see a partial one.
class tiff_files final : public frame_writer_like {
public:
    /// \param directory  descriptor, must stay open as long as the object lives
    tiff_files(int directory, tiff_file writer) : directory_(directory), writer_(std::move(writer)) {}

    written_frame write(frame_view const& frame) override;
    void undo_last() override;

    /// \return whether files have such names, also unfinished ones that a crash has left
    static bool is_name(std::string const& name);

private:
    int const directory_;
    tiff_file const writer_;
    std::string last_;  ///< name of the file written last
};

}  // namespace mediagrabber
