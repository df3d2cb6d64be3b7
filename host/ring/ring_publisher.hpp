// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "base/file_handle.hpp"
#include "base/unix_listener.hpp"
#include "frames/frame_observer_like.hpp"
#include "ring/shared_ring.hpp"

namespace mediagrabber {

/// Publishes frames to other programs of the same user or of a group through shared memory; mg_frame_ring.h is the
/// readers' side.
///
/// Each frame is entered into a shared_ring and announced by a message on every reader's socket. Sends never block: a
/// reader with a full socket misses the message and finds the frame in the ring, or finds it overwritten. While no
/// reader is connected it requests no pixels, and a frame without pixels is not published.
///
/// Threads: on_frame() runs on the exporter's thread. Connections are accepted and read by a thread of this object,
/// which alone adds and removes readers; the mutex is held for a few system calls at a time.
class ring_publisher final : public frame_observer_like {
public:
    /// \param path   of the Unix socket
    /// \param group  whose members may connect, too
    /// \throws std::runtime_error  with a message for the operator if it cannot listen there
    explicit ring_publisher(std::filesystem::path path, std::optional<gid_t> group = std::nullopt);
    ~ring_publisher() override;
    ring_publisher(ring_publisher const&) = delete;
    ring_publisher& operator=(ring_publisher const&) = delete;

    void on_frame(frame_lease const& frame) noexcept override;
    bool needs_pixels() const override { return reader_count_ != 0; }

    /// \return number of connected readers
    std::uint64_t readers() const { return reader_count_; }
    /// \return frames that readers have missed, as they report; including readers that have disconnected
    std::uint64_t overtaken() const;

private:
    struct reader {
        file_handle connection;
        std::uint64_t overtaken = 0;  ///< total reported by the reader
    };

    void publish(frame_lease const& frame);
    void run();
    void accept_one();
    bool receive(reader& from);
    void drop(std::size_t index);
    void send_ring(reader const& to) const;

    unix_listener listener_;
    file_handle const end_;  ///< eventfd, readable when the thread must end

    mutable std::mutex mutex_;  ///< guards the members down to failed_
    std::unique_ptr<shared_ring> ring_;
    std::uint64_t sequence_ = 0;
    std::vector<reader> readers_;
    std::uint64_t overtaken_before_ = 0;  ///< of disconnected readers
    bool failed_ = false;                 ///< the failure to create a ring has been logged

    std::atomic<std::uint64_t> reader_count_{0};
    std::thread thread_;  ///< joined by the destructor, after end_ has been signalled
};

}  // namespace mediagrabber
