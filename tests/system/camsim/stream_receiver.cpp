// SPDX-License-Identifier: MIT
#include "stream_receiver.hpp"

#include <netinet/udp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace gvsp = camsim::gvsp;

namespace {

constexpr int socket_buffer = 64 << 20;
constexpr std::size_t max_merged_packet = 65536;

/// \return the size of the merged packets, all except the last one; 0 if the kernel merged none
std::size_t merged_packet_size(msghdr& message) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == SOL_UDP && part->cmsg_type == UDP_GRO) {
            int size = 0;
            std::memcpy(&size, CMSG_DATA(part), sizeof(size));
            return static_cast<std::size_t>(size);
        }
    }
    return 0;
}

}  // namespace

stream_receiver::stream_receiver(camsim::ipv4_address own_address)
    : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), buffer_(max_merged_packet) {
    sockaddr_in address = camsim::to_sockaddr({own_address, 0});
    socklen_t length = sizeof(address);
    int const on = 1;
    timeval const timeout{.tv_sec = 0, .tv_usec = 100'000};
    if (!socket_ || ::bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)) != 0 ||
        ::setsockopt(socket_.get(), SOL_UDP, UDP_GRO, &on, sizeof(on)) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot open a stream receiver");
    }
    if (::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &socket_buffer, sizeof(socket_buffer)) != 0) {
        ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &socket_buffer, sizeof(socket_buffer));
    }
    port_ = camsim::from_sockaddr(address).port;
}

/// Makes one receive call and passes its packets to `handle`.
/// \return bytes received; 0 after 100 ms without a packet
std::size_t stream_receiver::receive(packet_handler const& handle) {
    alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(int))> control;
    iovec piece{buffer_.data(), buffer_.size()};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ssize_t const length = ::recvmsg(socket_.get(), &message, 0);
    if (length <= 0) {
        return 0;
    }
    auto const received = std::span<std::byte const>(buffer_).first(static_cast<std::size_t>(length));
    std::size_t const merged = merged_packet_size(message);
    std::size_t const packet_size = merged == 0 ? received.size() : merged;
    for (std::size_t at = 0; at < received.size(); at += packet_size) {
        auto const packet = received.subspan(at, std::min(packet_size, received.size() - at));
        if (auto const header = gvsp::decode_header(packet)) {
            handle(*header, packet.subspan(gvsp::header_size_of(header->ids)));
        }
    }
    return received.size();
}
