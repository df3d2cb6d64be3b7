#include "gvcp_client.hpp"

#include <array>
#include <cerrno>
#include <span>
#include <utility>

#include "gvcp_message.hpp"

namespace openpv {
namespace {

using clock = std::chrono::steady_clock;

/// Of all errors only this one comes from the camera's address. A way that is cut may be whole again in a moment.
bool says_nobody_is_there(int error) {
    return error == ECONNREFUSED;
}

}  // namespace

std::optional<gvcp_client> gvcp_client::open(ipv4_address host, ipv4_address camera) {
    auto socket = udp_socket::bind({host, 0});
    if (!socket || !socket->connect({camera, gvcp::port})) {
        return std::nullopt;
    }
    return gvcp_client(std::move(*socket));
}

register_read gvcp_client::read(uint32_t address, std::chrono::milliseconds timeout, uint32_t& value) {
    request_ = gvcp::next_request(request_);
    if (!socket_.send(gvcp::make_read_register(request_, address))) {
        return says_nobody_is_there(errno) ? register_read::unreachable : register_read::silent;
    }
    auto const deadline = clock::now() + timeout;
    std::array<std::byte, gvcp::largest_message> memory{};
    for (auto now = clock::now(); now < deadline; now = clock::now()) {
        if (!socket_.wait_readable(std::chrono::ceil<std::chrono::milliseconds>(deadline - now))) {
            break;
        }
        auto const received = socket_.receive(memory);
        if (!received) {
            if (says_nobody_is_there(errno)) {
                return register_read::unreachable;
            }
            continue;
        }
        if (received->bytes > memory.size()) {
            continue;
        }
        auto const message = std::span(memory).first(received->bytes);
        if (auto const answer = gvcp::read_register_answer(message, request_)) {
            if (answer->status != 0) {
                return register_read::refused;
            }
            value = answer->value;
            return register_read::answered;
        }
    }
    return register_read::silent;
}

}  // namespace openpv
