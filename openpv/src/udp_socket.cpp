#include "udp_socket.hpp"

#include <algorithm>
#include <limits>
#include <utility>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
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

uint16_t udp_socket::local_port() const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    return ::getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &length) == 0 ? ntohs(address.sin_port)
                                                                                           : uint16_t{0};
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
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    ssize_t const got = ::recvfrom(descriptor_, memory.data(), memory.size(), MSG_DONTWAIT | MSG_TRUNC,
                                   reinterpret_cast<sockaddr*>(&sender), &length);
    if (got < 0) {
        return std::nullopt;
    }
    return datagram{static_cast<std::size_t>(got), {{ntohl(sender.sin_addr.s_addr)}, ntohs(sender.sin_port)}};
}

bool udp_socket::wait_readable(std::chrono::milliseconds timeout) const {
    pollfd entry{descriptor_, POLLIN, 0};
    auto const bounded = std::clamp<int64_t>(timeout.count(), 0, std::numeric_limits<int>::max());
    return ::poll(&entry, 1, static_cast<int>(bounded)) > 0;
}

}  // namespace openpv
