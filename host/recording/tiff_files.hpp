#pragma once

#include <string>

#include "recording/frame_writer_like.hpp"
#include "recording/tiff_file.hpp"

namespace mediagrabber {

/// A TIFF file for each frame, `frame-NUMBER-TIMESTAMP.tif`, which appears under its name when it is complete.
class tiff_files final : public frame_writer_like {
public:
    /// \param directory  descriptor; has to stay open
    tiff_files(int directory, tiff_file writer) : directory_(directory), writer_(std::move(writer)) {}

    written_frame write(frame_view const& frame) override;
    void take_back() override;

private:
    int const directory_;
    tiff_file const writer_;
    std::string last_;  ///< name of the file written last
};

}  // namespace mediagrabber
