// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

#include "base/ipv4.hpp"
#include "stream/stream_socket.hpp"

namespace camsim {

/// Sends a stream channel's test packet (GevSCPSFireTestPacket): a payload packet with block ID and packet ID 0.
/// Applications use it to find the largest packet size that reaches them; a packet too long for the link is not sent.
/// \param packet_size bytes with IP, UDP and GVSP headers
void send_test_packet(stream_socket& socket, endpoint const& destination, std::size_t packet_size);

}  // namespace camsim
