#pragma once

#include <cstddef>

#include "ipv4.hpp"
#include "stream_socket.hpp"

namespace camsim {

void send_test_packet(stream_socket& socket, endpoint const& destination, std::size_t packet_size);

}  // namespace camsim
