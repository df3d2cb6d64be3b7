#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// GVCP, the control protocol of GigE Vision 2.0: datagrams as bytes, in both directions. Pure functions, no sockets.
namespace camsim::gvcp {

inline constexpr std::uint16_t port = 3956;
inline constexpr std::size_t header_size = 8;
/// Largest GVCP datagram without IP and UDP headers: the standard caps the whole packet at 576 bytes.
inline constexpr std::size_t maximum_datagram = 576 - 20 - 8;
inline constexpr std::size_t maximum_payload = maximum_datagram - header_size;
/// READMEM_ACK and WRITEMEM_CMD carry a 4-byte address before the data.
inline constexpr std::size_t maximum_memory_block = maximum_payload - 4;

inline constexpr std::uint8_t command_key = 0x42;
inline constexpr std::uint8_t flag_acknowledge_required = 0x01;
/// Of PACKETRESEND_CMD: 64-bit block ID and 32-bit packet IDs.
inline constexpr std::uint8_t flag_extended_ids = 0x10;

enum class command : std::uint16_t {
    discovery = 0x0002,
    forceip = 0x0004,
    packetresend = 0x0040,
    readreg = 0x0080,
    writereg = 0x0082,
    readmem = 0x0084,
    writemem = 0x0086,
    pending = 0x0088,  ///< never a command; its acknowledge, 0x0089, is PENDING_ACK
};

enum class status : std::uint16_t {
    success = 0x0000,
    packet_resend = 0x0100,
    not_implemented = 0x8001,
    invalid_parameter = 0x8002,
    invalid_address = 0x8003,
    write_protect = 0x8004,
    bad_alignment = 0x8005,
    access_denied = 0x8006,
    busy = 0x8007,
    packet_unavailable = 0x800C,
    invalid_header = 0x800E,
    packet_not_yet_available = 0x8010,
    packet_removed_from_memory = 0x8012,
};

/// An acknowledge has the number of its command plus one.
constexpr std::uint16_t acknowledge_of(std::uint16_t command_number) {
    return static_cast<std::uint16_t>(command_number + 1U);
}

struct command_header {
    std::uint8_t flags = flag_acknowledge_required;
    std::uint16_t number = 0;  ///< a gvcp::command, or any other number that somebody sent
    std::uint16_t length = 0;  ///< bytes of payload, as the sender claims
    std::uint16_t request_id = 0;

    bool acknowledge_required() const { return (flags & flag_acknowledge_required) != 0; }
};

struct acknowledge_header {
    gvcp::status status = gvcp::status::success;
    std::uint16_t number = 0;
    std::uint16_t length = 0;
    std::uint16_t acknowledge_id = 0;
};

struct register_write {
    std::uint32_t address;
    std::uint32_t value;
};

struct memory_read {
    std::uint32_t address;
    std::uint16_t count;
};

struct memory_write {
    std::uint32_t address;
    std::span<std::byte const> data;
};

struct force_ip {
    std::uint64_t mac;
    std::uint32_t address;
    std::uint32_t subnet_mask;
    std::uint32_t gateway;
};

/// PACKETRESEND_CMD. `last_packet` may be the largest number of its field: up to the block's end.
struct packet_resend {
    std::uint16_t stream_channel;
    std::uint64_t block_id;
    std::uint32_t first_packet;
    std::uint32_t last_packet;
};

// Commands, as a device reads them. A decoder of a payload is empty when the payload has not the command's shape.
std::optional<command_header> decode_command_header(std::span<std::byte const> datagram);
bool has_consistent_length(command_header const& header, std::span<std::byte const> datagram);
std::optional<std::vector<std::uint32_t>> decode_readreg(std::span<std::byte const> payload);
std::optional<std::vector<register_write>> decode_writereg(std::span<std::byte const> payload);
std::optional<memory_read> decode_readmem(std::span<std::byte const> payload);
std::optional<memory_write> decode_writemem(std::span<std::byte const> payload);
std::optional<force_ip> decode_forceip(std::span<std::byte const> payload);
std::optional<packet_resend> decode_packetresend(bool extended_ids, std::span<std::byte const> payload);

// Acknowledges, as a device writes them.
std::vector<std::byte> encode_acknowledge(status result, std::uint16_t command_number, std::uint16_t request_id,
                                          std::span<std::byte const> payload);
std::vector<std::byte> encode_pending(std::uint16_t request_id, std::uint16_t time_to_completion_ms);
std::vector<std::byte> encode_readreg_payload(std::span<std::uint32_t const> values);
std::vector<std::byte> encode_readmem_payload(std::uint32_t address, std::span<std::byte const> data);
std::vector<std::byte> encode_write_index_payload(std::uint16_t index);

// The application's side, for measurements and tests that drive a camera.
std::vector<std::byte> encode_command(command_header const& header, std::span<std::byte const> payload);
std::vector<std::byte> encode_writereg_payload(std::span<register_write const> writes);
std::optional<acknowledge_header> decode_acknowledge_header(std::span<std::byte const> datagram);

}  // namespace camsim::gvcp
