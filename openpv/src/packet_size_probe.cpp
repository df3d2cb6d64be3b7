#include "packet_size_probe.hpp"

#include <chrono>
#include <cstddef>
#include <utility>
#include <vector>

#include "packet_size_search.hpp"
#include "udp_socket.hpp"

namespace openpv {
namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr uint32_t ip_and_udp_headers = 28;
constexpr int attempts = 3;
constexpr milliseconds arrival_time{100};

/// Test packets and the socket they are sent to.
class test_range {
public:
    test_range(gev_stream_channel& channel, udp_socket socket, ipv4_address camera)
        : channel_(channel), socket_(std::move(socket)), camera_(camera), memory_(largest_datagram) {}

    bool passes(uint32_t bytes) {
        for (int i = 0; i < attempts && refusal_.IsOK(); ++i) {
            PvResult const fired = channel_.fire_test_packet(bytes);
            if (fired.GetCode() == PvResult::Code::NOT_CONNECTED || fired.GetCode() == PvResult::Code::TIMEOUT) {
                refusal_ = fired;
            } else if (fired.IsOK() && arrives(bytes)) {
                return true;
            }
        }
        return false;
    }

    /// Not OK when the camera stopped answering.
    PvResult const& refusal() const { return refusal_; }

private:
    static constexpr std::size_t largest_datagram = 65536;

    bool arrives(uint32_t bytes) {
        auto const deadline = clock::now() + arrival_time;
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

    gev_stream_channel& channel_;
    udp_socket socket_;
    ipv4_address camera_;
    std::vector<std::byte> memory_;
    PvResult refusal_;
};

PvResult probe(gev_stream_channel& channel, test_range& range, uint32_t& found) {
    packet_size_limits limits;
    PvResult const known = channel.get_packet_size_limits(limits);
    if (!known.IsOK()) {
        return known;
    }
    auto const largest = find_largest_passing(limits, [&range](uint32_t bytes) { return range.passes(bytes); });
    if (!range.refusal().IsOK()) {
        return range.refusal();
    }
    if (!largest) {
        return {PvResult::Code::TIMEOUT,
                "The packet size cannot be negotiated: none of the camera's test packets arrived."};
    }
    found = *largest;
    return {};
}

}  // namespace

PvResult negotiate_packet_size(gev_stream_channel& channel, ipv4_address host, ipv4_address camera, uint32_t& found) {
    auto socket = udp_socket::bind({host, 0});
    if (!socket) {
        return {PvResult::Code::GENERIC_ERROR, "The packet size cannot be negotiated: the host has no socket to give."};
    }
    udp_endpoint destination;
    uint32_t size_before = 0;
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
    test_range range(channel, std::move(*socket), camera);
    PvResult const probed = probe(channel, range, found);
    PvResult const sized = channel.set_packet_size(probed.IsOK() ? found : size_before);
    PvResult const restored = channel.set_destination(destination);
    if (!probed.IsOK()) {
        return probed;
    }
    return sized.IsOK() ? restored : sized;
}

}  // namespace openpv
