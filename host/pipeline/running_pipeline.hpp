#pragma once

#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "frame_record.hpp"

namespace mediagrabber {

/// One pipeline of GStreamer with our source before it, from its parts to its end.
///
/// Frames are copied into it, and few may wait at its source: `push` waits for those before. What GStreamer's threads
/// report is noted as it comes and thrown by the next call. Used by one thread at a time.
class running_pipeline {
public:
    /// When a frame was taken, as the pipeline is to know it; nanoseconds.
    struct frame_time {
        std::uint64_t from_begin = 0;
        std::uint64_t since_1970 = 0;
        std::uint64_t duration = 0;  ///< 0: not known
    };

    /// Puts the parts together. \param text  as gst-launch-1.0 takes it, beginning behind the source
    /// \throws std::runtime_error in GStreamer's words, and with the package of an element that is missing
    explicit running_pipeline(std::string const& text);
    /// Ends it at once, wherever it is.
    ~running_pipeline();
    running_pipeline(running_pipeline const&) = delete;
    running_pipeline& operator=(running_pipeline const&) = delete;

    /// Files that it writes to.
    std::vector<std::filesystem::path> files() const;

    /// \param caps  of the frames to come \throws std::runtime_error
    void begin(std::string const& caps);
    /// \param give_up  is asked again and again while it waits: whether to wait no longer
    /// \throws std::runtime_error when the pipeline has failed or ended, or nobody waits any longer
    void push(frame_view const& frame, frame_time const& when, std::function<bool()> const& give_up);
    /// Tells the pipeline that this was the last frame, and waits for what it makes of it. \return whether it has ended
    /// in time \throws std::runtime_error when it has failed
    bool finish(std::chrono::duration<double> longest);
    bool failed() const;

private:
    struct object_release {
        void operator()(void* object) const { gst_object_unref(object); }
    };
    template <typename object>
    using owned = std::unique_ptr<object, object_release>;

    static GstBusSyncReply take_message(GstBus* bus, GstMessage* message, gpointer self);
    static GstPadProbeReturn take_departure(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    void take_error(GstMessage* message);
    void take_warning(GstMessage* message);
    void throw_failure() const;  ///< with the mutex locked
    void answer_latency();
    bool has_room() const;

    mutable std::mutex mutex_;  ///< of what GStreamer's threads report
    std::condition_variable changed_;
    std::string failure_;  ///< empty: none
    bool ended_ = false;
    bool latency_changed_ = false;
    std::chrono::steady_clock::time_point next_warning_;

    owned<GstElement> pipeline_;
    owned<GstAppSrc> source_;
};

}  // namespace mediagrabber
