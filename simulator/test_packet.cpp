#include "test_packet.hpp"

#include <vector>

namespace camsim {

/// Sends the stream channel's test packet: block ID and packet ID 0, a payload packet as long as the channel's packet
/// size asks for. An application fires it to learn whether a size gets through; a packet too long for the link is
/// simply not sent.
///
/// \param packet_size bytes with IP, UDP and GVSP headers
void send_test_packet(stream_socket& socket, endpoint const& destination, std::size_t packet_size) {
    std::vector<std::byte> packet(packet_size - gvsp::ip_and_udp_header_size);
    gvsp::encode_header({}, packet);
    iovec piece{packet.data(), packet.size()};
    socket.send(destination, {std::span(&piece, 1), 1, packet.size()});
}

}  // namespace camsim
