// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "frames/frame_sink_like.hpp"
#include "pretrigger/pretrigger_buffer.hpp"

namespace mediagrabber {

/// Holds the frames of the last seconds in memory and writes them on a trigger: each trigger creates one recording,
/// `pretrigger/TIME` in the output directory.
///
/// A frame is written at most once, so a second trigger writes only the frames that came after the first. Frames that
/// wait to be written keep their slots; new frames use the remaining ones, and a frame that finds all slots waiting is
/// refused. The buffer is allocated with the first frame, for the frame rate that is active then, and allocated again
/// for a larger frame, which discards the smaller ones that no trigger has selected.
///
/// Threads: write() belongs to the exporter's thread, trigger() to any. Recordings are written by a thread of this
/// object, so neither caller waits for the disk. A mutex guards the bookkeeping but not the pixels: the slot that
/// write() fills is never one that the writing thread reads.
class pretrigger_recorder final : public frame_sink_like {
public:
    struct settings {
        std::filesystem::path directory;
        /// Starts a recording in a directory that does not exist yet.
        std::function<std::unique_ptr<frame_sink_like>(std::filesystem::path const&)> make_recording;
        std::chrono::duration<double> time{};  ///< how far back a trigger reaches
        std::size_t spare_frames = 0;          ///< slots for frames that arrive while others are written
        bool trigger_on_loss = false;          ///< trigger when `lost` has risen, at most once per `time`
    };
    struct figures {
        std::uint64_t saved = 0;                ///< frames on disk
        std::uint64_t dropped_write_error = 0;  ///< frames that a trigger selected and that could not be written
        std::uint64_t recordings = 0;
        std::uint64_t bytes = 0;
    };

    /// Creates the directory if it does not exist.
    /// \param period_us  returns the active frame period, microseconds; 0: not known
    /// \param lost       returns the number of frames lost so far, by any cause
    /// \throws std::runtime_error  with a message for the operator if the directory cannot be written to
    pretrigger_recorder(settings chosen, std::function<std::uint32_t()> period_us, std::function<std::uint64_t()> lost);
    ~pretrigger_recorder() override;
    pretrigger_recorder(pretrigger_recorder const&) = delete;
    pretrigger_recorder& operator=(pretrigger_recorder const&) = delete;

    /// Copies the frame into the buffer.
    /// \return 0, because nothing has been written to disk
    /// \throws std::runtime_error if all slots wait to be written, or memory for a larger frame is not available
    std::size_t write(frame_view const& frame) override;

    /// Selects the frames of the last `time` before the newest that no earlier trigger selected, and queues them for
    /// writing. Does not wait.
    /// \param why   the cause, for the log
    /// \param name  of the recording's directory; empty: the present time
    /// \return the recording's directory; nothing if no frame has arrived since the last trigger
    std::optional<std::filesystem::path> trigger(std::string const& why, std::string const& name = {});

    /// Waits until all selected frames have been written. Further calls return the same figures.
    /// \return totals over all triggers
    figures finish();

private:
    using clock = std::chrono::steady_clock;

    /// Frames to write: [next, end) of a buffer.
    struct job {
        std::shared_ptr<pretrigger_buffer> buffer;
        std::uint64_t next = 0;
        std::uint64_t end = 0;
        std::filesystem::path directory;
    };
    /// The result of a job.
    struct outcome {
        std::uint64_t saved = 0;
        std::uint64_t failed = 0;
        std::uint64_t bytes = 0;
        std::string why;  ///< reason of the first failure
    };

    void make_space(std::size_t frame_bytes);
    bool is_queued(std::uint64_t number) const;
    void trigger_if_lost();
    std::uint64_t first_within_time() const;
    std::filesystem::path new_directory(std::string const& chosen);
    void run();
    outcome write_job(job& work);
    void write_next(frame_sink_like& into, job& work, outcome& result);
    void report(job const& work, outcome const& result);

    settings const chosen_;
    std::function<std::uint32_t()> const period_us_;
    std::function<std::uint64_t()> const lost_;

    mutable std::mutex mutex_;  ///< guards the members down to finishing_, except the pixels of the buffer
    std::condition_variable changed_;
    std::shared_ptr<pretrigger_buffer> buffer_;
    std::uint64_t first_ = 0;     ///< the oldest frame in the buffer
    std::uint64_t next_ = 0;      ///< the next frame to arrive
    std::uint64_t selected_ = 0;  ///< frames before this one have been selected by a trigger
    std::deque<job> jobs_;
    figures figures_;
    bool finishing_ = false;

    // Used only by the exporter's thread.
    std::uint64_t lost_before_ = 0;
    clock::time_point next_automatic_;  ///< earliest next trigger by a loss
    bool loss_pending_ = false;         ///< a loss that has not triggered yet

    std::mutex join_mutex_;  ///< serialises finish()
    std::jthread thread_;
};

}  // namespace mediagrabber
