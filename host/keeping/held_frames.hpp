#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "frame_sink_like.hpp"
#include "keeping/held_memory.hpp"

namespace mediagrabber {

/// Holds the frames of the last seconds in memory, and writes them when it is told to: each time into a recording of
/// its own, `kept-TIME` in the output directory, on a thread of its own.
///
/// A frame is written once. While frames wait to be written, the others of the memory are there for those that come;
/// one that finds only such frames is lost. Memory is taken with the first frame, for as many frames as come in the
/// time at the rate that is in force then, and anew when a frame is larger.
class held_frames final : public frame_sink_like {
public:
    struct settings {
        std::filesystem::path directory;
        /// Begins a recording in a directory that is not there yet.
        std::function<std::unique_ptr<frame_sink_like>(std::filesystem::path const&)> make_recording;
        std::chrono::duration<double> time{};
        std::size_t spare_frames = 0;  ///< that may come while others are written
        bool keep_when_lost = false;   ///< whenever `lost` has risen, but once in `time` at most
    };
    struct figures {
        std::uint64_t kept = 0;         ///< frames on disk
        std::uint64_t not_written = 0;  ///< that were to be
        std::uint64_t recordings = 0;
        std::uint64_t bytes = 0;
    };

    /// Creates the directory where it is missing.
    /// \param period_us  between two frames, 0: not known \param lost  frames so far, of whatever kind
    /// \throws std::runtime_error with a message for the operator
    held_frames(settings chosen, std::function<std::uint32_t()> period_us, std::function<std::uint64_t()> lost);
    ~held_frames() override;
    held_frames(held_frames const&) = delete;
    held_frames& operator=(held_frames const&) = delete;

    /// Holds a copy. \return 0: nothing is written \throws std::runtime_error when there is no room
    std::size_t keep(frame_view const& frame) override;

    /// Has the frames written that were taken within the time before the last one and are not on disk yet. May be
    /// called by any thread; nothing is waited for. \param why  for the log
    void ask(std::string const& why);

    /// Ends when all is written that was asked for. \return what was written in all. May be called again.
    figures finish();

private:
    using clock = std::chrono::steady_clock;

    /// Frames that are to be written: [next, end) of a memory.
    struct job {
        std::shared_ptr<held_memory> memory;
        std::uint64_t next = 0;
        std::uint64_t end = 0;
        std::filesystem::path directory;
    };
    /// What became of a job.
    struct outcome {
        std::uint64_t kept = 0;
        std::uint64_t refused = 0;
        std::uint64_t bytes = 0;
        std::string why;  ///< the first one was refused
    };

    void make_room(std::size_t frame_bytes);
    bool is_waiting(std::uint64_t number) const;
    void ask_when_lost();
    std::uint64_t first_within_time() const;
    std::filesystem::path new_directory();
    void run();
    outcome write(job& work);
    void write_next(frame_sink_like& into, job& work, outcome& result);
    void report(job const& work, outcome const& result);

    settings const chosen_;
    std::function<std::uint32_t()> const period_us_;
    std::function<std::uint64_t()> const lost_;

    mutable std::mutex mutex_;  ///< of all that follows but the frames' pixels
    std::condition_variable changed_;
    std::shared_ptr<held_memory> memory_;
    std::uint64_t first_ = 0;  ///< the oldest frame that is held
    std::uint64_t next_ = 0;   ///< the one to come
    std::uint64_t asked_ = 0;  ///< frames before this one are written, or wait to be
    std::deque<job> jobs_;
    figures figures_;
    bool finishing_ = false;

    std::uint64_t lost_before_ = 0;  ///< used by the exporter's thread alone, as the next one
    clock::time_point next_automatic_;
    bool loss_waits_ = false;

    std::mutex join_mutex_;
    std::thread thread_;
};

}  // namespace mediagrabber
