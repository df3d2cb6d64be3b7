// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Messages of the GigE Vision Control Protocol (GVCP): discovery, register and memory access. Layouts and numbers are
/// those of the GigE Vision standard; fields are big-endian. Functions that parse accept any bytes.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "net/ipv4_address.hpp"

namespace openpv::gvcp {

constexpr std::uint16_t port = 3956;  ///< GVCP port of a camera
constexpr std::size_t header_bytes = 8;
constexpr std::size_t discovery_data_bytes = 248;  ///< payload of a discovery acknowledge
/// The largest message: GigE Vision limits GVCP packets to 576 bytes, with 20 bytes of IP and 8 bytes of UDP header.
constexpr std::size_t max_message_bytes = 576 - 28;
/// Memory in one READMEM or WRITEMEM: the largest message without header and address.
constexpr std::size_t max_memory_bytes = max_message_bytes - header_bytes - 4;

/// Bootstrap registers.
namespace reg {
constexpr std::uint32_t mac_high = 0x0008;  ///< low 16 bits
constexpr std::uint32_t mac_low = 0x000C;
constexpr std::uint32_t ip_configuration = 0x0014;  ///< enabled `ip_method` bits
constexpr std::uint32_t first_url = 0x0200;         ///< of the GenICam XML, `url_bytes` long
constexpr std::uint32_t second_url = 0x0400;
constexpr std::uint32_t persistent_address = 0x064C;
constexpr std::uint32_t persistent_mask = 0x065C;
constexpr std::uint32_t persistent_gateway = 0x066C;
constexpr std::uint32_t stream_channel_count = 0x0904;
constexpr std::uint32_t capability = 0x0934;
constexpr std::uint32_t tick_frequency = 0x093C;     ///< 64 bits, Hz
constexpr std::uint32_t timestamp_control = 0x0944;  ///< `timestamp_latch` copies the counter to `timestamp`
constexpr std::uint32_t timestamp = 0x0948;          ///< 64 bits
constexpr std::uint32_t configuration = 0x0954;
constexpr std::size_t url_bytes = 512;  ///< length of a URL register
constexpr std::uint32_t control_channel_privilege = 0x0A00;
constexpr std::uint32_t primary_application_port = 0x0A04;
constexpr std::uint32_t primary_application_address = 0x0A14;
constexpr std::uint32_t stream_source_port = 0x0D1C;  ///< of channel 0, in the low 16 bits
}  // namespace reg

constexpr std::uint32_t capability_write_memory = 2;  ///< bits of `capability`
constexpr std::uint32_t capability_resend = 4;
constexpr std::uint32_t capability_pending_ack = 0x20;
constexpr std::uint32_t configuration_pending_ack = 2;  ///< bit of `configuration`
constexpr std::uint32_t privilege_exclusive = 1;        ///< bits of `control_channel_privilege`
constexpr std::uint32_t privilege_control = 2;
constexpr std::uint32_t timestamp_latch = 2;  ///< bit of `timestamp_control`

/// How a camera gets its address. Bits of `ip_configuration`, tried in the order persistent, DHCP, link-local.
namespace ip_method {
constexpr std::uint32_t persistent = 1;
constexpr std::uint32_t dhcp = 2;
constexpr std::uint32_t link_local = 4;  ///< always enabled
}  // namespace ip_method

using message = std::vector<std::byte>;

/// Where a camera sends the acknowledge of a broadcast command.
enum class ack_delivery {
    unicast,
    /// A camera may send it to 255.255.255.255, which this machine receives also from another subnet.
    broadcast,
};

/// \param request request ID, not 0
message make_discovery(std::uint16_t request, ack_delivery how = ack_delivery::unicast);

/// Addresses of a camera, or of a host that a camera uses.
struct ip_settings {
    ipv4_address address;
    ipv4_address mask;
    ipv4_address gateway;
    bool operator==(ip_settings const&) const = default;
};

/// Broadcast: sets the present address of the camera with this MAC address, until its power is switched off.
/// \param request request ID, not 0
message make_force_ip(std::uint16_t request, std::uint64_t mac, ip_settings const& wanted);

/// Keys of an action command, which a camera compares with its own.
struct action_keys {
    std::uint32_t device_key = 0;
    std::uint32_t group_key = 0;
    std::uint32_t group_mask = 0;  ///< a camera acts if one of its own bits is set
};
/// Broadcast: cameras with these keys act at once, or when their timestamp counter reaches `time`.
/// \param request request ID, not 0
message make_action(std::uint16_t request, action_keys const& keys, std::optional<std::uint64_t> time);

/// Commands on the control channel. The code of an acknowledge is that of its command plus 1.
enum class command_code : std::uint16_t {
    read_register = 0x0080,
    write_register = 0x0082,
    read_memory = 0x0084,
    write_memory = 0x0086,
};
/// Code of the message that announces a later acknowledge.
constexpr std::uint16_t pending_ack = 0x0089;

/// A command on the control channel, with memory for the largest one.
class command {
public:
    command(command_code code, std::uint32_t address);

