// SPDX-License-Identifier: MIT
#include "gvcp/gvcp_wire.hpp"

#include <cerrno>
#include <utility>

#include "gvcp/gvcp_message.hpp"
#include "net/udp_socket.hpp"

namespace openpv {
namespace {

/// Of all errors, only this one comes from the camera's address. The others report a local problem.
bool is_port_unreachable(int error) {
    return error == ECONNREFUSED;
}

class udp_wire final : public gvcp_wire {
public:
    explicit udp_wire(udp_socket socket) : socket_(std::move(socket)) {}

    event send(std::span<std::byte const> datagram) override {
        if (socket_.send(datagram)) {
            return event::datagram;
        }
        return is_port_unreachable(errno) ? event::unreachable : event::nothing;
    }

    reception receive(std::span<std::byte> memory, bool wait) override {
        auto const received = wait ? socket_.wait_and_receive(memory) : socket_.receive(memory);
        if (received) {
            return {event::datagram, received->bytes};
        }
        return {is_port_unreachable(errno) ? event::unreachable : event::nothing, 0};
    }

    void interrupt() override { socket_.shut_down(); }
    clock::time_point now() const override { return clock::now(); }

private:
    udp_socket socket_;
};

}  // namespace

std::unique_ptr<gvcp_wire> open_gvcp_wire(ipv4_address host, ipv4_address camera) {
    auto socket = udp_socket::bind({host, 0});
    if (!socket || !socket->connect({camera, gvcp::port}) || !socket->set_receive_timeout(gvcp_wire::max_wait)) {
        return nullptr;
    }
    return std::make_unique<udp_wire>(std::move(*socket));
}

}  // namespace openpv
