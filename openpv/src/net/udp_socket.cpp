// SPDX-License-Identifier: MIT
#include "net/udp_socket.hpp"

#include <algorithm>
#include <limits>
#include <utility>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace openpv {
namespace {

sockaddr_in to_sockaddr(udp_endpoint endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(endpoint.port);
    address.sin_addr.s_addr = htonl(endpoint.address.value);
    return address;
}

sockaddr const* as_generic(sockaddr_in const& address) {
    return reinterpret_cast<sockaddr const*>(&address);
}

}  // namespace

std::optional<udp_socket> udp_socket::bind(udp_endpoint local) {
    udp_socket made(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    auto const address = to_sockaddr(local);
    if (made.descriptor_ < 0 || ::bind(made.descriptor_, as_generic(address), sizeof address) != 0) {
        return std::nullopt;
    }
    return made;
}

std::optional<udp_socket> udp_socket::bind_to_broadcasts(std::uint16_t port, std::string const& interface) {
    udp_socket made(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    int const on = 1;
    auto const address = to_sockaddr({{0xFFFFFFFF}, port});
    if (made.descriptor_ < 0 || ::setsockopt(made.descriptor_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::setsockopt(made.descriptor_, SOL_SOCKET, SO_BINDTODEVICE, interface.c_str(),
                     static_cast<socklen_t>(interface.size())) != 0 ||
        ::bind(made.descriptor_, as_generic(address), sizeof address) != 0) {
        return std::nullopt;
    }
    return made;
}

/// Bound to the group, so that the socket receives neither other groups nor unicast packets.
std::optional<udp_socket> udp_socket::join(udp_endpoint group, ipv4_address interface) {
    udp_socket made(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    int const on = 1;
    auto const address = to_sockaddr(group);
    ip_mreqn membership{};
    membership.imr_multiaddr = address.sin_addr;
    membership.imr_address.s_addr = htonl(interface.value);
    if (made.descriptor_ < 0 || ::setsockopt(made.descriptor_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::bind(made.descriptor_, as_generic(address), sizeof address) != 0 ||
        ::setsockopt(made.descriptor_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) != 0) {
        return std::nullopt;
    }
    return made;
}

udp_socket::udp_socket(udp_socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

udp_socket& udp_socket::operator=(udp_socket&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

udp_socket::~udp_socket() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

std::uint16_t udp_socket::local_port() const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    return ::getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &length) == 0 ? ntohs(address.sin_port)
                                                                                           : std::uint16_t{0};
}

bool udp_socket::allow_broadcast() {
    int const on = 1;
    return ::setsockopt(descriptor_, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) == 0;
}

bool udp_socket::connect(udp_endpoint remote) {
    auto const address = to_sockaddr(remote);
    return ::connect(descriptor_, as_generic(address), sizeof address) == 0;
}

bool udp_socket::send(std::span<std::byte const> datagram) {
    return ::send(descriptor_, datagram.data(), datagram.size(), 0) == static_cast<ssize_t>(datagram.size());
}

bool udp_socket::send_to(udp_endpoint remote, std::span<std::byte const> datagram) {
    auto const address = to_sockaddr(remote);
    return ::sendto(descriptor_, datagram.data(), datagram.size(), 0, as_generic(address), sizeof address) ==
           static_cast<ssize_t>(datagram.size());
}

std::optional<udp_socket::datagram> udp_socket::receive(std::span<std::byte> memory) {
    return receive(memory, MSG_DONTWAIT);
}

std::optional<udp_socket::datagram> udp_socket::wait_and_receive(std::span<std::byte> memory) {
    return receive(memory, 0);
}

std::optional<udp_socket::datagram> udp_socket::receive(std::span<std::byte> memory, int flags) {
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    ssize_t const got = ::recvfrom(descriptor_, memory.data(), memory.size(), flags | MSG_TRUNC,
                                   reinterpret_cast<sockaddr*>(&sender), &length);
    if (got < 0) {
        return std::nullopt;
    }
    return datagram{static_cast<std::size_t>(got), {{ntohl(sender.sin_addr.s_addr)}, ntohs(sender.sin_port)}};
}

bool udp_socket::set_receive_timeout(std::chrono::milliseconds timeout) {
    auto const seconds = std::chrono::floor<std::chrono::seconds>(timeout);
    timeval const value{seconds.count(), std::chrono::microseconds(timeout - seconds).count()};
    return ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &value, sizeof value) == 0;
}

void udp_socket::shut_down() {
    ::shutdown(descriptor_, SHUT_RDWR);
}

bool udp_socket::wait_readable(std::chrono::milliseconds timeout) const {
    pollfd entry{descriptor_, POLLIN, 0};
    auto const bounded = std::clamp<std::int64_t>(timeout.count(), 0, std::numeric_limits<int>::max());
    return ::poll(&entry, 1, static_cast<int>(bounded)) > 0;
}

}  // namespace openpv
