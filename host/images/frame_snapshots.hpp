// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "frames/frame_record.hpp"
#include "images/latest_frame.hpp"

namespace mediagrabber {

/// Copies of the latest frames in full depth, shared by all clients. A copy is made only when a client requests it, on
/// the client's thread, at most 25 times a second; the frame buffer is free again then. The last copies are held, so
/// that a client can request several rectangles of one frame.
///
/// Any thread may call any member. One of the waiting clients copies, without holding the mutex.
class frame_snapshots {
public:
    using clock = std::chrono::steady_clock;
    static constexpr std::size_t max_held = 4;  ///< bounds the memory; a client needs one

    struct snapshot {
        frame_record record;
        std::vector<std::byte> pixels;
        clock::time_point taken;

        frame_view view() const { return {record, pixels}; }
    };

    /// \param frames  must outlive the object
    explicit frame_snapshots(latest_frame& frames) : frames_(frames) { frames.add_user(); }

    /// Waits for a frame.
    /// \param known  number of the frame that the client already has
    /// \return nothing if none arrived by `until` or cancel() was called
    std::shared_ptr<snapshot const> next(std::uint64_t known, clock::time_point until);
    /// \return the copy of a frame that next() has returned; null if it is not held any more
    std::shared_ptr<snapshot const> held(std::uint64_t number) const;
    /// Ends all current and future waits. Call latest_frame::cancel() first.
    void cancel();

private:
    bool is_live(snapshot const& copy) const;
    std::shared_ptr<snapshot const> found(std::uint64_t number) const;
    std::shared_ptr<snapshot const> copy_next(std::uint64_t known, clock::time_point until);

    latest_frame& frames_;
    mutable std::mutex mutex_;  ///< guards the members below
    std::condition_variable changed_;
    std::deque<std::shared_ptr<snapshot const>> held_;  ///< oldest first
    bool copying_ = false;                              ///< a client waits for the next frame or copies it
    bool cancelled_ = false;
};

}  // namespace mediagrabber
