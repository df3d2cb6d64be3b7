// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <map>
#include <thread>
#include <vector>

#include "base/file_descriptor.hpp"
#include "control/ack_faults.hpp"
#include "control/gvcp_device.hpp"
#include "control/gvcp_sockets.hpp"
#include "stream/block_sender.hpp"
#include "timing/network_delay.hpp"

namespace camsim {

/// The control channel: a thread that receives commands, executes them with gvcp_device, and sends each ACK when it is
/// due (`--write-time`, `--network-delay-acks` and fault ack_delay delay them).
///
/// The thread runs from start() to stop() or destruction. It locks the camera's state for each command, and sends
/// resent packets without that lock. The referenced objects must outlive the server.
class gvcp_server {
public:
    /// \throws std::system_error if the process has no file descriptor left
    gvcp_server(camera_state& state, gvcp_device& device, block_resender& resender, gvcp_sockets& sockets,
                ack_faults& faults);
    ~gvcp_server();
    gvcp_server(gvcp_server const&) = delete;
    gvcp_server& operator=(gvcp_server const&) = delete;

    void start();

    /// Ends the thread. ACKs that are not yet due are not sent.
    void stop();

    /// Makes the thread read the camera's state again. May be called by any thread.
    void wake();

private:
    using time_point = gvcp_device::time_point;
    struct outgoing {
        endpoint destination;
        std::vector<std::byte> datagram;
    };

    void run(std::stop_token const& stop);
    std::chrono::nanoseconds poll_timeout();
    time_point ack_departure(time_point now);
    void receive(int descriptor);
    void handle(std::span<std::byte const> datagram, endpoint const& sender, delivery how);
    void send_due();

    camera_state& state_;
    gvcp_device& device_;
    block_resender& resender_;
    gvcp_sockets& sockets_;
    ack_faults& faults_;
    file_descriptor wake_;
    std::multimap<time_point, outgoing> outbox_;  ///< by due time
    network_delay delay_;
    time_point last_departure_{};
    std::jthread thread_;
};

}  // namespace camsim
