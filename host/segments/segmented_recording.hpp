// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "frames/frame_sink_like.hpp"
#include "recording/recording.hpp"
#include "segments/stored_recording.hpp"

namespace mediagrabber {

/// A recording that continues in a new directory when a limit is reached. Each segment is a complete recording with its
/// own frame index; frame numbers go on. Without limits it is one recording.
///
/// A finished segment has a summary, `segment.json`. If a new segment cannot be created, for example on a full disk,
/// frames go on into the old one.
///
/// write() is called by one thread at a time, directory() by any thread.
class segmented_recording final : public frame_sink_like {
public:
    struct settings {
        std::string directory;  ///< output.directory with its placeholders
        recording_format format;
        std::uint64_t max_frames = 0;           ///< 0: no limit
        std::chrono::microseconds max_time{0};  ///< segments end at multiples of it since 1970; 0: no limit
    };

    /// Creates the first segment.
    /// \param start     of the recording
    /// \param finished  called on the thread of write() when a segment is complete
    /// \throws std::runtime_error  with a message for the operator
    segmented_recording(
        settings chosen, std::chrono::system_clock::time_point start, std::function<void()> finished = [] {});
    ~segmented_recording() override;

    std::size_t write(frame_view const& frame) override;
    bool needs_pixels() const override { return current_->needs_pixels(); }

    /// \return that of the present segment
    std::filesystem::path directory() const;

private:
    bool has_limits() const { return chosen_.max_frames != 0 || chosen_.max_time.count() != 0; }
    std::uint64_t interval_of(std::uint64_t timestamp_us) const;
    bool is_full(frame_record const& next) const;
    std::unique_ptr<recording> make_segment(std::chrono::system_clock::time_point start) const;
    void begin_segment(frame_record const& first);
    void finish(std::filesystem::path const& segment);

    /// What the present segment contains.
    struct contents {
        std::uint64_t interval = 0;  ///< number of its multiple of max_time
        segment_summary summary;
    };

    settings const chosen_;
    std::function<void()> const finished_;
    mutable std::mutex mutex_;  ///< protects the pointer below, which only the thread of write() changes
    std::unique_ptr<recording> current_;
    contents contents_;
    bool failing_ = false;  ///< a new segment could not be created, which has been logged
};

}  // namespace mediagrabber
