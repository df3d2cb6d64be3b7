// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "base/file_descriptor.hpp"
#include "base/ipv4.hpp"
#include "stream/stream_block.hpp"

namespace camsim {

/// The UDP socket of a stream channel. Several threads may send at the same time.
class stream_socket {
public:
    /// \throws std::system_error if the address is not one of this host
    explicit stream_socket(ipv4_address own_address);

    std::uint16_t port() const { return port_; }

    /// Sends from another address and port from now on.
    /// \return whether the socket has moved; otherwise it stays as it is
    bool move(ipv4_address own_address);

    /// With the bit set, the kernel rejects packets longer than the link's MTU; without it, it fragments them.
    void set_do_not_fragment(bool on);

    /// Sends a run: in one system call where the kernel segments (UDP_SEGMENT), with sendmmsg elsewhere.
    /// \return packets sent; the kernel rejected the others because they are too long for the link or no buffer is free
    std::size_t send(endpoint const& destination, packet_run const& run);

private:
    bool send_segmented(sockaddr_in& destination, packet_run const& run);
    std::size_t send_one_by_one(sockaddr_in& destination, packet_run const& run);

    file_descriptor socket_;
    std::uint16_t port_ = 0;
    std::atomic<bool> do_not_fragment_ = false;  ///< the socket's present setting
    std::atomic<bool> segmentation_works_ = true;
};

}  // namespace camsim
