// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Packets of the GigE Vision Streaming Protocol (GVSP), and the GVCP command that requests a resend. Layouts and
/// numbers are those of the GigE Vision standard; all fields are big-endian. Functions that parse accept any bytes.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace openpv::gvsp {

constexpr std::size_t ip_and_udp_headers = 28;  ///< inclusive in the stream channel packet size
constexpr std::size_t header_bytes = 8;
constexpr std::size_t extended_header_bytes = 20;  ///< with 64-bit block IDs and 32-bit packet IDs

enum class packet_kind : std::uint8_t { leader = 1, trailer = 2, payload = 3 };

/// Status of a packet. The camera answers a resend request with a status other than `present` if it cannot resend.
enum class packet_status : std::uint8_t {
    present,
    not_yet,      ///< will be sent later
    unavailable,  ///< will not be sent
};

struct packet {
    bool extended = false;     ///< 64-bit block ID and 32-bit packet ID
    std::uint64_t block = 0;   ///< from 1; 0 in test packets
    std::uint32_t number = 0;  ///< within the block: 0 is the leader, then the payload from 1, then the trailer
    packet_kind kind = packet_kind::payload;
    packet_status status = packet_status::present;
    std::span<std::byte const> content;  ///< after the header; valid as long as the datagram
};

/// \param datagram UDP payload
/// \return null if it is not a valid GVSP packet
std::optional<packet> parse(std::span<std::byte const> datagram);

/// All members are 0 if the size is unknown.
struct image_size {
    std::uint32_t width = 0;   ///< pixels
    std::uint32_t height = 0;  ///< lines
    std::size_t bytes = 0;     ///< with padding, without chunks

    bool operator==(image_size const&) const = default;
};

/// \param format pixel format code (PFNC)
/// \param padding bytes behind each line
image_size size_of_image(std::uint32_t width, std::uint32_t height, std::uint32_t format, std::uint16_t padding);

struct leader {
    std::uint64_t timestamp = 0;  ///< ticks of the camera clock
    image_size image;             ///< unknown unless the leader describes an image
    bool chunk_data = false;      ///< the block is an image as first chunk, which the leader does not describe

    bool operator==(leader const&) const = default;
};

/// \param content of a leader packet
/// \return null if it is too short for its payload type
std::optional<leader> parse_leader(std::span<std::byte const> content);

/// Largest 16-bit block ID. The next one is 1.
constexpr std::uint64_t max_short_block = 0xFFFF;
/// Largest 24-bit packet number.
constexpr std::uint32_t max_short_packet = 0x00FFFFFF;
/// Distance from block `from` to block `to` across the wrap of IDs; negative if `to` is earlier.
std::int64_t blocks_between(std::uint64_t from, std::uint64_t to, bool extended);

/// Range of packets of a block to resend.
struct resend_request {
    bool extended = false;
    std::uint64_t block = 0;
    std::uint32_t first = 0;
    std::uint32_t last = 0;  ///< inclusive
};

constexpr std::size_t max_resend_request_bytes = 28;
/// Encodes a GVCP PACKETRESEND command.
/// \param id request ID, not 0
/// \param out receives the command
/// \return its length in bytes
std::size_t encode(resend_request const& request, std::uint16_t id,
                   std::array<std::byte, max_resend_request_bytes>& out);

}  // namespace openpv::gvsp
