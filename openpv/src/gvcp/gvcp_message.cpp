// SPDX-License-Identifier: MIT
#include "gvcp/gvcp_message.hpp"

#include <algorithm>
#include <cassert>
#include <cstdio>

#include "base/printable_text.hpp"

namespace openpv::gvcp {
namespace {

constexpr std::uint8_t command_key = 0x42;
constexpr std::uint8_t flag_acknowledge = 0x01;
constexpr std::uint8_t flag_broadcast_ack = 0x10;  // of DISCOVERY and FORCEIP
constexpr std::uint8_t flag_scheduled = 0x80;      // of ACTION
constexpr std::uint16_t discovery_command = 0x0002;
constexpr std::uint16_t discovery_ack = 0x0003;
constexpr std::uint16_t force_ip_command = 0x0004;
constexpr std::uint16_t action_command = 0x0100;

std::byte high(std::uint16_t value) {
    return static_cast<std::byte>(value >> 8);
}
std::byte low(std::uint16_t value) {
    return static_cast<std::byte>(value & 0xFFU);
}

std::uint16_t get16(std::span<std::byte const> bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(std::to_integer<unsigned>(bytes[offset]) << 8 |
                                      std::to_integer<unsigned>(bytes[offset + 1]));
}

std::uint32_t get32(std::span<std::byte const> bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(get16(bytes, offset)) << 16 | get16(bytes, offset + 2);
}

/// Reads a fixed-width text field, which need not be terminated.
std::string text_field(std::span<std::byte const> payload, std::size_t offset, std::size_t width) {
    std::string text;
    for (std::byte const byte : payload.subspan(offset, width)) {
        if (byte == std::byte{0}) {
            break;
        }
        text += static_cast<char>(byte);
    }
    return printable_ascii(std::move(text));
}

struct status_name {
    std::uint16_t code;
    char const* text;
};
constexpr std::array statuses{
    status_name{0x8001, "the command is not implemented"},
    status_name{0x8002, "a parameter is not valid"},
    status_name{0x8003, "the address does not exist"},
    status_name{0x8004, "the address is write-protected"},
    status_name{0x8005, "the address is not aligned"},
    status_name{0x8006, "access is denied"},
    status_name{0x8007, "the camera is busy"},
    status_name{0x8016, "the time of the action has passed"},
};

}  // namespace

namespace {

void append16(message& to, std::uint16_t value) {
    to.push_back(high(value));
    to.push_back(low(value));
}

void append32(message& to, std::uint32_t value) {
    append16(to, static_cast<std::uint16_t>(value >> 16));
    append16(to, static_cast<std::uint16_t>(value & 0xFFFFU));
}

message make_broadcast(std::uint8_t flags, std::uint16_t code, std::size_t payload_bytes, std::uint16_t request) {
    message made{std::byte{command_key}, static_cast<std::byte>(flags | flag_acknowledge)};
    append16(made, code);
    append16(made, static_cast<std::uint16_t>(payload_bytes));
    append16(made, request);
    return made;
}

}  // namespace

message make_discovery(std::uint16_t request, ack_delivery how) {
    return make_broadcast(how == ack_delivery::broadcast ? flag_broadcast_ack : 0, discovery_command, 0, request);
}

message make_force_ip(std::uint16_t request, std::uint64_t mac, ip_settings const& wanted) {
    constexpr std::size_t payload_bytes = 56;
    constexpr std::size_t reserved_bytes = 12;
    message made = make_broadcast(flag_broadcast_ack, force_ip_command, payload_bytes, request);
    append32(made, static_cast<std::uint32_t>(mac >> 32 & 0xFFFFU));  // after 16 reserved bits
    append32(made, static_cast<std::uint32_t>(mac & 0xFFFFFFFFU));
    for (ipv4_address const each : {wanted.address, wanted.mask, wanted.gateway}) {
        made.resize(made.size() + reserved_bytes);
        append32(made, each.value);
    }
    return made;
}

message make_action(std::uint16_t request, action_keys const& keys, std::optional<std::uint64_t> time) {
    message made =
        make_broadcast(time ? flag_scheduled : 0, action_command, (time ? 5 : 3) * sizeof(std::uint32_t), request);
    append32(made, keys.device_key);
    append32(made, keys.group_key);
    append32(made, keys.group_mask);
    if (time) {
        append32(made, static_cast<std::uint32_t>(*time >> 32));
        append32(made, static_cast<std::uint32_t>(*time & 0xFFFFFFFFU));
    }
    return made;
}

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init) : a cleared message would cost more than the command
command::command(command_code code, std::uint32_t address) {
    memory_[0] = std::byte{command_key};
    memory_[1] = std::byte{flag_acknowledge};
    set16(2, static_cast<std::uint16_t>(code));
    set16(6, 0);
    append(address);
}

