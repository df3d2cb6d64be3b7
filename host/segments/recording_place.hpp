// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Directories of recordings and segments, with placeholders for their time.

#include <chrono>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "config/configuration.hpp"

namespace mediagrabber {

/// \param configured  output.directory; every `{time}` in it stands for the start time, as in 20261121T173318Z, every
///                    `{date}` for its date, as in 20261121 (both UTC)
/// \param start       of the recording
/// \return the recording's directory; with "-2" or a higher number appended if its last part has a time and the
///         directory exists: several recordings may start in the same second, for example after the clock was set back
std::filesystem::path recording_place(std::string const& configured, std::chrono::system_clock::time_point start);

/// Segments, and recordings that are deleted at some time, are directories with a time in their names.
/// \throws usage_error  with a message for the operator
void check_directory_of_segments(output_configuration const& values);

/// Finds the directories that recording_place() may have made of a configured directory, also those with "-2" and so on
/// appended. Reads one directory at a time, so memory does not grow with the number of recordings.
class recording_places {
public:
    /// \param configured  with a placeholder in its last part. Here, `{event}` stands for the name of an event after a
    ///                    hyphen, or for nothing
    explicit recording_places(std::string const& configured);

    /// The directory above all recordings, which has no placeholder.
    std::filesystem::path const& root() const { return root_; }

    /// Calls `visit` for each directory, oldest first, until it returns false: in the order of the names, which is that
    /// of the times; with `{event}` in the order of the last change, because the time in the name is the client's.
    /// Directories that cannot be read are left out.
    void visit_each(std::function<bool(std::filesystem::path const&)> const& visit) const;

private:
    struct level {
        std::regex names;
        bool has_event = false;
    };

    bool visit_below(std::filesystem::path const& directory, std::size_t depth,
                     std::function<bool(std::filesystem::path const&)> const& visit) const;

    std::filesystem::path root_;
    std::vector<level> levels_;  ///< of directories below the root, from the top
};

}  // namespace mediagrabber
