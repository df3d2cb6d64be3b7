// SPDX-License-Identifier: MIT
#include "segments/stored_recording.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <exception>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>

#include "base/file_handle.hpp"
#include "base/host_log.hpp"
#include "recording/bigtiff_file.hpp"
#include "recording/frame_index.hpp"
#include "recording/hdf5_file.hpp"
#include "recording/raw_file.hpp"
#include "recording/tiff_files.hpp"

namespace mediagrabber {

namespace fs = std::filesystem;

namespace {

/// \return whether a recording or `mediagrabber report` makes files of this name, besides the frame index
bool belongs_to_recording(std::string const& name) {
    return name == bigtiff_file::file_name || name == raw_file::file_name || name == segment_summary_name ||
           name == "report.html" || tiff_files::is_name(name) || hdf5_files::is_name(name);
}

}  // namespace

void write_summary(fs::path const& segment, segment_summary const& summary) {
    nlohmann::ordered_json const text{{"frames", summary.frames},
                                      {"bytes", summary.bytes},
                                      {"first_frame", summary.first_frame},
                                      {"last_frame", summary.last_frame},
                                      {"first_timestamp_us", summary.first_timestamp_us},
                                      {"last_timestamp_us", summary.last_timestamp_us}};
    std::ofstream file(segment / segment_summary_name);
    file << text.dump() << '\n';
    file.close();
    if (!file) {
        log_warning((segment / segment_summary_name).string() + " cannot be written");
        std::error_code ignored;
        fs::remove(segment / segment_summary_name, ignored);
    }
}

recording_extent extent_of(fs::path const& recording) {
    try {
        std::ifstream file(recording / segment_summary_name);
        auto const summary = nlohmann::json::parse(file);
        return {.bytes = summary.at("bytes"), .last_us = summary.at("last_timestamp_us")};
    } catch (nlohmann::json::exception const&) {
        // No summary, or a crash left a part of one.
    }
    recording_extent found;
    std::error_code error;
    for (fs::directory_iterator entry(recording, error), end; !error && entry != end; entry.increment(error)) {
        std::error_code unknown;
        auto const bytes = entry->file_size(unknown);
        found.bytes += unknown ? 0 : bytes;
    }
    struct stat index {};
    if (stat((recording / frame_index::file_name).c_str(), &index) == 0) {
        found.last_us = static_cast<std::uint64_t>(index.st_mtime) * 1'000'000;
    }
    return found;
}

bool is_finished_recording(fs::path const& directory) {
    file_handle const index(open((directory / frame_index::file_name).c_str(), O_RDONLY | O_CLOEXEC));
    return index && flock(index.get(), LOCK_SH | LOCK_NB) == 0;
}

bool remove_recording(fs::path const& recording) {
    try {
        for (auto const& entry : fs::directory_iterator(recording)) {
            if (belongs_to_recording(entry.path().filename().string())) {
                fs::remove(entry.path());
            }
        }
        fs::remove(recording / frame_index::file_name);
    } catch (fs::filesystem_error const& error) {
        log_warning(std::string("an old recording cannot be deleted: ") + error.what());
        return false;
    }
    std::error_code not_empty;
    fs::remove(recording, not_empty);
    return true;
}

}  // namespace mediagrabber
