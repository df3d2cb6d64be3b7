// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "protocol/gvsp_packet.hpp"

namespace camsim {

/// How a block is divided into packets: leader (packet 0), payload packets (1 to n) and trailer (n + 1). All payload
/// packets except the last one fill the stream channel's packet size, which includes IP, UDP and GVSP headers.
class block_layout {
public:
    struct byte_range {
        std::size_t begin;
        std::size_t end;
    };

    /// \param packet_size bytes with all headers; must be larger than the headers
    constexpr block_layout(std::size_t payload_bytes, std::size_t packet_size, gvsp::id_mode ids)
        : payload_bytes_(payload_bytes),
          packet_payload_(packet_size - gvsp::ip_and_udp_header_size - gvsp::header_size_of(ids)) {}

    constexpr std::size_t packet_payload() const { return packet_payload_; }
    constexpr std::uint32_t payload_packets() const {
        return static_cast<std::uint32_t>((payload_bytes_ + packet_payload_ - 1) / packet_payload_);
    }
    constexpr std::uint32_t trailer_id() const { return payload_packets() + 1; }
    constexpr std::uint32_t packet_count() const { return payload_packets() + 2; }

    /// The bytes of the payload that payload packet `packet_id` (1 to n) carries.
    constexpr byte_range bytes_of(std::uint32_t packet_id) const {
        std::size_t const begin = (packet_id - 1) * packet_payload_;
        return {begin, std::min(begin + packet_payload_, payload_bytes_)};
    }

private:
    std::size_t payload_bytes_;
    std::size_t packet_payload_;
};

}  // namespace camsim
