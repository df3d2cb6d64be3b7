// SPDX-License-Identifier: MIT
#include "stream/stream_socket.hpp"

#include <fcntl.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace camsim {

stream_socket::stream_socket(ipv4_address own_address) : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = to_sockaddr({own_address, 0});
    socklen_t length = sizeof(address);
    if (!socket_ || ::bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::system_error(errno, std::generic_category(),
                                "cannot open a stream channel's socket on " + to_string(own_address));
    }
    port_ = from_sockaddr(address).port;
    set_do_not_fragment(true);
}

bool stream_socket::move(ipv4_address own_address) {
    try {
        stream_socket const other(own_address);
        if (::dup3(other.socket_.get(), socket_.get(), O_CLOEXEC) < 0) {
            return false;
        }
        port_ = other.port_;
        do_not_fragment_ = true;  // as the constructor leaves it
        return true;
    } catch (std::system_error const&) {
        return false;  // not an address of this host, or no descriptors are left
    }
}

void stream_socket::set_do_not_fragment(bool on) {
    if (do_not_fragment_.exchange(on) == on) {
        return;
    }
    int const mode = on ? IP_PMTUDISC_PROBE : IP_PMTUDISC_DONT;
    if (::setsockopt(socket_.get(), IPPROTO_IP, IP_MTU_DISCOVER, &mode, sizeof(mode)) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot set a stream channel's do-not-fragment bit");
    }
}

std::size_t stream_socket::send(endpoint const& destination, packet_run const& run) {
    sockaddr_in address = to_sockaddr(destination);
    std::size_t const packets = run.packet_count();
    if (packets > 1 && segmentation_works_.load(std::memory_order_relaxed) && send_segmented(address, run)) {
        return packets;
    }
    return send_one_by_one(address, run);
}

bool stream_socket::send_segmented(sockaddr_in& destination, packet_run const& run) {
    alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(std::uint16_t))> control{};
    msghdr message{};
    message.msg_name = &destination;
    message.msg_namelen = sizeof(destination);
    message.msg_iov = run.pieces.data();
    message.msg_iovlen = run.pieces.size();
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_UDP;
    header->cmsg_type = UDP_SEGMENT;
    header->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
    auto const segment = static_cast<std::uint16_t>(run.packet_bytes);
    std::memcpy(CMSG_DATA(header), &segment, sizeof(segment));

    ssize_t result = 0;
    do {
        result = ::sendmsg(socket_.get(), &message, MSG_NOSIGNAL);
    } while (result < 0 && errno == EINTR);
    if (result < 0 && (errno == EIO || errno == ENOPROTOOPT || errno == EOPNOTSUPP)) {
        segmentation_works_.store(false,
                                  std::memory_order_relaxed);  // neither the kernel nor the network device can segment
    }
    return result >= 0;
}

std::size_t stream_socket::send_one_by_one(sockaddr_in& destination, packet_run const& run) {
    std::array<mmsghdr, block_packets::max_run_packets> messages{};
    std::size_t const packets = run.packet_count();
    for (std::size_t index = 0; index < packets; ++index) {
        msghdr& message = messages[index].msg_hdr;
        message.msg_name = &destination;
        message.msg_namelen = sizeof(destination);
        message.msg_iov = run.pieces.subspan(index * run.pieces_per_packet).data();
        message.msg_iovlen = run.pieces_per_packet;
    }
    std::size_t sent = 0;
    std::size_t next = 0;
    while (next < packets) {
        int const result =
            ::sendmmsg(socket_.get(), &messages[next], static_cast<unsigned>(packets - next), MSG_NOSIGNAL);
        if (result > 0) {
            sent += static_cast<std::size_t>(result);
            next += static_cast<std::size_t>(result);
        } else if (errno != EINTR) {
            ++next;  // this packet is rejected; later ones may be shorter
        }
    }
    return sent;
}

}  // namespace camsim
