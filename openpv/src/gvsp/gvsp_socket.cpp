// SPDX-License-Identifier: MIT
#include "gvsp/gvsp_socket.hpp"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>
#include <utility>

#include <netinet/udp.h>
#include <sys/time.h>

namespace openpv {
namespace {

/// Bounds how late the receiver notices a stop request and a silent camera. Shorter than the 20 ms of silence after
/// which the assembler requests the end of a block.
constexpr std::chrono::milliseconds receive_timeout{10};

}  // namespace

std::optional<gvsp_socket> gvsp_socket::open(ipv4_address host) {
    auto socket = udp_socket::bind({host, 0});
    if (!socket) {
        return std::nullopt;
    }
    return gvsp_socket(std::move(*socket));
}

std::optional<gvsp_socket> gvsp_socket::open_group(udp_endpoint group, ipv4_address host) {
    auto socket = udp_socket::join(group, host);
    if (!socket) {
        return std::nullopt;
    }
    return gvsp_socket(std::move(*socket));
}

/// Options that the kernel does not support are not an error.
gvsp_socket::gvsp_socket(udp_socket socket) : socket_(std::move(socket)), batch_(std::make_unique<packet_batch>()) {
    int const on = 1;
    ::setsockopt(socket_.descriptor(), SOL_UDP, UDP_GRO, &on, sizeof on);
    ::setsockopt(socket_.descriptor(), SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
    timeval const wait{0, std::chrono::microseconds(receive_timeout).count()};
    ::setsockopt(socket_.descriptor(), SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
}

gvsp_socket::gvsp_socket(gvsp_socket&& other) noexcept = default;
gvsp_socket::~gvsp_socket() = default;

/// The kernel doubles the requested size to account for its own overhead per packet (socket(7), SO_RCVBUF).
std::size_t gvsp_socket::set_receive_buffer(std::size_t bytes) {
    int const wanted = static_cast<int>(std::min<std::size_t>(bytes, std::numeric_limits<int>::max() / 2));
    if (::setsockopt(socket_.descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &wanted, sizeof wanted) != 0) {
        ::setsockopt(socket_.descriptor(), SOL_SOCKET, SO_RCVBUF, &wanted, sizeof wanted);
    }
    int granted = 0;
    socklen_t length = sizeof granted;
    ::getsockopt(socket_.descriptor(), SOL_SOCKET, SO_RCVBUF, &granted, &length);
    receive_buffer_bytes_ = static_cast<std::size_t>(std::max(granted, 0)) / 2;
    return receive_buffer_bytes_;
}

void gvsp_socket::accept_only(udp_endpoint camera) {
    camera_ = camera;
    if (camera.port != 0) {
        socket_.connect(camera);
    }
}

/// Without packets, the time is the last one at which the socket was surely empty. If this thread is suspended after
/// the system call, packets may have arrived since, and the camera must not be taken for silent.
gvsp_assembler::time_point gvsp_socket::receive(gvsp_assembler& assembler) {
    auto const start = std::chrono::steady_clock::now();
    empty_ = !receive_batch(assembler, MSG_WAITFORONE);
    if (now_ < start) {
        now_ = std::min(std::chrono::steady_clock::now(), start + receive_timeout);
    }
    for (std::size_t batch = 1; batch < max_batches && merged_ && !empty_; ++batch) {
        empty_ = !receive_batch(assembler, MSG_DONTWAIT);
    }
    return now_;
}

/// One merged message is received per call: the packets of the next one can be predicted only when its length is known.
/// \return whether as many messages arrived as were requested
bool gvsp_socket::receive_batch(gvsp_assembler& assembler, int flags) {
    std::size_t const requested = merged_ ? 1 : packet_batch::max_messages;
    auto const headers = batch_->prepare(requested, assembler.expect());
    int const result =
        ::recvmmsg(socket_.descriptor(), headers.data(), static_cast<unsigned>(headers.size()), flags, nullptr);
    if (result <= 0) {
        return false;
    }
    auto const received = static_cast<std::size_t>(result);
    now_ = std::chrono::steady_clock::now();
    bool merged = false;
    for (std::size_t i = 0; i < received; ++i) {
        std::size_t const bytes = headers[i].msg_len;
        std::size_t packet_bytes = std::max<std::size_t>(bytes, 1);
        read_control(headers[i].msg_hdr, packet_bytes);
        merged = merged || packet_bytes < bytes;
        batch_->set_received(i, is_from_camera(batch_->sender(i)) ? bytes : 0, packet_bytes);
    }
    batch_->deliver(received, assembler, now_);
    single_messages_ = merged ? 0 : single_messages_ + received;
    merged_ = single_messages_ < max_single_messages;
    return received == requested;
}

/// \param packet_bytes set to the packet size of a merged message
void gvsp_socket::read_control(msghdr& header, std::size_t& packet_bytes) {
    for (cmsghdr* item = CMSG_FIRSTHDR(&header); item != nullptr; item = CMSG_NXTHDR(&header, item)) {
        if (item->cmsg_level == SOL_UDP && item->cmsg_type == UDP_GRO) {
            int bytes = 0;
            std::memcpy(&bytes, CMSG_DATA(item), sizeof bytes);
            packet_bytes = static_cast<std::size_t>(std::max(bytes, 1));
        } else if (item->cmsg_level == SOL_SOCKET && item->cmsg_type == SO_RXQ_OVFL) {
            std::uint32_t count = 0;
            std::memcpy(&count, CMSG_DATA(item), sizeof count);
            drops_ += count - std::exchange(last_drops_, count);
        }
    }
}

/// Packets of others may have arrived before the socket was connected.
bool gvsp_socket::is_from_camera(sockaddr_in const& sender) {
    if (ntohl(sender.sin_addr.s_addr) != camera_.address.value) {
        return false;
    }
    std::uint16_t const port = ntohs(sender.sin_port);
    if (camera_.port == 0) {
        accept_only({camera_.address, port});
    }
    return camera_.port == port;
}

}  // namespace openpv
