#include "gvsp_socket.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <limits>
#include <utility>

#include <netinet/udp.h>
#include <sys/time.h>

namespace openpv {
namespace {

/// How soon a receiver notices that it is to stop, or that packets have ceased to come.
constexpr std::chrono::milliseconds longest_wait{10};

}  // namespace

struct gvsp_socket::messages {
    /// Only what packets have come to is ever memory in use. Places do not begin at multiples of a power of two: single
    /// packets would else push each other out of the processor's cache.
    static constexpr std::size_t place_bytes = run_bytes + 1600;
    std::unique_ptr<std::byte[]> memory = std::make_unique_for_overwrite<std::byte[]>(place_bytes * single_packets);
    std::array<mmsghdr, single_packets> headers{};
    std::array<iovec, single_packets> places{};
    std::array<sockaddr_in, single_packets> senders{};
    /// Run length and drop count.
    struct alignas(cmsghdr) control {
        std::array<std::byte, CMSG_SPACE(sizeof(int)) + CMSG_SPACE(sizeof(uint32_t))> bytes;
    };
    std::array<control, single_packets> controls{};

    std::byte* place(std::size_t message) const { return memory.get() + message * place_bytes; }

    void prepare(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            places[i] = {place(i), run_bytes};
            msghdr& header = headers[i].msg_hdr;
            header.msg_name = &senders[i];
            header.msg_namelen = sizeof senders[i];
            header.msg_iov = &places[i];
            header.msg_iovlen = 1;
            header.msg_control = controls[i].bytes.data();
            header.msg_controllen = controls[i].bytes.size();
        }
    }
};

std::optional<gvsp_socket> gvsp_socket::open(ipv4_address host) {
    auto socket = udp_socket::bind({host, 0});
    if (!socket) {
        return std::nullopt;
    }
    return gvsp_socket(std::move(*socket));
}

/// What a kernel without an option would have told is 0 then.
gvsp_socket::gvsp_socket(udp_socket socket) : socket_(std::move(socket)), messages_(std::make_unique<messages>()) {
    int const on = 1;
    ::setsockopt(socket_.descriptor(), SOL_UDP, UDP_GRO, &on, sizeof on);
    ::setsockopt(socket_.descriptor(), SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
    timeval const wait{0, std::chrono::microseconds(longest_wait).count()};
    ::setsockopt(socket_.descriptor(), SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
}

gvsp_socket::gvsp_socket(gvsp_socket&& other) noexcept = default;
gvsp_socket::~gvsp_socket() = default;

/// The kernel doubles what it is asked for, because packets need more memory than their bytes.
std::size_t gvsp_socket::make_room(std::size_t bytes) {
    int const wanted = static_cast<int>(std::min<std::size_t>(bytes, std::numeric_limits<int>::max() / 2));
    if (::setsockopt(socket_.descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &wanted, sizeof wanted) != 0) {
        ::setsockopt(socket_.descriptor(), SOL_SOCKET, SO_RCVBUF, &wanted, sizeof wanted);
    }
    int granted = 0;
    socklen_t length = sizeof granted;
    ::getsockopt(socket_.descriptor(), SOL_SOCKET, SO_RCVBUF, &granted, &length);
    room_ = static_cast<std::size_t>(std::max(granted, 0)) / 2;
    return room_;
}

void gvsp_socket::wait() {
    asked_ = merged_ ? long_runs : single_packets;
    messages_->prepare(asked_);
    int const count = ::recvmmsg(socket_.descriptor(), messages_->headers.data(), static_cast<unsigned>(asked_),
                                 MSG_WAITFORONE, nullptr);
    received_ = static_cast<std::size_t>(std::max(count, 0));
    if (received_ == asked_) {
        merged_ = false;  // unless one of them shows otherwise
    }
}

gvsp_socket::run gvsp_socket::run_of(std::size_t message) {
    mmsghdr& received = messages_->headers[message];
    run found{std::span<std::byte const>(messages_->place(message), received.msg_len), received.msg_len};
    for (cmsghdr* item = CMSG_FIRSTHDR(&received.msg_hdr); item != nullptr;
         item = CMSG_NXTHDR(&received.msg_hdr, item)) {
        if (item->cmsg_level == SOL_UDP && item->cmsg_type == UDP_GRO) {
            int bytes = 0;
            std::memcpy(&bytes, CMSG_DATA(item), sizeof bytes);
            found.packet_bytes = static_cast<std::size_t>(std::max(bytes, 1));
            merged_ = merged_ || found.packet_bytes < found.bytes.size();
        } else if (item->cmsg_level == SOL_SOCKET && item->cmsg_type == SO_RXQ_OVFL) {
            uint32_t count = 0;
            std::memcpy(&count, CMSG_DATA(item), sizeof count);
            drops_ += count - std::exchange(last_drops_, count);
        }
    }
    if (!is_from_camera(messages_->senders[message])) {
        ++foreign_;
        return {};
    }
    return found;
}

bool gvsp_socket::is_from_camera(sockaddr_in const& sender) {
    if (ntohl(sender.sin_addr.s_addr) != camera_.address.value) {
        return false;
    }
    uint16_t const port = ntohs(sender.sin_port);
    if (camera_.port == 0) {
        camera_.port = port;
    }
    return camera_.port == port;
}

}  // namespace openpv