    void append(std::uint32_t value);
    /// \param memory at most `max_memory_bytes`
    void append(std::span<std::byte const> memory);

    void set_request(std::uint16_t request);  ///< not 0
    std::uint16_t ack_code() const;           ///< of the acknowledge of this command
    std::uint32_t address() const;
    std::span<std::byte const> bytes() const { return std::span(memory_).first(size_); }

private:
    void set16(std::size_t offset, std::uint16_t value);

    std::array<std::byte, max_message_bytes> memory_;  // not initialised: `size_` bytes are valid
    std::size_t size_ = header_bytes;
};

/// Reads one register: support for several per command is optional.
command make_read_register(std::uint32_t address);
command make_write_register(std::uint32_t address, std::uint32_t value);
/// \param bytes multiple of 4, at most `max_memory_bytes`
command make_read_memory(std::uint32_t address, std::size_t bytes);
/// \param memory multiple of 4 bytes, at most `max_memory_bytes`
command make_write_memory(std::uint32_t address, std::span<std::byte const> memory);

/// Identity of a camera, from its discovery acknowledge. Unprintable characters are replaced by `?`.
struct identity {
    std::uint64_t mac = 0;  ///< low 48 bits
    std::string vendor;
    std::string model;
    std::string version;
    std::string serial;
    std::string user_name;
    ip_settings ip;                   ///< present one
    std::uint32_t ip_methods = 0;     ///< enabled bits of `ip_method`
    std::uint16_t version_major = 0;  ///< of the GigE Vision standard
    std::uint16_t version_minor = 0;
};

/// \param registers the first bootstrap registers, at least `discovery_data_bytes`
identity parse_identity(std::span<std::byte const> registers);
/// \return null unless `received` is a complete, successful acknowledge of discovery `request`
std::optional<identity> parse_discovery_ack(std::span<std::byte const> received, std::uint16_t request);

/// An acknowledge, with its payload in the memory that was parsed.
struct acknowledge {
    std::uint16_t status = 0;  ///< GVCP status code; 0 is success
    std::uint16_t code = 0;
    std::uint16_t request = 0;
    std::span<std::byte const> payload;
};
/// \return null if `received` is shorter than its header, or than the header specifies
std::optional<acknowledge> parse_acknowledge(std::span<std::byte const> received);

/// Payloads of acknowledges.
/// \return null unless the payload is one register
std::optional<std::uint32_t> parse_register(std::span<std::byte const> payload);
/// \return the memory; null unless the payload is `bytes` of memory from `address` on
std::optional<std::span<std::byte const>> parse_memory(std::span<std::byte const> payload, std::uint32_t address,
                                                       std::size_t bytes);
/// \return time until the acknowledge in ms; null if the payload is too short
std::optional<std::uint16_t> parse_pending_time(std::span<std::byte const> payload);

/// \return what a status code of the standard means, or its number
std::string status_text(std::uint16_t status);

/// \return the request ID after `request`: 1 follows 0xFFFF, because 0 is not valid
std::uint16_t next_request_id(std::uint16_t request);

}  // namespace openpv::gvcp
