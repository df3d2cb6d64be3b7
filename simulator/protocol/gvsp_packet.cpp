// SPDX-License-Identifier: MIT
#include "protocol/gvsp_packet.hpp"

#include <algorithm>
#include <array>

#include "base/byte_order.hpp"

namespace camsim::gvsp {

namespace {

constexpr std::uint32_t extended_ids_bit = 0x8000'0000;  // in the header word that starts with the packet format
constexpr std::uint32_t packet_id_mask = 0x00FF'FFFF;
constexpr std::size_t min_content_size = 4;  // of leaders and trailers: reserved, payload type

/// The payload type of a leader or trailer; empty if it is not supported.
std::optional<payload_type> decode_payload_type(std::span<std::byte const> payload) {
    if (payload.size() < min_content_size) {
        return std::nullopt;
    }
    auto const type = static_cast<payload_type>(load_be16(payload, 2));
    switch (type) {
        case payload_type::image:
        case payload_type::chunk_data:
        case payload_type::extended_chunk_data:
        case payload_type::image_with_chunks:
            return type;
    }
    return std::nullopt;
}

std::size_t leader_size_of(payload_type type) {
    return type == payload_type::chunk_data ? chunk_leader_size : image_leader_size;
}

/// The words behind the payload type of a trailer, in their order on the wire.
std::span<std::uint32_t image_trailer::*const> trailer_words(payload_type type) {
    using word = std::uint32_t image_trailer::*;
    static constexpr std::array<word, 1> image{&image_trailer::height};
    static constexpr std::array<word, 1> chunk_data{&image_trailer::payload_bytes};
    static constexpr std::array<word, 3> extended_chunk_data{&image_trailer::payload_bytes, &image_trailer::height,
                                                             &image_trailer::layout_id};
    static constexpr std::array<word, 3> image_with_chunks{&image_trailer::height, &image_trailer::payload_bytes,
                                                           &image_trailer::layout_id};
    switch (type) {
        case payload_type::image:
            return image;
        case payload_type::chunk_data:
            return chunk_data;
        case payload_type::extended_chunk_data:
            return extended_chunk_data;
        case payload_type::image_with_chunks:
            break;
    }
    return image_with_chunks;
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
    std::size_t const size = leader_size_of(leader.payload);
    std::ranges::fill(out.first(size), std::byte{0});
    store_be16(out, 2, static_cast<std::uint16_t>(leader.payload));
    store_be64(out, 4, leader.timestamp);
    if (size == chunk_leader_size) {
        return size;
    }
    store_be32(out, 12, static_cast<std::uint32_t>(leader.format));
    store_be32(out, 16, leader.area.width);
    store_be32(out, 20, leader.area.height);
    store_be32(out, 24, leader.area.offset_x);
    store_be32(out, 28, leader.area.offset_y);
    return size;
}

std::size_t encode_image_trailer(image_trailer const& trailer, std::span<std::byte> out) {
    store_be16(out, 0, 0);
    store_be16(out, 2, static_cast<std::uint16_t>(trailer.payload));
    std::size_t size = min_content_size;
    for (auto const word : trailer_words(trailer.payload)) {
        store_be32(out, size, trailer.*word);
        size += 4;
    }
    return size;
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
    auto const type = decode_payload_type(payload);
    if (!type || payload.size() < leader_size_of(*type)) {
        return std::nullopt;
    }
    if (*type == payload_type::chunk_data) {
        return image_leader{.timestamp = load_be64(payload, 4), .payload = *type};
    }
    return image_leader{
        load_be64(payload, 4), static_cast<pixel_format>(load_be32(payload, 12)),
        region{load_be32(payload, 16), load_be32(payload, 20), load_be32(payload, 24), load_be32(payload, 28)}, *type};
}

std::optional<image_trailer> decode_image_trailer(std::span<std::byte const> payload) {
    auto const type = decode_payload_type(payload);
    if (!type || payload.size() < min_content_size + 4 * trailer_words(*type).size()) {
        return std::nullopt;
    }
    image_trailer trailer{*type};
    std::size_t offset = min_content_size;
    for (auto const word : trailer_words(*type)) {
        trailer.*word = load_be32(payload, offset);
        offset += 4;
    }
    return trailer;
}

}  // namespace camsim::gvsp
