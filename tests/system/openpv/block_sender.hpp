// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Sends blocks with arbitrary contents, as a camera does.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "net/udp_socket.hpp"

/// Contents of a block's leader.
struct block_leader {
    uint16_t payload_type =
        0x0001;  ///< 1: an image, 4: chunk data, 5: extended chunk data; 0x4000 added: with chunks behind it
    uint64_t timestamp = 0;  ///< ticks
    uint32_t pixel_format = 0x01080001;
    uint32_t width = 0;
    uint32_t height = 0;
};

/// GVSP with 16-bit block IDs, from loopback to loopback.
class block_sender {
public:
    /// \param packet_bytes the packet size that the receiver expects, IP header included
    block_sender(uint16_t to_port, uint32_t packet_bytes);

    void send(block_leader const& leader, std::vector<uint8_t> const& payload);
    /// Sends any bytes.
    void send_raw(std::vector<uint8_t> const& datagram);

private:
    enum class packet_kind : uint8_t { leader = 1, trailer = 2, data = 3 };
    void send_packet(packet_kind kind, uint32_t number, std::vector<uint8_t> const& content);

    openpv::udp_socket socket_;
    openpv::udp_endpoint receiver_;
    std::size_t data_bytes_;
    uint16_t block_ = 0;
};

/// Appends a chunk: data, ID and length.
void append_chunk(std::vector<uint8_t>& payload, uint32_t id, std::vector<uint8_t> const& data);