void command::set16(std::size_t offset, std::uint16_t value) {
    memory_[offset] = high(value);
    memory_[offset + 1] = low(value);
}

void command::append(std::uint32_t value) {
    assert(size_ + sizeof value <= memory_.size());
    set16(size_, static_cast<std::uint16_t>(value >> 16));
    set16(size_ + 2, static_cast<std::uint16_t>(value & 0xFFFFU));
    size_ += sizeof value;
    set16(4, static_cast<std::uint16_t>(size_ - header_bytes));
}

void command::append(std::span<std::byte const> memory) {
    assert(memory.size() <= memory_.size() - size_);
    std::ranges::copy(memory, memory_.begin() + static_cast<std::ptrdiff_t>(size_));
    size_ += memory.size();
    set16(4, static_cast<std::uint16_t>(size_ - header_bytes));
}

void command::set_request(std::uint16_t request) {
    set16(6, request);
}
std::uint16_t command::ack_code() const {
    return static_cast<std::uint16_t>(get16(memory_, 2) + 1);
}
std::uint32_t command::address() const {
    return get32(memory_, header_bytes);
}

command make_read_register(std::uint32_t address) {
    return {command_code::read_register, address};
}

command make_write_register(std::uint32_t address, std::uint32_t value) {
    command made(command_code::write_register, address);
    made.append(value);
    return made;
}

command make_read_memory(std::uint32_t address, std::size_t bytes) {
    command made(command_code::read_memory, address);
    made.append(static_cast<std::uint32_t>(bytes));  // 16 bits reserved, 16 bits of length
    return made;
}

command make_write_memory(std::uint32_t address, std::span<std::byte const> memory) {
    command made(command_code::write_memory, address);
    made.append(memory);
    return made;
}

std::optional<acknowledge> parse_acknowledge(std::span<std::byte const> received) {
    if (received.size() < header_bytes) {
        return std::nullopt;
    }
    std::size_t const length = get16(received, 4);
    if (received.size() - header_bytes < length) {
        return std::nullopt;
    }
    return acknowledge{get16(received, 0), get16(received, 2), get16(received, 6),
                       received.subspan(header_bytes, length)};
}

std::optional<identity> parse_discovery_ack(std::span<std::byte const> received, std::uint16_t request) {
    auto const ack = parse_acknowledge(received);
    if (!ack || ack->code != discovery_ack || ack->request != request || ack->status != 0 ||
        ack->payload.size() < discovery_data_bytes) {
        return std::nullopt;
    }
    return parse_identity(ack->payload);
}

identity parse_identity(std::span<std::byte const> registers) {
    assert(registers.size() >= discovery_data_bytes);
    identity found;
    found.version_major = get16(registers, 0x00);
    found.version_minor = get16(registers, 0x02);
    found.mac = static_cast<std::uint64_t>(get16(registers, 0x0A)) << 32 | get32(registers, 0x0C);
    found.ip_methods = get32(registers, reg::ip_configuration);
    found.ip = {{get32(registers, 0x24)}, {get32(registers, 0x34)}, {get32(registers, 0x44)}};
    found.vendor = text_field(registers, 0x48, 32);
    found.model = text_field(registers, 0x68, 32);
    found.version = text_field(registers, 0x88, 32);
    found.serial = text_field(registers, 0xD8, 16);
    found.user_name = text_field(registers, 0xE8, 16);
    return found;
}

std::optional<std::uint32_t> parse_register(std::span<std::byte const> payload) {
    return payload.size() == sizeof(std::uint32_t) ? std::optional(get32(payload, 0)) : std::nullopt;
}

std::optional<std::span<std::byte const>> parse_memory(std::span<std::byte const> payload, std::uint32_t address,
                                                       std::size_t bytes) {
    constexpr std::size_t address_bytes = sizeof address;
    if (payload.size() != address_bytes + bytes || get32(payload, 0) != address) {
        return std::nullopt;
    }
    return payload.subspan(address_bytes);
}

std::optional<std::uint16_t> parse_pending_time(std::span<std::byte const> payload) {
    constexpr std::size_t time_offset = 2;  // after 16 reserved bits
    return payload.size() >= time_offset + 2 ? std::optional(get16(payload, time_offset)) : std::nullopt;
}

std::string status_text(std::uint16_t status) {
    auto const* const known = std::ranges::find(statuses, status, &status_name::code);
    std::array<char, 16> number{};
    std::snprintf(number.data(), number.size(), "0x%04X", static_cast<unsigned>(status));
    return known != statuses.end() ? std::string(known->text) + " (status " + number.data() + ")"
                                   : std::string("status ") + number.data();
}

std::uint16_t next_request_id(std::uint16_t request) {
    return request == 0xFFFF ? std::uint16_t{1} : static_cast<std::uint16_t>(request + 1);
}

}  // namespace openpv::gvcp
