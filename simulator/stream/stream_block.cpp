// SPDX-License-Identifier: MIT
#include "stream/stream_block.hpp"

#include <algorithm>

#include "protocol/gvcp_packet.hpp"

namespace camsim {

block_packets::block_packets(scene_settings const& scene) : strip_(scene, max_run_bytes) {}

void block_packets::begin(stream_block const& block) {
    block_ = block;
    std::array<std::byte, max_chunk_bytes> chunks{};
    std::size_t const length = encode_chunks(
        block.chunks, {block.frame.gain, block.frame.exposure_us, block.timestamp, block.frame.frame_number},
        block.image_bytes(), chunks);
    strip_.begin(block.frame, std::span(chunks).first(length));
}

std::uint32_t block_packets::max_packets_per_run() const {
    std::size_t const packet_bytes = block_.packet_size - gvsp::ip_and_udp_header_size;
    return static_cast<std::uint32_t>(
        std::clamp<std::size_t>(max_run_bytes / packet_bytes, 1, std::size_t{max_run_packets}));
}

packet_run block_packets::leader(bool resent) {
    std::size_t const header = write_header(0, gvsp::packet_format::leader, 0, resent);
    std::size_t const leader = gvsp::encode_image_leader(
        {block_.timestamp, block_.frame.format, block_.frame.area, block_.payload}, header_memory(0).subspan(header));
    return single_packet(header + leader);
}

packet_run block_packets::trailer(bool resent) {
    std::size_t const header = write_header(0, gvsp::packet_format::trailer, block_.layout().trailer_id(), resent);
    std::size_t const trailer = gvsp::encode_image_trailer(
        {block_.payload, block_.frame.area.height, static_cast<std::uint32_t>(block_.payload_bytes()),
         chunk_layout_id(block_.chunks, block_.image_bytes())},
        header_memory(0).subspan(header));
    return single_packet(header + trailer);
}

packet_run block_packets::payload(std::uint32_t first_packet, std::uint32_t count, bool resent) {
    block_layout const layout = block_.layout();
    std::size_t const begin = layout.bytes_of(first_packet).begin;
    std::span<std::byte const> const data = strip_.bytes(begin, layout.bytes_of(first_packet + count - 1).end);
    for (std::uint32_t index = 0; index < count; ++index) {
        block_layout::byte_range const range = layout.bytes_of(first_packet + index);
        std::size_t const header = write_header(index, gvsp::packet_format::payload, first_packet + index, resent);
        pieces_[2UL * index] = {header_memory(index).data(), header};
        // sendmsg does not write through an iovec, although its pointer is not const.
        pieces_[2UL * index + 1] = {const_cast<std::byte*>(data.data() + (range.begin - begin)),
                                    range.end - range.begin};
    }
    return {std::span(pieces_).first(2UL * count), 2, block_.packet_size - gvsp::ip_and_udp_header_size};
}

std::span<std::byte> block_packets::header_memory(std::uint32_t index) {
    return std::span(headers_).subspan(index * header_slot, header_slot);
}

std::size_t block_packets::write_header(std::uint32_t index, gvsp::packet_format format, std::uint32_t packet_id,
                                        bool resent) {
    gvsp::packet_header header{0, 0, block_.block_id, format, packet_id, block_.ids};
    if (resent && block_.ids == gvsp::id_mode::extended) {
        header.flags = gvsp::flag_resent;
    } else if (resent) {
        header.status = static_cast<std::uint16_t>(gvcp::status::packet_resend);
    }
    return gvsp::encode_header(header, header_memory(index));
}

packet_run block_packets::single_packet(std::size_t bytes) {
    pieces_[0] = {header_memory(0).data(), bytes};
    return {std::span(pieces_).first(1), 1, bytes};
}

}  // namespace camsim
