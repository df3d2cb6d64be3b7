// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "frames/frame_lease.hpp"
#include "frames/frame_observer_like.hpp"
#include "frames/frame_sink_like.hpp"

namespace mediagrabber {

/// The export queue: passes frames to observers and to the sink on its own thread, so that a slow disk does not delay
/// the plug-in. Exporting a frame neither copies pixels nor allocates nor blocks on the sink; if the queue is full, the
/// frame is dropped and counted.
///
/// export_slot() and export_copy() may only be called by one thread, count() and finish() by any. The sink and the
/// observers must outlive the exporter. A frame occupies its place in the queue until the sink has returned.
class frame_exporter {
public:
    /// The outcomes of exported frames.
    struct counts {
        std::uint64_t saved = 0;
        std::uint64_t dropped_queue_full = 0;   ///< the queue was full
        std::uint64_t dropped_write_error = 0;  ///< the sink could not save them
        std::uint64_t bytes = 0;                ///< written, as the sink returns them
    };

    /// \param capacity    of the queue, frames, including the one that is being saved
    /// \param on_failure  called for each frame that could not be saved, on the exporter's thread or on the caller's;
    ///                    must not block
    /// \param observers   receive each frame before the sink
    frame_exporter(frame_sink_like& sink, std::size_t capacity,
                   std::function<void(frame_record const&, std::string const&)> on_failure,
                   std::vector<frame_observer_like*> observers = {});
    ~frame_exporter();
    frame_exporter(frame_exporter const&) = delete;
    frame_exporter& operator=(frame_exporter const&) = delete;

    /// Exports the frame in `slot` of `memory`, beginning at `offset` bytes, by exchanging pages.
    void export_slot(std::shared_ptr<buffer_pool> const& memory, std::size_t slot, std::size_t offset,
                     frame_record const& record);
    /// Exports a copy of a frame that is not in a slot; at most memory->frame_bytes().
    void export_copy(std::shared_ptr<buffer_pool> const& memory, void const* frame, frame_record const& record);

    /// Blocks until the sink has received all queued frames. Frames that are exported from now on are dropped and
    /// counted as dropped_queue_full. May be called repeatedly.
    void finish();

    counts count() const;

private:
    template <typename copier>
    void enqueue(std::shared_ptr<buffer_pool> const& memory, std::size_t offset, frame_record const& record,
                 copier&& into_spare);
    template <typename copier>
    bool fill_spare(buffer_pool& memory, frame_record const& record, std::optional<std::size_t>& spare,
                    copier&& into_spare);
    bool has_capacity() const;
    bool pixels_needed() const;
    void run();
    void save(frame_lease const& frame);

    frame_sink_like& sink_;
    std::function<void(frame_record const&, std::string const&)> const on_failure_;
    std::vector<frame_observer_like*> const observers_;

    mutable std::mutex mutex_;  ///< guards ring_, first_, queued_ and finishing_
    std::condition_variable changed_;
    std::vector<frame_lease> ring_;
    std::size_t first_ = 0;
    std::size_t queued_ = 0;
    bool finishing_ = false;

    std::atomic<std::uint64_t> saved_{0};
    std::atomic<std::uint64_t> dropped_queue_full_{0};
    std::atomic<std::uint64_t> dropped_write_error_{0};
    std::atomic<std::uint64_t> bytes_{0};

    std::mutex join_mutex_;  ///< finish() may be called by several threads
    std::jthread thread_;
};

}  // namespace mediagrabber
