// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "base/file_handle.hpp"
#include "config/configuration.hpp"
#include "frames/frame_sink_like.hpp"
#include "recording/frame_index.hpp"
#include "recording/frame_writer_like.hpp"

namespace mediagrabber {

/// File format of a recording and its constant text tags.
struct recording_format {
    output_format kind = output_format::tiff;
    tiff_compression compression = tiff_compression::none;
    std::string software;            ///< the writing program, a TIFF tag
    std::string model;               ///< the camera's model, empty if unknown
    std::string serial = {};         ///< the camera's serial number, empty if unknown; only in HDF5
    std::string configuration = {};  ///< as TOML; only in HDF5
};

/// A directory with the frame index `frames.jsonl` and the frames in the configured file format.
///
/// A frame's pixels are complete in their file before its line appears in the index: every line of the index names a
/// frame that can be read, also while the recording runs and after a crash. A frame whose line cannot be written is
/// removed from its file again. A recording without frames leaves nothing behind, so that the next one can take its
/// place.
///
/// Used by one thread at a time, usually the exporter's. Output failures are exceptions of write(); the recording stays
/// usable, so writing resumes when, for example, space on the disk has been freed.
class recording final : public frame_sink_like {
public:
    /// Creates the directory if it does not exist, and the index in it.
    /// \throws std::runtime_error  with a message for the operator; an existing recording is left untouched
    recording(std::filesystem::path directory, recording_format const& format);

    std::size_t write(frame_view const& frame) override;
    bool needs_pixels() const override { return writer_ != nullptr; }

    std::filesystem::path const& directory() const { return path_; }

private:
    /// The directory; removed again if it is new and gets no frame.
    class made_directory {
    public:
        explicit made_directory(std::filesystem::path const& path);
        ~made_directory();
        made_directory(made_directory const&) = delete;
        made_directory& operator=(made_directory const&) = delete;
        void keep() { remove_ = false; }

    private:
        std::filesystem::path const& path_;
        bool remove_ = false;
    };

    std::filesystem::path const path_;
    made_directory made_;
    file_handle const directory_;  ///< files are created relative to it, so renaming the directory does no harm
    std::unique_ptr<frame_writer_like> const writer_;  ///< null for output.format = "none"
    frame_index index_;
};

}  // namespace mediagrabber
