#include "gvsp_packet.hpp"

#include <algorithm>

#include "byte_order.hpp"

namespace camsim::gvsp {

namespace {

constexpr std::uint32_t extended_ids_bit = 0x8000'0000;  // of the word that begins with the packet format
constexpr std::uint32_t packet_id_mask = 0x00FF'FFFF;

/// The payload type of a leader or a trailer, when it is one that is understood.
std::optional<payload_type> decode_payload_type(std::span<std::byte const> payload) {
    auto const type = static_cast<payload_type>(load_be16(payload, 2));
    bool const known = type == payload_type::image || type == payload_type::image_with_chunks;
    return known ? std::optional(type) : std::nullopt;
}

}  // namespace

std::size_t encode_header(packet_header const& header, std::span<std::byte> out) {
    std::uint32_t const format = static_cast<std::uint32_t>(header.format) << 24U;
    store_be16(out, 0, header.status);
    if (header.ids == id_mode::standard) {
        store_be16(out, 2, static_cast<std::uint16_t>(header.block_id));
        store_be32(out, 4, format | (header.packet_id & packet_id_mask));
        return header_size;
    }
    store_be16(out, 2, header.flags);
    store_be32(out, 4, extended_ids_bit | format);
    store_be64(out, 8, header.block_id);
    store_be32(out, 16, header.packet_id);
    return extended_header_size;
}

std::size_t encode_image_leader(image_leader const& leader, std::span<std::byte> out) {
    std::ranges::fill(out.first(image_leader_size), std::byte{0});
    store_be16(out, 2, static_cast<std::uint16_t>(leader.payload));
    store_be64(out, 4, leader.timestamp);
    store_be32(out, 12, static_cast<std::uint32_t>(leader.format));
    store_be32(out, 16, leader.area.width);
    store_be32(out, 20, leader.area.height);
    store_be32(out, 24, leader.area.offset_x);
    store_be32(out, 28, leader.area.offset_y);
    return image_leader_size;
}

std::size_t encode_image_trailer(image_trailer const& trailer, std::span<std::byte> out) {
    store_be16(out, 0, 0);
    payload_type const type = trailer.chunks ? payload_type::image_with_chunks : payload_type::image;
    store_be16(out, 2, static_cast<std::uint16_t>(type));
    store_be32(out, 4, trailer.height);
    if (!trailer.chunks) {
        return image_trailer_size;
    }
    store_be32(out, 8, trailer.chunks->payload_bytes);
    store_be32(out, 12, trailer.chunks->layout_id);
    return image_trailer_size + chunk_trailer_size;
}

std::optional<packet_header> decode_header(std::span<std::byte const> packet) {
    if (packet.size() < header_size) {
        return std::nullopt;
    }
    packet_header header;
    std::uint32_t const word = load_be32(packet, 4);
    header.status = load_be16(packet, 0);
    header.format = static_cast<packet_format>(word >> 24U & 0x0FU);
    if ((word & extended_ids_bit) == 0) {
        header.block_id = load_be16(packet, 2);
        header.packet_id = word & packet_id_mask;
        return header;
    }
    if (packet.size() < extended_header_size) {
        return std::nullopt;
    }
    header.ids = id_mode::extended;
    header.flags = load_be16(packet, 2);
    header.block_id = load_be64(packet, 8);
    header.packet_id = load_be32(packet, 16);
    return header;
}

std::optional<image_leader> decode_image_leader(std::span<std::byte const> payload) {
    if (payload.size() < image_leader_size) {
        return std::nullopt;
    }
    auto const type = decode_payload_type(payload);
    if (!type) {
        return std::nullopt;
    }
    return image_leader{
        load_be64(payload, 4), static_cast<pixel_format>(load_be32(payload, 12)),
        region{load_be32(payload, 16), load_be32(payload, 20), load_be32(payload, 24), load_be32(payload, 28)}, *type};
}

std::optional<image_trailer> decode_image_trailer(std::span<std::byte const> payload) {
    if (payload.size() < image_trailer_size) {
        return std::nullopt;
    }
    auto const type = decode_payload_type(payload);
    if (!type ||
        (type == payload_type::image_with_chunks && payload.size() < image_trailer_size + chunk_trailer_size)) {
        return std::nullopt;
    }
    image_trailer trailer{load_be32(payload, 4)};
    if (type == payload_type::image_with_chunks) {
        trailer.chunks = chunk_trailer{load_be32(payload, 8), load_be32(payload, 12)};
    }
    return trailer;
}

}  // namespace camsim::gvsp
