// SPDX-License-Identifier: MIT
#include "stream/test_packet.hpp"

#include <vector>

namespace camsim {

void send_test_packet(stream_socket& socket, endpoint const& destination, std::size_t packet_size) {
    std::vector<std::byte> packet(packet_size - gvsp::ip_and_udp_header_size);
    gvsp::encode_header({}, packet);
    iovec piece{packet.data(), packet.size()};
    socket.send(destination, {std::span(&piece, 1), 1, packet.size()});
}

}  // namespace camsim
