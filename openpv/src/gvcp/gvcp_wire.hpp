// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Datagrams and clock of a control channel.

#include <chrono>
#include <cstddef>
#include <memory>
#include <span>

#include "net/ipv4_address.hpp"

namespace openpv {

/// Transport of a control channel: a connected socket and the clock. Tests replace both.
class gvcp_wire {
public:
    using clock = std::chrono::steady_clock;

    enum class event {
        datagram,
        nothing,  ///< no datagram in time, or a local error that may pass, for example a cable that is not plugged in
        unreachable,  ///< "port unreachable" from the camera's address
    };
    struct reception {
        event what = event::nothing;
        std::size_t bytes = 0;  ///< true length; exceeds the memory's size if the datagram was truncated
    };
    /// Longest wait of `receive`. Bounds how late a deadline is noticed while no datagram arrives.
    static constexpr std::chrono::milliseconds max_wait{20};

    virtual ~gvcp_wire() = default;

    /// \return `datagram` if it was sent
    virtual event send(std::span<std::byte const> datagram) = 0;
    /// Receives a datagram, and waits for it up to `max_wait` if `wait`. One thread at a time.
    virtual reception receive(std::span<std::byte> memory, bool wait) = 0;
    virtual void interrupt() = 0;  ///< from any thread: ends a wait, and each later one at once
    virtual clock::time_point now() const = 0;
};

/// Opens a UDP socket that is connected to the camera's GVCP port: the kernel drops datagrams of other senders.
/// \param host local address to send from
/// \return null if the socket cannot be created or `camera` is unreachable; the reason is in `errno`
std::unique_ptr<gvcp_wire> open_gvcp_wire(ipv4_address host, ipv4_address camera);

}  // namespace openpv
