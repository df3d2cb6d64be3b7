#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "configuration.hpp"
#include "file_handle.hpp"
#include "frame_sink_like.hpp"
#include "recording/frame_journal.hpp"
#include "recording/frame_writer_like.hpp"

namespace mediagrabber {

/// What a recording's files look like.
struct recording_format {
    output_format kind = output_format::tiff;
    tiff_compression compression = tiff_compression::none;
    std::string software;  ///< who writes them
    std::string model;     ///< the camera's, empty when unknown
};

/// A directory with the journal `frames.jsonl` and the frames in the format that was chosen.
class recording final : public frame_sink_like {
public:
    /// Creates the directory where it is missing, and the journal in it.
    /// \throws std::runtime_error with a message for the operator; a recording that is there is not touched
    recording(std::filesystem::path directory, recording_format const& format);

    /// A frame is in its file before its line is in the journal.
    std::size_t keep(frame_view const& frame) override;
    bool needs_pixels() const override { return writer_ != nullptr; }

    std::filesystem::path const& directory() const { return path_; }

private:
    std::filesystem::path const path_;
    file_handle const directory_;  ///< frames go there even if its name is given to another one
    std::unique_ptr<frame_writer_like> const writer_;
    frame_journal journal_;
};

}  // namespace mediagrabber
