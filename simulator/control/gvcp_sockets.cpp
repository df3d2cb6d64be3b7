// SPDX-License-Identifier: MIT
#include "control/gvcp_sockets.hpp"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace camsim {

namespace {

constexpr ipv4_address limited_broadcast = 0xFFFF'FFFF;

void enable(int socket, int level, int option) {
    int const on = 1;
    if (::setsockopt(socket, level, option, &on, sizeof(on)) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot set an option of a GVCP socket");
    }
}

/// \param shared true for broadcast addresses, which several cameras of this host listen on
file_descriptor open_socket(ipv4_address address, bool shared) {
    file_descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) {
        throw std::system_error(errno, std::generic_category(), "cannot open a GVCP socket");
    }
    if (shared) {
        enable(socket.get(), SOL_SOCKET, SO_REUSEADDR);
        enable(socket.get(), IPPROTO_IP, IP_PKTINFO);
    }
    sockaddr_in const name = to_sockaddr({address, gvcp::port});
    if (::bind(socket.get(), reinterpret_cast<sockaddr const*>(&name), sizeof(name)) != 0) {
        std::string const where = to_string(address) + ":" + std::to_string(gvcp::port);
        throw std::system_error(errno, std::generic_category(),
                                errno == EADDRINUSE
                                    ? "another camera listens on " + where + "; choose another address with --address"
                                    : "cannot listen on " + where);
    }
    return socket;
}

/// Index of the interface that a broadcast arrived on; 0 if the kernel did not report it.
unsigned arrival_interface(msghdr& message) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_PKTINFO) {
            in_pktinfo info{};
            std::memcpy(&info, CMSG_DATA(part), sizeof(info));
            return static_cast<unsigned>(info.ipi_ifindex);
        }
    }
    return 0;
}

}  // namespace

gvcp_sockets::gvcp_sockets(network_interface const& interface)
    : interface_index_(interface.index), address_(interface.address), unicast_(open_socket(interface.address, false)) {
    broadcast_.push_back(open_socket(limited_broadcast, true));
    if (interface.broadcast_address() != interface.address) {
        broadcast_.push_back(open_socket(interface.broadcast_address(), true));
    }
}

std::vector<int> gvcp_sockets::descriptors() const {
    std::vector<int> all{unicast_.get()};
    for (file_descriptor const& one : broadcast_) {
        all.push_back(one.get());
    }
    return all;
}

std::optional<gvcp_sockets::arrival> gvcp_sockets::receive(int descriptor) {
    alignas(cmsghdr) std::array<std::byte, 128> control;
    sockaddr_in sender{};
    iovec piece{buffer_.data(), buffer_.size()};
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof(sender);
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    delivery const how = descriptor == unicast_.get() ? delivery::unicast : delivery::broadcast;
    ssize_t const length = ::recvmsg(descriptor, &message, 0);
    if (length < 0 || (how == delivery::broadcast && arrival_interface(message) != interface_index_)) {
        return std::nullopt;
    }
    return arrival{std::span(buffer_).first(static_cast<std::size_t>(length)), from_sockaddr(sender), how};
}

void gvcp_sockets::send(endpoint const& destination, std::span<std::byte const> datagram) {
    sockaddr_in const address = to_sockaddr(destination);
    ::sendto(unicast_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL,
             reinterpret_cast<sockaddr const*>(&address), sizeof(address));
}

bool gvcp_sockets::move(ipv4_address to) {
    if (to == address_) {
        return true;
    }
    auto const interface = interface_with_address(to);
    if (!interface || interface->index != interface_index_) {
        return false;
    }
    try {
        file_descriptor const other = open_socket(to, false);
        if (::dup3(other.get(), unicast_.get(), O_CLOEXEC) < 0) {
            return false;
        }
        address_ = to;
        return true;
    } catch (std::system_error const&) {
        return false;  // another camera has the address
    }
}

void gvcp_sockets::discard() {
    for (int const descriptor : descriptors()) {
        while (::recv(descriptor, buffer_.data(), buffer_.size(), 0) >= 0 || errno == EINTR) {
        }
    }
}

}  // namespace camsim
