#pragma once
/// \file
/// The socket that a stream's packets come in at, many at a time.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include <netinet/in.h>
#include <sys/socket.h>

#include "udp_socket.hpp"

namespace openpv {

/// The kernel hands over packets that follow each other as one run of up to 64 kB where it can (UDP_GRO), and several
/// runs at a time. Nothing is allocated but when it is made.
class gvsp_socket {
public:
    /// \return null when there is no socket to be had on that address
    static std::optional<gvsp_socket> open(ipv4_address host);

    gvsp_socket(gvsp_socket&& other) noexcept;
    gvsp_socket& operator=(gvsp_socket&& other) = delete;
    ~gvsp_socket();

    uint16_t local_port() const { return socket_.local_port(); }

    /// Asks for room for that many bytes of packets.
    /// \return how many there is room for now
    std::size_t make_room(std::size_t bytes);
    std::size_t room() const { return room_; }  ///< bytes of packets that there is room for, when that has been asked

    /// From now on packets of others are dropped.
    /// \param camera with port 0, the port that its first packet comes from
    void listen_to(udp_endpoint camera) { camera_ = camera; }

    void wait();  ///< a short time, for packets
    /// Whether `wait` has brought all packets that there were.
    bool is_empty() const { return received_ < asked_; }
    /// Calls `take(std::span<std::byte const>)` for each packet that `wait` brought.
    template <class function>
    void for_each_packet(function&& take) {
        for (std::size_t i = 0; i < received_; ++i) {
            run const received = run_of(i);
            for (std::size_t at = 0; at < received.bytes.size(); at += received.packet_bytes) {
                take(received.bytes.subspan(at, std::min(received.packet_bytes, received.bytes.size() - at)));
            }
        }
    }

    bool send_to(udp_endpoint remote, std::span<std::byte const> datagram) { return socket_.send_to(remote, datagram); }

    uint64_t kernel_drops() const { return drops_; }       ///< packets that found no room
    uint64_t foreign_packets() const { return foreign_; }  ///< packets of somebody else

private:
    /// Runs that are taken at a time: as much memory as a processor's cache has.
    static constexpr std::size_t long_runs = 4;
    static constexpr std::size_t run_bytes = 65536;
    static constexpr std::size_t single_packets = 64;  ///< taken at a time while none follow each other in runs
    struct run {
        std::span<std::byte const> bytes;
        std::size_t packet_bytes = 1;
    };
    struct messages;

    explicit gvsp_socket(udp_socket socket);
    run run_of(std::size_t message);
    bool is_from_camera(sockaddr_in const& sender);

    udp_socket socket_;
    udp_endpoint camera_;
    std::unique_ptr<messages> messages_;
    std::size_t room_ = 0;
    std::size_t asked_ = long_runs;
    std::size_t received_ = 0;  ///< messages that `wait` brought
    bool merged_ = true;        ///< whether a run of several packets was among them
    uint64_t drops_ = 0;
    uint32_t last_drops_ = 0;
    uint64_t foreign_ = 0;
};

}  // namespace openpv
