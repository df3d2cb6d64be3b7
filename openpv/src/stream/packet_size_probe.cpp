// SPDX-License-Identifier: MIT
#include "stream/packet_size_probe.hpp"

#include <chrono>
#include <cstddef>
#include <utility>
#include <vector>

#include "net/udp_socket.hpp"
#include "stream/packet_size_search.hpp"

namespace openpv {
namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::uint32_t ip_and_udp_headers = 28;
constexpr int attempts = 3;                   ///< a test packet may be lost
constexpr milliseconds arrival_timeout{100};  ///< far above the round trip of a local network

/// Sends test packets and receives them on a socket of its own.
class packet_size_tester {
public:
    packet_size_tester(stream_channel& channel, udp_socket socket, ipv4_address camera)
        : channel_(channel), socket_(std::move(socket)), camera_(camera), memory_(max_datagram_bytes) {}

    bool passes(std::uint32_t bytes) {
        for (int i = 0; i < attempts && error_.IsOK(); ++i) {
            PvResult const fired = channel_.fire_test_packet(bytes);
            if (fired.GetCode() == PvResult::Code::NOT_CONNECTED || fired.GetCode() == PvResult::Code::TIMEOUT) {
                error_ = fired;
            } else if (fired.IsOK() && arrives(bytes)) {
                return true;
            }
        }
        return false;
    }

    /// Not OK if the camera no longer responds.
    PvResult const& error() const { return error_; }

private:
    static constexpr std::size_t max_datagram_bytes = 65536;

    bool arrives(std::uint32_t bytes) {
        auto const deadline = clock::now() + arrival_timeout;
        for (auto now = clock::now(); now < deadline; now = clock::now()) {
            if (!socket_.wait_readable(std::chrono::ceil<milliseconds>(deadline - now))) {
                return false;
            }
            auto const received = socket_.receive(memory_);
            if (received && received->sender.address == camera_ && received->bytes == bytes - ip_and_udp_headers) {
                return true;
            }
        }
        return false;
    }

    stream_channel& channel_;
    udp_socket socket_;
    ipv4_address camera_;
    std::vector<std::byte> memory_;
    PvResult error_;
};

PvResult probe(stream_channel& channel, packet_size_tester& tester, std::uint32_t& found) {
    packet_size_limits limits;
    PvResult const known = channel.get_packet_size_limits(limits);
    if (!known.IsOK()) {
        return known;
    }
    auto const largest = find_max_passing(limits, [&tester](std::uint32_t bytes) { return tester.passes(bytes); });
    if (!tester.error().IsOK()) {
        return tester.error();
    }
    if (!largest) {
        return {
            PvResult::Code::TIMEOUT,
            "The packet size cannot be negotiated: none of the camera's test packets arrived. Check the firewall, or "
            "set the packet size."};
    }
    found = *largest;
    return {};
}

}  // namespace

PvResult negotiate_packet_size(stream_channel& channel, ipv4_address host, ipv4_address camera, std::uint32_t& found) {
    auto socket = udp_socket::bind({host, 0});
    if (!socket) {
        return {PvResult::Code::GENERIC_ERROR,
                "The packet size cannot be negotiated: no UDP socket can be bound to the host's address."};
    }
    udp_endpoint destination;
    std::uint32_t size_before = 0;
    PvResult result = channel.check_packet_size_unlocked();
    if (result.IsOK()) {
        result = channel.get_destination(destination);
    }
    if (result.IsOK()) {
        result = channel.get_packet_size(size_before);
    }
    if (result.IsOK()) {
        result = channel.set_destination({host, socket->local_port()});
    }
    if (!result.IsOK()) {
        return result;
    }
    packet_size_tester tester(channel, std::move(*socket), camera);
    PvResult const probed = probe(channel, tester, found);
    PvResult const sized = channel.set_packet_size(probed.IsOK() ? found : size_before);
    PvResult const restored = channel.set_destination(destination);
    if (!probed.IsOK()) {
        return probed;
    }
    return sized.IsOK() ? restored : sized;
}

}  // namespace openpv
