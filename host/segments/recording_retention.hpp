// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "segments/recording_place.hpp"

namespace mediagrabber {

/// Which recordings are kept. A limit of 0 does not apply.
struct retention_limits {
    std::chrono::duration<double> age{0};
    std::uint64_t bytes = 0;           ///< of all finished recordings
    std::uint64_t min_free_bytes = 0;  ///< on their file system
};

/// Deletes the oldest finished recordings until the limits are met, never one that a process writes to.
///
/// Not synchronised, except that several processes may apply limits to the same directory.
class recording_retention {
public:
    /// \param configured  directories of recordings with their placeholders; those of the first are deleted first
    /// \param free_bytes  of the file system of a directory
    recording_retention(std::vector<std::string> const& configured, retention_limits limits,
                        std::function<std::uint64_t(std::filesystem::path const&)> free_bytes = free_bytes_of);

    /// \return number of deleted recordings
    std::size_t apply(std::chrono::system_clock::time_point now) const;

    /// \return bytes that users may write; the maximum if they are unknown
    static std::uint64_t free_bytes_of(std::filesystem::path const& directory);

private:
    std::uint64_t bytes_of_all() const;

    std::vector<recording_places> places_;
    retention_limits const limits_;
    std::function<std::uint64_t(std::filesystem::path const&)> const free_bytes_;
};

/// Applies limits on a thread of its own, which runs only while the processor has nothing else to do: deleting a
/// segment of thousands of files takes seconds. Once at the start, after each finished segment, and every 10 s.
class retention_thread {
public:
    explicit retention_thread(recording_retention retention);
    ~retention_thread();
    retention_thread(retention_thread const&) = delete;
    retention_thread& operator=(retention_thread const&) = delete;

    void segment_finished();

private:
    void run(std::stop_token const& stop);

    recording_retention const retention_;
    std::mutex mutex_;
    std::condition_variable_any changed_;
    bool finished_ = false;
    std::jthread thread_;
};

}  // namespace mediagrabber
