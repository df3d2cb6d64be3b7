// SPDX-License-Identifier: MIT
#include "gvsp/gvsp_packet.hpp"

#include <algorithm>
#include <cstring>
#include <limits>

#include <endian.h>

namespace openpv::gvsp {
namespace {

constexpr std::uint8_t extended_ids_bit = 0x80;
constexpr std::uint8_t kind_mask = 0x0F;

// Statuses of a packet.
constexpr std::uint16_t status_success = 0x0000;
constexpr std::uint16_t status_resent = 0x0100;  ///< also a success
constexpr std::uint16_t status_not_yet_available = 0x8010;

// Payload types of a leader.
constexpr std::uint16_t payload_image = 0x0001;
constexpr std::uint16_t payload_chunk_data = 0x0004;
constexpr std::uint16_t payload_extended_chunk_data =
    0x0005;                                            ///< of GigE Vision 1.2: describes the image, as payload_image
constexpr std::uint16_t payload_with_chunks = 0x4000;  ///< flag: chunks follow the payload

constexpr std::size_t image_leader_bytes = 36;
constexpr std::size_t min_leader_bytes = 12;  ///< payload type and timestamp

template <class number>
number get(std::span<std::byte const> bytes, std::size_t offset) {
    number value = 0;
    std::memcpy(&value, bytes.subspan(offset, sizeof value).data(), sizeof value);
    return value;
}
std::uint16_t get16(std::span<std::byte const> bytes, std::size_t offset) {
    return be16toh(get<std::uint16_t>(bytes, offset));
}
std::uint32_t get32(std::span<std::byte const> bytes, std::size_t offset) {
    return be32toh(get<std::uint32_t>(bytes, offset));
}
std::uint64_t get64(std::span<std::byte const> bytes, std::size_t offset) {
    return be64toh(get<std::uint64_t>(bytes, offset));
}

void put(std::span<std::byte> bytes, std::size_t offset, std::size_t count, std::uint64_t value) {
    for (std::size_t i = 0; i < count; ++i) {
        bytes[offset + i] = static_cast<std::byte>(value >> 8 * (count - 1 - i));
    }
}

packet_status status_of(std::uint16_t status) {
    if (status == status_success || status == status_resent) {
        return packet_status::present;
    }
    return status == status_not_yet_available ? packet_status::not_yet : packet_status::unavailable;
}

}  // namespace

std::optional<packet> parse(std::span<std::byte const> datagram) {
    if (datagram.size() < header_bytes) {
        return std::nullopt;
    }
    std::uint32_t const format_and_number = get32(datagram, 4);
    auto const format = static_cast<std::uint8_t>(format_and_number >> 24);
    std::uint8_t const kind = format & kind_mask;
    if (kind < static_cast<std::uint8_t>(packet_kind::leader) ||
        kind > static_cast<std::uint8_t>(packet_kind::payload)) {
        return std::nullopt;
    }
    packet read;
    read.kind = static_cast<packet_kind>(kind);
    read.status = status_of(get16(datagram, 0));
    read.extended = (format & extended_ids_bit) != 0;
    if (!read.extended) {
        read.block = get16(datagram, 2);
        read.number = format_and_number & max_short_packet;
        read.content = datagram.subspan(header_bytes);
        return read;
    }
    if (datagram.size() < extended_header_bytes) {
        return std::nullopt;
    }
    read.block = get64(datagram, 8);
    read.number = get32(datagram, 16);
    read.content = datagram.subspan(extended_header_bytes);
    return read;
}

/// Bits 16 to 23 of a pixel format code are the bits per pixel (GenICam Pixel Format Naming Convention).
image_size size_of_image(std::uint32_t width, std::uint32_t height, std::uint32_t format, std::uint16_t padding) {
    std::uint64_t const bits_per_pixel = format >> 16 & 0xFFU;
    __extension__ using wide = unsigned __int128;
    wide const bits = static_cast<wide>(width) * height * bits_per_pixel;
    wide const bytes = (bits + 7) / 8 + static_cast<wide>(padding) * height;
    return {width, height, static_cast<std::size_t>(std::min<wide>(bytes, std::numeric_limits<std::size_t>::max()))};
}

std::optional<leader> parse_leader(std::span<std::byte const> content) {
    if (content.size() < min_leader_bytes) {
        return std::nullopt;
    }
    std::uint16_t const payload = get16(content, 2);
    leader read;
    read.timestamp = get64(content, 4);
    read.chunk_data = payload == payload_chunk_data;
    bool const image = (payload & ~payload_with_chunks) == payload_image || payload == payload_extended_chunk_data;
    if (!image) {
        return read;
    }
    if (content.size() < image_leader_bytes) {
        return std::nullopt;
    }
    read.image = size_of_image(get32(content, 16), get32(content, 20), get32(content, 12), get16(content, 32));
    return read;
}

std::int64_t blocks_between(std::uint64_t from, std::uint64_t to, bool extended) {
    if (extended) {
        return static_cast<std::int64_t>(to - from);
    }
    auto const wrap = static_cast<std::int64_t>(max_short_block);
    std::int64_t distance = (static_cast<std::int64_t>(to) - static_cast<std::int64_t>(from)) % wrap;
    if (distance > wrap / 2) {
        distance -= wrap;
    } else if (distance < -(wrap / 2)) {
        distance += wrap;
    }
    return distance;
}

std::size_t encode(resend_request const& request, std::uint16_t id,
                   std::array<std::byte, max_resend_request_bytes>& out) {
    constexpr std::uint8_t key = 0x42;
    constexpr std::uint8_t extended_ids_flag = 0x10;
    constexpr std::uint16_t packet_resend = 0x0040;
    constexpr std::size_t command_header = 8;
    out.fill(std::byte{0});
    std::size_t const content = request.extended ? 20 : 12;
    put(out, 0, 1, key);
    put(out, 1, 1, request.extended ? extended_ids_flag : 0);
    put(out, 2, 2, packet_resend);
    put(out, 4, 2, content);
    put(out, 6, 2, id);
    if (request.extended) {
        put(out, 12, 4, request.first);
        put(out, 16, 4, request.last);
        put(out, 20, 8, request.block);
    } else {
        put(out, 10, 2, request.block);
        put(out, 13, 3, request.first);
        put(out, 17, 3, request.last);
    }
    return command_header + content;
}

}  // namespace openpv::gvsp
