// SPDX-License-Identifier: MIT
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

#include "frames/frame_record.hpp"

namespace mediagrabber {

/// One start of a GStreamer pipeline, from construction to end of stream, with an `appsrc` in front of the configured
/// elements. Not reusable: a restart needs a new object.
///
/// Frames are copied into GStreamer buffers. At most four wait in the source; push() blocks until there is space.
/// Errors arrive on GStreamer's threads, are stored under a mutex and thrown by the next call. All public members
/// belong to one thread at a time.
class running_pipeline {
public:
    /// Times of a frame, nanoseconds.
    struct frame_time {
        std::uint64_t from_start = 0;  ///< presentation time
        std::uint64_t since_1970 = 0;  ///< attached as a reference timestamp ("timestamp/x-unix")
        std::uint64_t duration = 0;    ///< 0: not known
    };

    /// Constructs the elements.
    /// \param text  elements behind the source, in the syntax of gst-launch-1.0
    /// \throws std::runtime_error  with GStreamer's message, and the Debian package of each missing element
    explicit running_pipeline(std::string const& text);
    /// Stops the pipeline immediately, without end of stream.
    ~running_pipeline();
    running_pipeline(running_pipeline const&) = delete;
    running_pipeline& operator=(running_pipeline const&) = delete;

    /// \return the locations of all `filesink` elements
    std::vector<std::filesystem::path> files() const;

    /// \param caps  of all frames that follow \throws std::runtime_error if the pipeline does not start
    void start(std::string const& caps);
    /// Copies a frame into the pipeline.
    /// \param give_up  polled while the source is full; the wait ends when it returns true
    /// \throws std::runtime_error if the pipeline has failed or ended, or the wait was given up
    void push(frame_view const& frame, frame_time const& when, std::function<bool()> const& give_up);
    /// Sends end of stream and waits until it has passed through all elements.
    /// \return whether that happened within `max_time` \throws std::runtime_error if the pipeline has failed
    bool finish(std::chrono::duration<double> max_time);
    bool failed() const;

private:
    struct object_release {
        void operator()(void* object) const { gst_object_unref(object); }
    };
    template <typename object>
    using owned = std::unique_ptr<object, object_release>;

    static GstBusSyncReply on_message(GstBus* bus, GstMessage* message, gpointer self);
    static GstPadProbeReturn on_departure(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    void on_error(GstMessage* message);
    void on_warning(GstMessage* message);
    void throw_failure() const;  ///< called with the mutex locked
    void update_latency();
    bool has_space() const;

    mutable std::mutex mutex_;  ///< guards the members down to next_warning_, which GStreamer's threads write
    std::condition_variable changed_;
    std::string failure_;  ///< empty: none
    bool ended_ = false;
    bool latency_changed_ = false;
    std::chrono::steady_clock::time_point next_warning_;

    owned<GstElement> pipeline_;
    owned<GstAppSrc> source_;
};

}  // namespace mediagrabber
