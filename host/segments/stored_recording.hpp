// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Directories of recordings and segments on the disk: their size, age and removal.

#include <cstdint>
#include <filesystem>

namespace mediagrabber {

/// What a finished segment contains.
struct segment_summary {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;  ///< of the frames and the frame index
    std::uint64_t first_frame = 0;
    std::uint64_t last_frame = 0;
    std::uint64_t first_timestamp_us = 0;
    std::uint64_t last_timestamp_us = 0;
};

/// Name of the summary's file in the directory of a segment.
inline constexpr char segment_summary_name[] = "segment.json";

/// Writes the summary of a finished segment. A failure is logged: readers do without it.
void write_summary(std::filesystem::path const& segment, segment_summary const& summary);

/// Size and age of a recording.
struct recording_extent {
    std::uint64_t bytes = 0;
    std::uint64_t last_us = 0;  ///< time of its last frame, us since 1970
};

/// From the summary; without one, for example after a crash, from the files. Then the time is that of the last change.
recording_extent extent_of(std::filesystem::path const& recording);

/// \return whether the directory contains a frame index that no process writes to
bool is_finished_recording(std::filesystem::path const& directory);

/// Deletes the files of a recording, the frame index last, and the directory if nothing else is in it.
/// \return whether all files of the recording were deleted; a failure is logged
bool remove_recording(std::filesystem::path const& recording);

}  // namespace mediagrabber
