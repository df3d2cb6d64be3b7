#pragma once

#include "stream_faults.hpp"
#include "stream_socket.hpp"

namespace camsim {

/// Where a stream's packets leave: its socket, behind the faults of the line.
class packet_outlet {
public:
    packet_outlet(stream_socket& socket, stream_faults& faults) : socket_(socket), faults_(faults) {}

    stream_socket& socket() { return socket_; }
    stream_faults& faults() { return faults_; }
    std::size_t send(endpoint const& destination, packet_run const& run, stream_block const& block);

private:
    stream_socket& socket_;
    stream_faults& faults_;
};

}  // namespace camsim
