#pragma once

#include <chrono>
#include <map>
#include <thread>
#include <vector>

#include "answer_faults.hpp"
#include "block_sender.hpp"
#include "file_descriptor.hpp"
#include "gvcp_device.hpp"
#include "gvcp_sockets.hpp"
#include "network_delay.hpp"

namespace camsim {

/// The control channel's thread: takes commands from the camera's sockets and sends the answers when they are due.
class gvcp_server {
public:
    gvcp_server(camera_state& state, gvcp_device& device, block_resender& resender, gvcp_sockets& sockets,
                answer_faults& faults);
    ~gvcp_server();
    gvcp_server(gvcp_server const&) = delete;
    gvcp_server& operator=(gvcp_server const&) = delete;

    void start();
    void stop();
    void wake();

private:
    using time_point = gvcp_device::time_point;
    struct outgoing {
        endpoint destination;
        std::vector<std::byte> datagram;
    };

    void run(std::stop_token const& stop);
    std::chrono::nanoseconds poll_timeout();
    time_point departure_of_answers(time_point now);
    void receive(int descriptor);
    void handle(std::span<std::byte const> datagram, endpoint const& sender, delivery how);
    void send_due();

    camera_state& state_;
    gvcp_device& device_;
    block_resender& resender_;
    gvcp_sockets& sockets_;
    answer_faults& faults_;
    file_descriptor wake_;
    std::multimap<time_point, outgoing> outbox_;
    network_delay delay_;
    time_point last_departure_{};
    std::jthread thread_;
};

}  // namespace camsim
