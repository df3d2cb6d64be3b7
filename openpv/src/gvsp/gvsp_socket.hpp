// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// UDP socket that receives a stream's packets, many per system call.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include <netinet/in.h>
#include <sys/socket.h>

#include "gvsp/gvsp_assembler.hpp"
#include "gvsp/packet_batch.hpp"
#include "net/udp_socket.hpp"

namespace openpv {

/// Receives packets in batches.
///
/// Where it can (`UDP_GRO`), the kernel merges consecutive packets into one message of up to 64 kB. Without `UDP_GRO`
/// each message is one packet, and a system call receives many of them. Data of packets that were predicted goes
/// directly into the frame. Packets from addresses other than the camera's are dropped.
///
/// Owns the socket and the memory of one batch. Allocates only on construction. Not thread-safe: used by the receiver's
/// thread once that runs. Socket options that the kernel does not support are not an error; the counts that depend on
/// them stay 0.
class gvsp_socket {
public:
    /// \param host local address to bind to; the port is chosen by the kernel
    /// \return null if the socket cannot be created or bound; the reason is in `errno`
    static std::optional<gvsp_socket> open(ipv4_address host);

    /// Receives what the camera sends to a multicast group.
    /// \param group with port 0, the kernel chooses the port
    /// \param host local address on the camera's network
    /// \return as `open`
    static std::optional<gvsp_socket> open_group(udp_endpoint group, ipv4_address host);

    gvsp_socket(gvsp_socket&& other) noexcept;
    gvsp_socket& operator=(gvsp_socket&& other) = delete;
    ~gvsp_socket();

    std::uint16_t local_port() const { return socket_.local_port(); }

    /// Requests a receive buffer for that many bytes of packets.
    /// \return the capacity granted. Without CAP_NET_ADMIN the kernel limits it to `net.core.rmem_max`.
    std::size_t set_receive_buffer(std::size_t bytes);
    std::size_t receive_buffer_bytes() const { return receive_buffer_bytes_; }  ///< capacity; 0 before it is set

    /// From now on, drops packets from other senders. Connects the socket, so that the kernel drops them before they
    /// take space in the receive buffer. \param camera with port 0, the source port of its first packet is used
    void accept_only(udp_endpoint camera);

    /// Receives what has arrived, and passes it to the assembler. Returns at once if there are packets, and otherwise
    /// after a packet or 10 ms.
    /// \return the time of the last packets; without packets, a time at which the socket was empty
    gvsp_assembler::time_point receive(gvsp_assembler& assembler);
    /// Whether the last `receive` emptied the socket.
    bool is_empty() const { return empty_; }

    bool send_to(udp_endpoint remote, std::span<std::byte const> datagram) { return socket_.send_to(remote, datagram); }

    std::uint64_t kernel_drops() const { return drops_; }  ///< packets dropped because the receive buffer was full

private:
    /// Batches per call while the kernel merges packets. Bounds the time between two polls of the assembler: 1 MB.
    static constexpr std::size_t max_batches = 16;
    /// After this many messages of one packet the kernel is taken to merge none: a leader and a trailer come alone.
    static constexpr std::size_t max_single_messages = 4;

    explicit gvsp_socket(udp_socket socket);
    bool receive_batch(gvsp_assembler& assembler, int flags);
    void read_control(msghdr& header, std::size_t& packet_bytes);
    bool is_from_camera(sockaddr_in const& sender);

    udp_socket socket_;
    udp_endpoint camera_;
    std::unique_ptr<packet_batch> batch_;
    std::size_t receive_buffer_bytes_ = 0;
    bool empty_ = false;
    bool merged_ = true;               ///< whether the kernel merges packets
    std::size_t single_messages_ = 0;  ///< since the last merged one
    gvsp_assembler::time_point now_;
    std::uint64_t drops_ = 0;
    std::uint32_t last_drops_ = 0;
};

}  // namespace openpv
