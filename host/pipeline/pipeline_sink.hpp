#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "frame_sink_like.hpp"

namespace mediagrabber {

class running_pipeline;

/// Gives frames to a pipeline of GStreamer.
///
/// It begins with the first frame, because then it is known what frames are like. Frames of another size or format end
/// it and begin it anew: whether a pipeline can do with others shows only when it breaks. One that has failed is begun
/// anew after a while, with the next frame; those between are refused. No file that is there is written over: a
/// pipeline that would do so does not begin.
class pipeline_sink final : public frame_sink_like {
public:
    struct settings {
        std::string text;                 ///< as configured
        std::filesystem::path directory;  ///< of the recording
        std::chrono::duration<double> retry_interval{};
        std::chrono::duration<double> longest_end{};  ///< how long to wait for the pipeline's end
    };

    /// Puts the pipeline together once, to see whether it can be. \param period_us  between two frames, 0: not known
    /// \throws std::runtime_error in GStreamer's words
    pipeline_sink(settings chosen, std::function<std::uint32_t()> period_us);
    ~pipeline_sink() override;
    pipeline_sink(pipeline_sink const&) = delete;
    pipeline_sink& operator=(pipeline_sink const&) = delete;

    /// Waits until the pipeline takes the frame. \return 0: what it writes is its own affair
    std::size_t keep(frame_view const& frame) override;

    /// The end is near: once the pipeline has taken no frame for as long as its end may take, frames are refused. May
    /// be called by any thread.
    void hurry();
    /// The last frame was kept. \return whether the pipeline, each time that it was begun, has made its end of it in
    /// time; why not is in the log
    bool finish();

private:
    using clock = std::chrono::steady_clock;

    /// What frames are like.
    struct geometry {
        std::uint32_t width = 0;
        std::uint32_t height = 0;
        pixel_format const* format = nullptr;
        friend bool operator==(geometry const&, geometry const&) = default;
    };

    void begin(frame_record const& first, geometry const& wanted);
    void end_for(geometry const& wanted);
    void end_running();
    bool out_of_patience() const;
    [[noreturn]] void fail(std::string const& why);
    std::unique_ptr<running_pipeline> put_together(std::uint64_t start) const;

    settings const chosen_;
    std::function<std::uint32_t()> const period_us_;

    std::mutex mutex_;  ///< of all that follows; a frame at a time
    std::unique_ptr<running_pipeline> running_;
    geometry of_;
    std::uint64_t starts_ = 0;
    std::uint64_t first_timestamp_us_ = 0;
    std::uint64_t last_from_begin_ = 0;  ///< ns
    bool pushed_ = false;
    std::string failure_;  ///< why it is not running; empty: it has not failed
    clock::time_point next_start_;
    bool all_ended_ = true;  ///< those that were to, in time
    bool finished_ = false;

    clock::time_point last_push_;

    std::atomic<clock::time_point> hurried_{};
};

}  // namespace mediagrabber
