#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "pixel_format.hpp"
#include "pixel_packing.hpp"

/// GVSP, the streaming protocol of GigE Vision 2.0: packets as bytes. Pure functions, no sockets.
namespace camsim::gvsp {

inline constexpr std::size_t ip_and_udp_header_size = 20 + 8;  ///< the stream channel's packet size includes them
inline constexpr std::size_t header_size = 8;
inline constexpr std::size_t extended_header_size = 20;
inline constexpr std::size_t image_leader_size = 36;
inline constexpr std::size_t image_trailer_size = 8;
inline constexpr std::size_t chunk_trailer_size = 8;  ///< follows the image trailer of a block with chunks

/// Standard IDs are a 16-bit block ID (1 to 65535, then 1 again) and a 24-bit packet ID, extended ones 64 and 32 bits.
enum class id_mode : std::uint8_t { standard, extended };

enum class packet_format : std::uint8_t { leader = 1, trailer = 2, payload = 3 };

enum class payload_type : std::uint16_t {
    image = 0x0001,
    image_with_chunks = 0x4001,  ///< the standard's image with extended chunk data: 0x4000 is the bit for chunks
};

/// Extended headers only; standard ones say "resent" with the status GEV_STATUS_PACKET_RESEND.
inline constexpr std::uint16_t flag_resent = 0x0001;

struct packet_header {
    std::uint16_t status = 0;  ///< a gvcp::status
    std::uint16_t flags = 0;   ///< extended IDs only
    std::uint64_t block_id = 0;
    gvsp::packet_format format = gvsp::packet_format::payload;
    std::uint32_t packet_id = 0;
    id_mode ids = id_mode::standard;
};

struct image_leader {
    std::uint64_t timestamp = 0;  ///< ticks
    pixel_format format = pixel_format::mono8;
    region area;
    payload_type payload = payload_type::image;
};

/// What the trailer of a block with chunks says about them.
struct chunk_trailer {
    std::uint32_t payload_bytes = 0;  ///< of the whole payload: picture, chunks and their trailers
    std::uint32_t layout_id = 0;      ///< changes when chunks move
};

struct image_trailer {
    std::uint32_t height = 0;
    std::optional<chunk_trailer> chunks{};
};

constexpr std::size_t header_size_of(id_mode ids) {
    return ids == id_mode::extended ? extended_header_size : header_size;
}

/// The block ID after `block_id`; 0 is no block ID, it stands for test packets.
constexpr std::uint64_t next_block_id(std::uint64_t block_id, id_mode ids) {
    return ids == id_mode::standard && block_id >= 0xFFFF ? 1 : block_id + 1;
}

// Encoders write at the beginning of `out` and return the number of bytes written.
std::size_t encode_header(packet_header const& header, std::span<std::byte> out);
std::size_t encode_image_leader(image_leader const& leader, std::span<std::byte> out);
std::size_t encode_image_trailer(image_trailer const& trailer, std::span<std::byte> out);

// Decoders, for receivers in measurements and tests; empty when the bytes are not what is asked for.
std::optional<packet_header> decode_header(std::span<std::byte const> packet);
std::optional<image_leader> decode_image_leader(std::span<std::byte const> payload);
std::optional<image_trailer> decode_image_trailer(std::span<std::byte const> payload);

}  // namespace camsim::gvsp
