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

#include "frame_lease.hpp"
#include "frame_sink_like.hpp"
#include "frame_watcher_like.hpp"

namespace mediagrabber {

/// Frames on their way to the sink, on a thread of their own. Handing one over neither copies pixels nor allocates nor
/// waits for the sink.
class frame_exporter {
public:
    /// Counts of frames handed over; `bytes` as the sink reports them.
    struct counts {
        std::uint64_t kept = 0;
        std::uint64_t overrun = 0;  ///< lost: as many frames as possible were waiting for the sink
        std::uint64_t refused = 0;  ///< lost: the sink could not keep them
        std::uint64_t bytes = 0;
    };

    /// \param capacity  frames that can wait
    /// \param on_failure  called for each frame that could not be kept, on the exporter's thread or the caller's; it
    ///                    must not wait for anything
    /// \param watchers    see each frame before the sink does
    frame_exporter(frame_sink_like& sink, std::size_t capacity,
                   std::function<void(frame_record const&, std::string const&)> on_failure,
                   std::vector<frame_watcher_like*> watchers = {});
    ~frame_exporter();
    frame_exporter(frame_exporter const&) = delete;
    frame_exporter& operator=(frame_exporter const&) = delete;

    /// Hands over the frame that lies in `slot` of `memory`, `offset` bytes behind its beginning, by exchanging pages.
    void export_slot(std::shared_ptr<frame_memory> const& memory, std::size_t slot, std::size_t offset,
                     frame_record const& record);
    /// Hands over a frame that lies elsewhere and has to be copied; at most memory->frame_bytes().
    void export_copy(std::shared_ptr<frame_memory> const& memory, void const* frame, frame_record const& record);

    /// Ends when all frames that wait are with the sink; frames handed over from now on are counted as overrun. May be
    /// called from any thread, and again.
    void finish();

    counts count() const;

private:
    template <typename bring>
    void hand_over(std::shared_ptr<frame_memory> const& memory, std::size_t offset, frame_record const& record,
                   bring&& into_spare);
    template <typename bring>
    bool take_along(frame_memory& memory, frame_record const& record, std::optional<std::size_t>& spare,
                    bring&& into_spare);
    bool has_room() const;
    bool pixels_needed() const;
    void run();
    void keep(frame_lease const& frame);

    frame_sink_like& sink_;
    std::function<void(frame_record const&, std::string const&)> const on_failure_;
    std::vector<frame_watcher_like*> const watchers_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<frame_lease> ring_;
    std::size_t first_ = 0;
    std::size_t waiting_ = 0;
    bool finishing_ = false;

    std::atomic<std::uint64_t> kept_{0};
    std::atomic<std::uint64_t> overrun_{0};
    std::atomic<std::uint64_t> refused_{0};
    std::atomic<std::uint64_t> bytes_{0};

    std::mutex join_mutex_;
    std::thread thread_;
};

}  // namespace mediagrabber
