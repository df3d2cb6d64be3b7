#include "gvcp_message.hpp"

namespace openpv::gvcp {
namespace {

constexpr uint8_t command_key = 0x42;
constexpr uint8_t flag_acknowledge = 0x01;
constexpr uint16_t discovery_command = 0x0002;
constexpr uint16_t discovery_answer = 0x0003;
constexpr uint16_t read_register_command = 0x0080;
constexpr uint16_t read_register_answer_code = 0x0081;

void put16(command& message, uint16_t value) {
    message.push_back(static_cast<std::byte>(value >> 8));
    message.push_back(static_cast<std::byte>(value & 0xFFU));
}

void put32(command& message, uint32_t value) {
    put16(message, static_cast<uint16_t>(value >> 16));
    put16(message, static_cast<uint16_t>(value & 0xFFFFU));
}

uint16_t get16(std::span<std::byte const> message, std::size_t offset) {
    return static_cast<uint16_t>(std::to_integer<unsigned>(message[offset]) << 8 |
                                 std::to_integer<unsigned>(message[offset + 1]));
}

uint32_t get32(std::span<std::byte const> message, std::size_t offset) {
    return static_cast<uint32_t>(get16(message, offset)) << 16 | get16(message, offset + 2);
}

command make_command(uint16_t code, uint16_t payload_bytes, uint16_t request) {
    command message{std::byte{command_key}, std::byte{flag_acknowledge}};
    put16(message, code);
    put16(message, payload_bytes);
    put16(message, request);
    return message;
}

/// \return the payload, null unless this is the awaited answer and as long as it says
std::optional<std::span<std::byte const>> payload_of(std::span<std::byte const> message, uint16_t code,
                                                     uint16_t request) {
    if (message.size() < header_bytes || get16(message, 2) != code || get16(message, 6) != request) {
        return std::nullopt;
    }
    std::size_t const length = get16(message, 4);
    if (message.size() - header_bytes < length) {
        return std::nullopt;
    }
    return message.subspan(header_bytes, length);
}

/// A fixed-width text field, which need not be terminated. What cannot be printed becomes '?': these texts end up in
/// logs and on terminals, and come from the network.
std::string text_field(std::span<std::byte const> payload, std::size_t offset, std::size_t width) {
    std::string text;
    for (std::byte const byte : payload.subspan(offset, width)) {
        auto const character = std::to_integer<unsigned char>(byte);
        if (character == 0) {
            break;
        }
        text += character >= 0x20 && character < 0x7F ? static_cast<char>(character) : '?';
    }
    return text;
}

}  // namespace

command make_discovery(uint16_t request) {
    return make_command(discovery_command, 0, request);
}

command make_read_register(uint16_t request, uint32_t address) {
    auto message = make_command(read_register_command, sizeof address, request);
    put32(message, address);
    return message;
}

std::optional<identity> read_discovery_answer(std::span<std::byte const> message, uint16_t request) {
    auto const payload = payload_of(message, discovery_answer, request);
    if (!payload || get16(message, 0) != 0 || payload->size() < discovery_data_bytes) {
        return std::nullopt;
    }
    identity found;
    found.mac = static_cast<uint64_t>(get16(*payload, 0x0A)) << 32 | get32(*payload, 0x0C);
    found.vendor = text_field(*payload, 0x48, 32);
    found.model = text_field(*payload, 0x68, 32);
    found.version = text_field(*payload, 0x88, 32);
    found.serial = text_field(*payload, 0xD8, 16);
    found.user_name = text_field(*payload, 0xE8, 16);
    return found;
}

std::optional<register_answer> read_register_answer(std::span<std::byte const> message, uint16_t request) {
    auto const payload = payload_of(message, read_register_answer_code, request);
    if (!payload) {
        return std::nullopt;
    }
    uint16_t const status = get16(message, 0);
    if (status != 0) {
        return register_answer{status, 0};
    }
    if (payload->size() != sizeof(uint32_t)) {
        return std::nullopt;
    }
    return register_answer{status, get32(*payload, 0)};
}

uint16_t next_request(uint16_t request) {
    return request == 0xFFFF ? uint16_t{1} : static_cast<uint16_t>(request + 1);
}

}  // namespace openpv::gvcp
