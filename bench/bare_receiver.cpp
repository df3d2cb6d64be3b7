// SPDX-License-Identifier: MIT
/// \file
/// bare_receiver ADDRESS FRAMES PACKET_SIZE SOCKET_BUFFER AREA: the least work that receives a stream of camsim with a
/// UDP socket. The kernel merges packets (UDP_GRO); this program reads them into an area of AREA bytes, one after the
/// other and again from its begin, and counts them. A small area stays in the processor's caches; with one of several
/// frames, the pixels arrive in memory as those of any receiver. It requests no resends and expects packets in order.
/// It prints a line for each complete frame: the camera's ticks and the time at which its last packet was read, in
/// nanoseconds of UTC.
#include <netinet/udp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "base/file_descriptor.hpp"
#include "device/bootstrap_registers.hpp"
#include "features/camera_features.hpp"
#include "gvcp_client.hpp"
#include "protocol/gvsp_packet.hpp"

namespace {

namespace bootstrap = camsim::bootstrap;
namespace gvsp = camsim::gvsp;

constexpr std::size_t max_merged_bytes = 65536;  // a merged run is at most as long as an IP packet
constexpr timeval silence{.tv_sec = 5, .tv_usec = 0};

std::uint32_t address_of(char const* name) {
    camsim::camera_state state({}, {}, {});
    for (camsim::placed_feature const& feature : camsim::place(camsim::camera_features(state))) {
        if (feature.declaration.name == name) {
            return feature.address;
        }
    }
    throw std::runtime_error(std::string("camsim has no feature ") + name);
}

camsim::file_descriptor open_socket(camsim::ipv4_address own_address, int buffer_bytes, std::uint16_t& port) {
    camsim::file_descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = camsim::to_sockaddr({own_address, 0});
    socklen_t length = sizeof(address);
    int const on = 1;
    if (!socket || ::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &silence, sizeof(silence)) != 0 ||
        ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &buffer_bytes, sizeof(buffer_bytes)) != 0 ||
        ::setsockopt(socket.get(), SOL_UDP, UDP_GRO, &on, sizeof(on)) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot open the stream's socket");
    }
    port = camsim::from_sockaddr(address).port;
    return socket;
}

/// \return the size of the merged packets, all except the last one; `received` if the kernel merged none
std::size_t packet_size(msghdr& message, std::size_t received) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == SOL_UDP && part->cmsg_type == UDP_GRO) {
            int size = 0;
            std::memcpy(&size, CMSG_DATA(part), sizeof(size));
            return static_cast<std::size_t>(size);
        }
    }
    return received;
}

/// Counts the packets of the current block.
class block_counter {
public:
    /// \return whether the packet is the last one of a block from which none is missing
    bool add(std::span<std::byte const> packet) {
        auto const header = gvsp::decode_header(packet);
        if (!header) {
            return false;
        }
        if (header->format == gvsp::packet_format::leader) {
            auto const leader = gvsp::decode_image_leader(packet.subspan(gvsp::header_size_of(header->ids)));
            ticks_ = leader ? leader->timestamp : 0;
            block_id_ = header->block_id;
            packets_ = 0;
        }
        packets_ += header->block_id == block_id_ ? 1U : 0U;
        return header->format == gvsp::packet_format::trailer && header->block_id == block_id_ &&
               packets_ == header->packet_id + 1;  // packet IDs begin at 0
    }
    std::uint64_t ticks() const { return ticks_; }

private:
    std::uint64_t block_id_ = 0;
    std::uint64_t ticks_ = 0;
    std::uint32_t packets_ = 0;
};

/// \return complete frames
unsigned long receive(int socket, unsigned long wanted, std::size_t area_bytes) {
    std::vector<std::byte> area(std::max(area_bytes, max_merged_bytes));
    std::size_t begin = 0;
    alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(int))> control;
    block_counter block;
    unsigned long frames = 0;
    while (frames < wanted) {
        begin = begin + max_merged_bytes <= area.size() ? begin : 0;
        iovec piece{&area[begin], max_merged_bytes};
        msghdr message{};
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        ssize_t const length = ::recvmsg(socket, &message, 0);
        if (length <= 0) {
            break;
        }
        auto const received = std::span<std::byte const>(area).subspan(begin, static_cast<std::size_t>(length));
        begin += received.size();
        std::size_t const step = packet_size(message, received.size());
        for (std::size_t at = 0; at < received.size(); at += step) {
            if (block.add(received.subspan(at, std::min(step, received.size() - at)))) {
                std::chrono::nanoseconds const now = std::chrono::system_clock::now().time_since_epoch();
                std::printf("%llu %lld\n", static_cast<unsigned long long>(block.ticks()),
                            static_cast<long long>(now.count()));
                ++frames;
            }
        }
    }
    return frames;
}

int run(char** argv) {
    auto const address = camsim::parse_ipv4(argv[1]);
    if (!address) {
        throw std::runtime_error(std::string("not a valid IPv4 address: ") + argv[1]);
    }
    unsigned long const wanted = std::strtoul(argv[2], nullptr, 10);
    gvcp_client client(*address);
    std::uint16_t port = 0;
    auto const socket = open_socket(client.own_address(), static_cast<int>(std::strtol(argv[4], nullptr, 10)), port);
    client.write_register(bootstrap::control_channel_privilege, camsim::control_channel::control_access);
    client.write_register(bootstrap::gvcp_configuration, bootstrap::heartbeat_disable);
    client.write_register(bootstrap::stream_packet_size,
                          static_cast<std::uint32_t>(std::strtoul(argv[3], nullptr, 10)));
    client.write_register(bootstrap::stream_destination, client.own_address());
    client.write_register(bootstrap::stream_host_port, port);
    client.write_register(address_of("AcquisitionStart"), 1);
    unsigned long const frames = receive(socket.get(), wanted, std::strtoul(argv[5], nullptr, 10));
    client.write_register(address_of("AcquisitionStop"), 1);
    client.write_register(bootstrap::control_channel_privilege, 0);
    return frames == wanted ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fprintf(stderr, "usage: bare_receiver ADDRESS FRAMES PACKET_SIZE SOCKET_BUFFER AREA\n");
        return EXIT_FAILURE;
    }
    try {
        return run(argv);
    } catch (std::exception const& error) {
        std::fprintf(stderr, "bare_receiver: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
