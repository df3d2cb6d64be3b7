#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "frame_journal.hpp"
#include "frame_sink_like.hpp"
#include "tiff_file.hpp"

namespace mediagrabber {

/// A directory with the journal `frames.jsonl` and, unless it is to do without, a TIFF file for each frame.
class recording final : public frame_sink_like {
public:
    /// Creates the directory where it is missing, and the journal in it.
    /// \param writer  nothing: only the journal is written
    /// \throws std::runtime_error with a message for the operator; a recording that is there is not touched
    recording(std::filesystem::path directory, std::optional<tiff_file> writer);
    ~recording() override;
    recording(recording const&) = delete;
    recording& operator=(recording const&) = delete;

    /// A frame's file appears under its name when it is complete, then its line in the journal.
    std::size_t keep(frame_view const& frame) override;
    bool needs_pixels() const override { return writer_.has_value(); }

    std::filesystem::path const& directory() const { return path_; }

private:
    std::size_t write_file(std::string const& name, frame_view const& frame) const;

    /// The open directory: frames go there even if its name is given to another one.
    class open_directory {
    public:
        explicit open_directory(std::filesystem::path const& path);
        ~open_directory();
        open_directory(open_directory const&) = delete;
        open_directory& operator=(open_directory const&) = delete;
        int descriptor() const { return descriptor_; }

    private:
        int descriptor_ = -1;
    };

    std::filesystem::path const path_;
    std::optional<tiff_file> const writer_;
    open_directory directory_;
    frame_journal journal_;
};

}  // namespace mediagrabber
