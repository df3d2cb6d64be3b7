// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "frames/frame_sink_like.hpp"

namespace mediagrabber {

class running_pipeline;

/// Feeds frames into a GStreamer pipeline, and restarts the pipeline when necessary.
///
/// The pipeline starts with the first frame, whose size and format become its caps. Frames of another size or format
/// restart it: whether a pipeline accepts new caps is known only after it has failed. A failed pipeline is restarted
/// with the next frame after `retry_interval`; frames in between are refused. A pipeline that would overwrite an
/// existing file is not started.
///
/// write() blocks while the pipeline is busy, so it belongs to the exporter's thread; hurry() may be called by any
/// other thread meanwhile. A mutex serialises write() and finish().
class pipeline_sink final : public frame_sink_like {
public:
    struct settings {
        std::string text;                                ///< output.pipeline, with its placeholders
        std::filesystem::path directory;                 ///< of the recording
        std::chrono::duration<double> retry_interval{};  ///< between attempts to start a failed pipeline
        std::chrono::duration<double> max_end_time{};    ///< for the pipeline to finish after its last frame
    };

    /// Constructs the pipeline once without starting it, to report errors early.
    /// \param period_us  returns the active frame period, microseconds; 0: not known
    /// \throws std::runtime_error  with GStreamer's message
    pipeline_sink(settings chosen, std::function<std::uint32_t()> period_us);
    ~pipeline_sink() override;
    pipeline_sink(pipeline_sink const&) = delete;
    pipeline_sink& operator=(pipeline_sink const&) = delete;

    /// Blocks until the pipeline accepts the frame.
    /// \return 0, because the size of the pipeline's output is not known
    /// \throws std::runtime_error if the pipeline has failed or does not accept frames
    std::size_t write(frame_view const& frame) override;

    /// Announces the end of the recording: from now on write() gives up after `max_end_time` without progress.
    /// Thread-safe.
    void hurry();
    /// Ends the pipeline after the last frame.
    /// \return whether every start of the pipeline has ended without error and in time; the log has the reasons if not
    bool finish();

private:
    using clock = std::chrono::steady_clock;

    struct geometry {
        std::uint32_t width = 0;
        std::uint32_t height = 0;
        frame_format const* format = nullptr;
        friend bool operator==(geometry const&, geometry const&) = default;
    };

    void start(frame_record const& first, geometry const& wanted);
    void end_for(geometry const& wanted);
    void end_running();
    bool out_of_time() const;
    [[noreturn]] void fail(std::string const& why);
    std::unique_ptr<running_pipeline> construct(std::uint64_t start) const;

    settings const chosen_;
    std::function<std::uint32_t()> const period_us_;

    std::mutex mutex_;  ///< guards all members below except hurried_
    std::unique_ptr<running_pipeline> running_;
    geometry geometry_;  ///< of the frames that running_ was started for
    std::uint64_t starts_ = 0;
    std::uint64_t first_timestamp_us_ = 0;
    std::uint64_t last_from_start_ = 0;  ///< running time of the last frame, ns
    bool pushed_ = false;
    std::string failure_;  ///< why it is not running; empty: it has not failed
    clock::time_point next_start_;
    bool all_ended_ = true;  ///< every ended pipeline ended in time
    bool finished_ = false;
    clock::time_point last_push_;

    std::atomic<clock::time_point> hurried_{};  ///< when hurry() was called; zero: not yet
};

}  // namespace mediagrabber
