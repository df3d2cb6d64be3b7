// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// GVCP, the control protocol of GigE Vision 2.0: encodes and decodes datagrams. Pure functions without sockets.
namespace camsim::gvcp {

inline constexpr std::uint16_t port = 3956;
inline constexpr std::size_t header_size = 8;
/// Largest GVCP datagram without IP and UDP headers. The standard limits packets to 576 bytes.
inline constexpr std::size_t max_datagram_size = 576 - 20 - 8;
inline constexpr std::size_t max_payload_size = max_datagram_size - header_size;
/// READMEM_ACK and WRITEMEM_CMD carry a 4-byte address before the data.
inline constexpr std::size_t max_memory_block = max_payload_size - 4;

inline constexpr std::uint8_t command_key = 0x42;
inline constexpr std::uint8_t flag_acknowledge_required = 0x01;
/// PACKETRESEND_CMD with a 64-bit block ID and 32-bit packet IDs.
inline constexpr std::uint8_t flag_extended_ids = 0x10;
/// ACTION_CMD with the time at which the action is due.
inline constexpr std::uint8_t flag_scheduled = 0x80;

/// Commands that the camera executes; all others return GEV_STATUS_NOT_IMPLEMENTED.
enum class command : std::uint16_t {
    discovery = 0x0002,
    forceip = 0x0004,
    packetresend = 0x0040,
    readreg = 0x0080,
    writereg = 0x0082,
    readmem = 0x0084,
    writemem = 0x0086,
    action = 0x0100,
    pending = 0x0088,  ///< not sent as a command; its acknowledge, 0x0089, is PENDING_ACK
};

/// Status codes that the camera returns (GEV_STATUS_...).
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
    action_late = 0x8016,
};

/// An acknowledge has the number of its command plus one.
constexpr std::uint16_t acknowledge_of(std::uint16_t command_number) {
    return static_cast<std::uint16_t>(command_number + 1U);
}

/// The header of a command, without its key.
struct command_header {
    std::uint8_t flags = flag_acknowledge_required;
    std::uint16_t number = 0;  ///< a gvcp::command or any other number; not validated
    std::uint16_t length = 0;  ///< payload bytes according to the sender; see has_consistent_length()
    std::uint16_t request_id = 0;

    bool acknowledge_required() const { return (flags & flag_acknowledge_required) != 0; }
};

/// The header of an acknowledge.
struct acknowledge_header {
    gvcp::status status = gvcp::status::success;
    std::uint16_t number = 0;
    std::uint16_t length = 0;
    std::uint16_t acknowledge_id = 0;
};

/// One register of WRITEREG_CMD.
struct register_write {
    std::uint32_t address;
    std::uint32_t value;
};

/// READMEM_CMD.
struct memory_read {
    std::uint32_t address;
    std::uint16_t count;
};

/// WRITEMEM_CMD. `data` refers to the datagram.
struct memory_write {
    std::uint32_t address;
    std::span<std::byte const> data;
};

/// FORCEIP_CMD.
struct force_ip {
    std::uint64_t mac;
    std::uint32_t address;
    std::uint32_t subnet_mask;
    std::uint32_t gateway;
};

/// ACTION_CMD.
struct action {
    std::uint32_t device_key;
    std::uint32_t group_key;
    std::uint32_t group_mask;
    std::optional<std::uint64_t> time;  ///< ticks of the camera clock; none: at once
};

/// PACKETRESEND_CMD. The maximum value of `last_packet` means "to the end of the block".
struct packet_resend {
    std::uint16_t stream_channel;
    std::uint64_t block_id;
    std::uint32_t first_packet;
    std::uint32_t last_packet;
};

// Commands, decoded by a device. Payload decoders return an empty value if the payload does not have the command's
// format.

/// \return empty if the datagram is not a GVCP command: too short, or another key. Such datagrams must not be answered:
/// two devices that answered each other's acknowledges with errors would never stop.
std::optional<command_header> decode_command_header(std::span<std::byte const> datagram);
/// Whether the length field matches the received bytes, is a multiple of 4 and within the protocol's limit.
bool has_consistent_length(command_header const& header, std::span<std::byte const> datagram);
std::optional<std::vector<std::uint32_t>> decode_readreg(std::span<std::byte const> payload);
std::optional<std::vector<register_write>> decode_writereg(std::span<std::byte const> payload);
std::optional<memory_read> decode_readmem(std::span<std::byte const> payload);
std::optional<memory_write> decode_writemem(std::span<std::byte const> payload);
std::optional<force_ip> decode_forceip(std::span<std::byte const> payload);
std::optional<action> decode_action(bool scheduled, std::span<std::byte const> payload);
/// Packet IDs have 24 bits with standard IDs and 32 bits with extended IDs; "to the end" becomes the 32-bit maximum.
std::optional<packet_resend> decode_packetresend(bool extended_ids, std::span<std::byte const> payload);

// Acknowledges, encoded by a device.
std::vector<std::byte> encode_acknowledge(status result, std::uint16_t command_number, std::uint16_t request_id,
                                          std::span<std::byte const> payload);
std::vector<std::byte> encode_pending(std::uint16_t request_id, std::uint16_t time_to_completion_ms);
std::vector<std::byte> encode_readreg_payload(std::span<std::uint32_t const> values);
std::vector<std::byte> encode_readmem_payload(std::uint32_t address, std::span<std::byte const> data);
std::vector<std::byte> encode_write_index_payload(std::uint16_t index);

// The application's side, for measurements and tests.
std::vector<std::byte> encode_command(command_header const& header, std::span<std::byte const> payload);
std::vector<std::byte> encode_writereg_payload(std::span<register_write const> writes);
std::optional<acknowledge_header> decode_acknowledge_header(std::span<std::byte const> datagram);

}  // namespace camsim::gvcp
