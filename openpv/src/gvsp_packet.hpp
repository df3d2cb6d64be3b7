#pragma once
/// \file
/// Packets of the GigE Vision Streaming Protocol as bytes, and the request to send some again. Layouts and numbers are
/// those of the GigE Vision standard, all fields big-endian. Nothing that a packet says is trusted.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace openpv::gvsp {

constexpr std::size_t ip_and_udp_headers = 28;  ///< counted in the stream channel's packet size
constexpr std::size_t header_bytes = 8;
constexpr std::size_t extended_header_bytes = 20;  ///< with 64-bit block IDs and 32-bit packet IDs

enum class packet_kind : uint8_t { leader = 1, trailer = 2, payload = 3 };

/// What a camera says of a packet that it was asked for again.
enum class packet_status : uint8_t {
    present,
    not_yet,  ///< it will be sent
    gone,     ///< it will never be sent again
};

struct packet {
    bool extended = false;  ///< whether the IDs are the long ones
    uint64_t block = 0;     ///< 1 and up; 0 in test packets
    uint32_t number = 0;    ///< within the block: 0 the leader, 1 and up the payload, then the trailer
    packet_kind kind = packet_kind::payload;
    packet_status status = packet_status::present;
    std::span<std::byte const> content;  ///< what follows the header
};

/// \return null when this is no packet of a stream
std::optional<packet> parse(std::span<std::byte const> datagram);

constexpr uint16_t payload_image = 0x0001;
constexpr uint16_t payload_chunks = 0x0004;
constexpr uint16_t payload_with_chunks = 0x4000;  ///< bit: chunks follow the payload

struct leader {
    uint64_t timestamp = 0;  ///< ticks of the camera's counter
    uint32_t width = 0;      ///< pixels; 0 unless the payload is an image
    uint32_t height = 0;     ///< lines
    std::size_t image_bytes =
        0;  ///< of the picture alone, as its size, pixel format and padding make it; 0 when it is no image

    bool operator==(leader const&) const = default;
};

/// \return null when the content is too short for a leader of its payload type
std::optional<leader> parse_leader(std::span<std::byte const> content);

/// Largest block ID of the short kind; the one after it is 1.
constexpr uint64_t last_short_block = 0xFFFF;
/// Largest packet number of the short kind.
constexpr uint32_t last_short_packet = 0x00FFFFFF;
/// How far block `to` comes after block `from`, negative when it comes before.
int64_t blocks_between(uint64_t from, uint64_t to, bool extended);

/// Packets of a block to send again.
struct resend_request {
    bool extended = false;
    uint64_t block = 0;
    uint32_t first = 0;
    uint32_t last = 0;  ///< included
};

constexpr std::size_t longest_resend_request = 28;
/// \param id number of the request, never 0
/// \param out receives the command
/// \return its length
std::size_t encode(resend_request const& request, uint16_t id, std::array<std::byte, longest_resend_request>& out);

}  // namespace openpv::gvsp
