// SPDX-License-Identifier: MIT
#pragma once

#include "stream/stream_faults.hpp"
#include "stream/stream_socket.hpp"

namespace camsim {

/// The exit of a stream: its socket behind the fault filter. Without an active fault, runs go to the socket unchanged.
/// The referenced objects must outlive it; it may be used by several threads.
class packet_outlet {
public:
    packet_outlet(stream_socket& socket, stream_faults& faults) : socket_(socket), faults_(faults) {}

    stream_socket& socket() { return socket_; }
    stream_faults& faults() { return faults_; }

    /// \param block the block that the packets belong to
    /// \return the number of packets in the run minus those that the kernel rejected; packets that a fault removed
    /// count as sent
    std::size_t send(endpoint const& destination, packet_run const& run, stream_block const& block);

private:
    stream_socket& socket_;
    stream_faults& faults_;
};

}  // namespace camsim
