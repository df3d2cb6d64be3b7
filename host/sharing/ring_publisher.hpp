#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "file_handle.hpp"
#include "frame_watcher_like.hpp"
#include "sharing/shared_ring.hpp"
#include "unix_listener.hpp"

namespace mediagrabber {

/// Lets other programs of the same user read frames where they lie; mg_frame_ring.h is their side. They are told of
/// each frame over a socket, and nobody waits for one that does not listen: it finds the frames in the ring later, or
/// finds them overtaken.
class ring_publisher final : public frame_watcher_like {
public:
    /// \throws std::runtime_error with a message for the operator when it can't listen at `path`
    explicit ring_publisher(std::filesystem::path path);
    ~ring_publisher() override;
    ring_publisher(ring_publisher const&) = delete;
    ring_publisher& operator=(ring_publisher const&) = delete;

    void see(frame_lease const& frame) noexcept override;
    bool needs_pixels() const override { return reader_count_ != 0; }

    std::uint64_t readers() const { return reader_count_; }
    /// Frames that readers have missed, as they tell; those of readers that have gone, too.
    std::uint64_t overtaken() const;

private:
    struct reader {
        file_handle connection;
        std::uint64_t overtaken = 0;  ///< as it tells
    };

    void publish(frame_lease const& frame);
    void run();
    void accept_one();
    bool hear(reader& from);
    void drop(std::size_t index);
    void send_ring(reader const& to) const;

    unix_listener const listener_;
    file_handle const end_;  ///< tells the thread to end

    mutable std::mutex mutex_;  ///< of all below
    std::unique_ptr<shared_ring> ring_;
    std::uint64_t sequence_ = 0;
    std::vector<reader> readers_;
    std::uint64_t overtaken_before_ = 0;  ///< of readers that have gone
    bool failed_ = false;                 ///< told that there can be no ring

    std::atomic<std::uint64_t> reader_count_{0};
    std::thread thread_;
};

}  // namespace mediagrabber
