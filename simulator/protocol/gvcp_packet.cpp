// SPDX-License-Identifier: MIT
#include "protocol/gvcp_packet.hpp"

#include <algorithm>

#include "base/byte_order.hpp"

namespace camsim::gvcp {

namespace {

constexpr std::size_t forceip_size = 56;
constexpr std::size_t action_size = 12;
constexpr std::size_t scheduled_action_size = 20;
constexpr std::size_t packetresend_size = 12;
constexpr std::size_t extended_packetresend_size = 20;
constexpr std::uint32_t packet_id_mask = 0x00FF'FFFF;

}  // namespace

std::optional<command_header> decode_command_header(std::span<std::byte const> datagram) {
    if (datagram.size() < header_size || std::to_integer<std::uint8_t>(datagram[0]) != command_key) {
        return std::nullopt;
    }
    return command_header{std::to_integer<std::uint8_t>(datagram[1]), load_be16(datagram, 2), load_be16(datagram, 4),
                          load_be16(datagram, 6)};
}

bool has_consistent_length(command_header const& header, std::span<std::byte const> datagram) {
    return header.length == datagram.size() - header_size && header.length % 4 == 0 &&
           header.length <= max_payload_size;
}

std::optional<std::vector<std::uint32_t>> decode_readreg(std::span<std::byte const> payload) {
    if (payload.empty() || payload.size() % 4 != 0) {
        return std::nullopt;
    }
    std::vector<std::uint32_t> addresses;
    for (std::size_t at = 0; at < payload.size(); at += 4) {
        addresses.push_back(load_be32(payload, at));
    }
    return addresses;
}

std::optional<std::vector<register_write>> decode_writereg(std::span<std::byte const> payload) {
    if (payload.empty() || payload.size() % 8 != 0) {
        return std::nullopt;
    }
    std::vector<register_write> writes;
    for (std::size_t at = 0; at < payload.size(); at += 8) {
        writes.push_back({load_be32(payload, at), load_be32(payload, at + 4)});
    }
    return writes;
}

std::optional<memory_read> decode_readmem(std::span<std::byte const> payload) {
    if (payload.size() != 8) {
        return std::nullopt;
    }
    return memory_read{load_be32(payload, 0), load_be16(payload, 6)};
}

std::optional<memory_write> decode_writemem(std::span<std::byte const> payload) {
    if (payload.size() <= 4) {
        return std::nullopt;
    }
    return memory_write{load_be32(payload, 0), payload.subspan(4)};
}

std::optional<force_ip> decode_forceip(std::span<std::byte const> payload) {
    if (payload.size() != forceip_size) {
        return std::nullopt;
    }
    std::uint64_t const mac = static_cast<std::uint64_t>(load_be16(payload, 2)) << 32U | load_be32(payload, 4);
    return force_ip{mac, load_be32(payload, 20), load_be32(payload, 36), load_be32(payload, 52)};
}

std::optional<action> decode_action(bool scheduled, std::span<std::byte const> payload) {
    if (payload.size() != (scheduled ? scheduled_action_size : action_size)) {
        return std::nullopt;
    }
    return action{load_be32(payload, 0), load_be32(payload, 4), load_be32(payload, 8),
                  scheduled ? std::optional(load_be64(payload, 12)) : std::nullopt};
}

std::optional<packet_resend> decode_packetresend(bool extended_ids, std::span<std::byte const> payload) {
    if (payload.size() != (extended_ids ? extended_packetresend_size : packetresend_size)) {
        return std::nullopt;
    }
    std::uint16_t const channel = load_be16(payload, 0);
    if (extended_ids) {
        return packet_resend{channel, load_be64(payload, 12), load_be32(payload, 4), load_be32(payload, 8)};
    }
    std::uint32_t const first = load_be32(payload, 4) & packet_id_mask;
    std::uint32_t const last = load_be32(payload, 8) & packet_id_mask;
    return packet_resend{channel, load_be16(payload, 2), first, last == packet_id_mask ? UINT32_MAX : last};
}

std::vector<std::byte> encode_acknowledge(status result, std::uint16_t command_number, std::uint16_t request_id,
                                          std::span<std::byte const> payload) {
    std::vector<std::byte> datagram(header_size + payload.size());
    store_be16(datagram, 0, static_cast<std::uint16_t>(result));
    store_be16(datagram, 2, acknowledge_of(command_number));
    store_be16(datagram, 4, static_cast<std::uint16_t>(payload.size()));
    store_be16(datagram, 6, request_id);
    std::ranges::copy(payload, datagram.begin() + header_size);
    return datagram;
}

std::vector<std::byte> encode_pending(std::uint16_t request_id, std::uint16_t time_to_completion_ms) {
    std::vector<std::byte> payload(4);
    store_be16(payload, 2, time_to_completion_ms);
    return encode_acknowledge(status::success, static_cast<std::uint16_t>(command::pending), request_id, payload);
}

std::vector<std::byte> encode_readreg_payload(std::span<std::uint32_t const> values) {
    std::vector<std::byte> payload(values.size() * 4);
    for (std::size_t index = 0; index < values.size(); ++index) {
        store_be32(payload, index * 4, values[index]);
    }
    return payload;
}

std::vector<std::byte> encode_readmem_payload(std::uint32_t address, std::span<std::byte const> data) {
    std::vector<std::byte> payload(4 + data.size());
    store_be32(payload, 0, address);
    std::ranges::copy(data, payload.begin() + 4);
    return payload;
}

std::vector<std::byte> encode_write_index_payload(std::uint16_t index) {
    std::vector<std::byte> payload(4);
    store_be16(payload, 2, index);
    return payload;
}

std::vector<std::byte> encode_command(command_header const& header, std::span<std::byte const> payload) {
    std::vector<std::byte> datagram(header_size + payload.size());
    datagram[0] = static_cast<std::byte>(command_key);
    datagram[1] = static_cast<std::byte>(header.flags);
    store_be16(datagram, 2, header.number);
    store_be16(datagram, 4, static_cast<std::uint16_t>(payload.size()));
    store_be16(datagram, 6, header.request_id);
    std::ranges::copy(payload, datagram.begin() + header_size);
    return datagram;
}

std::vector<std::byte> encode_writereg_payload(std::span<register_write const> writes) {
    std::vector<std::byte> payload(writes.size() * 8);
    for (std::size_t index = 0; index < writes.size(); ++index) {
        store_be32(payload, index * 8, writes[index].address);
        store_be32(payload, index * 8 + 4, writes[index].value);
    }
    return payload;
}

std::optional<acknowledge_header> decode_acknowledge_header(std::span<std::byte const> datagram) {
    if (datagram.size() < header_size) {
        return std::nullopt;
    }
    return acknowledge_header{static_cast<status>(load_be16(datagram, 0)), load_be16(datagram, 2),
                              load_be16(datagram, 4), load_be16(datagram, 6)};
}

}  // namespace camsim::gvcp
