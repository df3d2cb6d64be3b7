// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// UDP sockets.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "net/ipv4_address.hpp"

namespace openpv {

/// Address and port of a UDP socket.
struct udp_endpoint {
    ipv4_address address;
    std::uint16_t port = 0;  ///< 0 binds to a port that the kernel chooses
};

/// A UDP socket bound to one of the host's addresses, so that its packets leave through the matching interface.
///
/// Owns the file descriptor; movable. A failed operation leaves the reason in `errno`. Not synchronised: one thread
/// uses a socket at a time.
class udp_socket {
public:
    /// \return null if the socket cannot be created or bound
    static std::optional<udp_socket> bind(udp_endpoint local);
    /// Binds to 255.255.255.255, to receive what is broadcast to `port` on one interface. Other sockets may do the
    /// same. \return as `bind`
    static std::optional<udp_socket> bind_to_broadcasts(std::uint16_t port, std::string const& interface);

    /// Joins a multicast group on the interface that has the address `interface`. Other sockets may do the same.
    /// \param group with port 0, the kernel chooses the port
    /// \return as `bind`
    static std::optional<udp_socket> join(udp_endpoint group, ipv4_address interface);

    udp_socket(udp_socket&& other) noexcept;
    udp_socket& operator=(udp_socket&& other) noexcept;
    udp_socket(udp_socket const&) = delete;
    udp_socket& operator=(udp_socket const&) = delete;
    ~udp_socket();

    int descriptor() const { return descriptor_; }  ///< remains owned by the socket
    std::uint16_t local_port() const;               ///< 0 if it cannot be read
    bool allow_broadcast();
    /// From now on, only datagrams from `remote` are received, and its ICMP "port unreachable" messages are reported as
    /// ECONNREFUSED by the next operation.
    bool connect(udp_endpoint remote);

    bool send(std::span<std::byte const> datagram);  ///< to the connected endpoint
    bool send_to(udp_endpoint remote, std::span<std::byte const> datagram);

    struct datagram {
        std::size_t bytes = 0;  ///< true length; exceeds the memory's size if the datagram was truncated
        udp_endpoint sender;
    };
    /// Receives one datagram without waiting.
    /// \return null if there is none (`errno` is EAGAIN), or on an error
    std::optional<datagram> receive(std::span<std::byte> memory);
    /// As `receive`, but waits up to the receive timeout. An empty datagram is returned after `shut_down`.
    std::optional<datagram> wait_and_receive(std::span<std::byte> memory);
    bool set_receive_timeout(std::chrono::milliseconds timeout);
    void shut_down();  ///< from any thread: ends each wait at once, now and later
    /// \return false if nothing arrived within `timeout`
    bool wait_readable(std::chrono::milliseconds timeout) const;

private:
    explicit udp_socket(int descriptor) : descriptor_(descriptor) {}
    std::optional<datagram> receive(std::span<std::byte> memory, int flags);

    int descriptor_ = -1;
};

}  // namespace openpv
