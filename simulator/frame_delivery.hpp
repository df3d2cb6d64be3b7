#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

#include "block_sender.hpp"
#include "camera_state.hpp"
#include "network_delay.hpp"
#include "truth_log.hpp"

namespace camsim {

/// A frame on its way from the sensor to the wire.
struct exposed_frame {
    using time_point = block_sender::time_point;

    stream_block block;
    endpoint destination;
    bool do_not_fragment = true;
    std::uint64_t channel_opening = 0;
    std::chrono::duration<double> packet_interval{0};
    time_point exposure_start;
    time_point exposure_end;
    std::int64_t utc_offset_ns = 0;          ///< real-time clock less monotonic clock
    frame_fate fate = frame_fate::sent;      ///< only then it is sent; else its line of truth is written in its turn
    std::chrono::nanoseconds delay{0};       ///< of the network
    time_point due;                          ///< to be sent, if nothing holds the camera up
    std::optional<time_point> send_start{};  ///< none: no packet has left
    std::optional<time_point> send_end{};
    fault_hits faults{};  ///< that struck it on its way
};

/// Sends frames in the order of their exposures, each when its exposure has ended and the network's delay is over, on a
/// thread of its own: while a frame waits, others are exposed.
class frame_delivery {
public:
    /// \param truth may be null
    frame_delivery(camera_state& state, packet_outlet& outlet, sent_blocks& sent, truth_writer* truth);

    void start();
    void stop();

    // Callers hold the state's mutex.
    void hand_over(exposed_frame frame);
    std::chrono::nanoseconds behind() const;

private:
    using state_lock = camera_state::state_lock;

    void run(std::stop_token const& stop);
    void deliver(state_lock& lock, std::stop_token const& stop, exposed_frame& frame);
    block_sender::result send(state_lock& lock, std::stop_token const& stop, exposed_frame& frame);
    template <typename GivenUp>
    bool wait_until(state_lock& lock, std::stop_token const& stop, exposed_frame::time_point when, GivenUp given_up);
    void conclude(exposed_frame& frame, std::uint32_t unsent_packets = 0);
    void note(exposed_frame const& frame, std::uint32_t unsent_packets);

    camera_state& state_;
    packet_outlet& outlet_;
    sent_blocks& sent_;
    block_sender sender_;
    truth_writer* truth_;
    network_delay delay_;
    exposed_frame::time_point last_due_{};
    std::uint64_t channel_opening_ = 0;  ///< that the blocks sent so far belong to
    std::deque<exposed_frame> waiting_;  ///< the first is in work
    std::jthread thread_;
};

}  // namespace camsim
