// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "image/pfnc.hpp"
#include "image/pixel_packing.hpp"

/// GVSP, the streaming protocol of GigE Vision 2.0: encodes and decodes packets. Pure functions without sockets.
namespace camsim::gvsp {

inline constexpr std::size_t ip_and_udp_header_size = 20 + 8;  ///< the stream channel's packet size includes them
inline constexpr std::size_t header_size = 8;
inline constexpr std::size_t extended_header_size = 20;
inline constexpr std::size_t image_leader_size = 36;
inline constexpr std::size_t chunk_leader_size = 12;  ///< of payload_type::chunk_data: without the image's size
inline constexpr std::size_t image_trailer_size = 8;

/// Standard IDs are a 16-bit block ID (1 to 65535, then 1 again) and a 24-bit packet ID, extended ones 64 and 32 bits.
enum class id_mode : std::uint8_t { standard, extended };

/// Packet formats; in the header they occupy 4 bits.
enum class packet_format : std::uint8_t { leader = 1, trailer = 2, payload = 3 };

/// Payload types of leaders and trailers.
enum class payload_type : std::uint16_t {
    image = 0x0001,
    chunk_data = 0x0004,           ///< its leader and trailer do not describe the image
    extended_chunk_data = 0x0005,  ///< GigE Vision 1.2; deprecated since 2.0
    image_with_chunks = 0x4001,    ///< image with extended chunk data; 0x4000 is the flag for chunks
};

/// Extended headers only; standard headers mark resent packets with status GEV_STATUS_PACKET_RESEND.
inline constexpr std::uint16_t flag_resent = 0x0001;

/// The header of a GVSP packet in both ID modes.
struct packet_header {
    std::uint16_t status = 0;  ///< a gvcp::status
    std::uint16_t flags = 0;   ///< extended IDs only
    std::uint64_t block_id = 0;
    gvsp::packet_format format = gvsp::packet_format::payload;
    std::uint32_t packet_id = 0;
    id_mode ids = id_mode::standard;
};

/// The leader of a block with an image.
struct image_leader {
    std::uint64_t timestamp = 0;  ///< ticks
    /// With payload_type::chunk_data, only this type and the timestamp are encoded.
    pixel_format format = pixel_format::mono8;
    region area{};
    payload_type payload = payload_type::image;
};

/// The trailer of a block with an image. The payload type decides which of the other members are encoded.
struct image_trailer {
    payload_type payload = payload_type::image;
    std::uint32_t height = 0;         ///< not with payload_type::chunk_data
    std::uint32_t payload_bytes = 0;  ///< complete payload: image, chunks and their trailers; only with chunks
    std::uint32_t layout_id = 0;  ///< see chunk_layout_id(); only with chunks, and not with payload_type::chunk_data
};

constexpr std::size_t header_size_of(id_mode ids) {
    return ids == id_mode::extended ? extended_header_size : header_size;
}

/// The block ID after `block_id`. ID 0 is reserved for test packets.
constexpr std::uint64_t next_block_id(std::uint64_t block_id, id_mode ids) {
    return ids == id_mode::standard && block_id >= 0xFFFF ? 1 : block_id + 1;
}

// Encoders write to the start of `out`, which must be large enough, and return the number of bytes written.
std::size_t encode_header(packet_header const& header, std::span<std::byte> out);
std::size_t encode_image_leader(image_leader const& leader, std::span<std::byte> out);
std::size_t encode_image_trailer(image_trailer const& trailer, std::span<std::byte> out);

// Decoders, for measurements and tests; the result is empty if the bytes are not of that type.
std::optional<packet_header> decode_header(std::span<std::byte const> packet);
std::optional<image_leader> decode_image_leader(std::span<std::byte const> payload);
std::optional<image_trailer> decode_image_trailer(std::span<std::byte const> payload);

}  // namespace camsim::gvsp
