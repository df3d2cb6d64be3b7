// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>

#include "device/camera_state.hpp"
#include "stream/block_sender.hpp"
#include "stream/truth_log.hpp"
#include "timing/network_delay.hpp"

namespace camsim {

/// A frame on its way from the sensor to the network.
struct exposed_frame {
    using time_point = block_sender::time_point;

    stream_block block;
    endpoint destination;
    bool do_not_fragment = true;
    std::uint64_t channel_opening = 0;
    std::chrono::duration<double> packet_interval{0};
    time_point exposure_start;
    time_point exposure_end;
    std::int64_t utc_offset_ns = 0;               ///< real-time clock minus monotonic clock
    frame_outcome outcome = frame_outcome::sent;  ///< if it is not `sent` already, the frame is only logged
    std::chrono::nanoseconds delay{0};            ///< network delay
    time_point due;                               ///< when sending should start
    std::optional<time_point> send_start{};       ///< none: no packet was sent
    std::optional<time_point> send_end{};
    fault_hits faults{};  ///< applied to it
};

/// Sends frames in the order of their exposures, each when its exposure and its network delay have ended.
///
/// A thread of its own sends, so later frames are exposed while a frame waits or is sent; it runs from start() to
/// stop() or destruction. The state's mutex guards the queue; it is not held while packets are rendered and sent. Each
/// frame gets a line in the truth file. The referenced objects must outlive it.
class frame_delivery {
public:
    /// \param truth may be null
    frame_delivery(camera_state& state, packet_outlet& outlet, sent_blocks& sent, truth_writer* truth);

    void start();

    /// Ends the thread, even in the middle of a block. Waiting frames are logged as aborted.
    void stop();

    /// Queues a frame. A frame keeps its place even if its delay ends before that of its predecessor. Callers hold the
    /// state's mutex.
    void enqueue(exposed_frame frame);

    /// \return how long ago sending of the first frame should have started; 0 if none waits. Callers hold the state's
    /// mutex.
    std::chrono::nanoseconds lateness() const;

private:
    using state_lock = camera_state::state_lock;

    void run(std::stop_token const& stop);
    void deliver(state_lock& lock, std::stop_token const& stop, exposed_frame& frame);
    block_sender::result send(state_lock& lock, std::stop_token const& stop, exposed_frame& frame);
    template <typename predicate>
    bool wait_until(state_lock& lock, std::stop_token const& stop, exposed_frame::time_point when, predicate cancelled);
    void conclude(exposed_frame& frame, std::uint32_t unsent_packets = 0);
    void write_truth(exposed_frame const& frame, std::uint32_t unsent_packets);

    camera_state& state_;
    packet_outlet& outlet_;
    sent_blocks& sent_;
    block_sender sender_;
    truth_writer* truth_;
    network_delay delay_;
    exposed_frame::time_point last_due_{};
    std::uint64_t channel_opening_ = 0;  ///< that the blocks in sent_ belong to
    std::deque<exposed_frame> queue_;    ///< the first one is being sent
    std::jthread thread_;
};

}  // namespace camsim
