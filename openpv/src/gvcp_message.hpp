#pragma once
/// \file
/// Messages of the GigE Vision Control Protocol that the layer sends and reads itself: discovery, and reading registers
/// without control. Layouts and numbers are those of the GigE Vision standard; multi-byte fields are big-endian.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace openpv::gvcp {

constexpr uint16_t port = 3956;
constexpr std::size_t header_bytes = 8;
constexpr std::size_t discovery_data_bytes = 248;
/// The largest message: a header and 540 bytes of payload.
constexpr std::size_t largest_message = 576;

/// Bootstrap registers.
namespace reg {
constexpr uint32_t mac_high = 0x0008;  ///< low 16 bits
constexpr uint32_t mac_low = 0x000C;
constexpr uint32_t stream_channel_count = 0x0904;
constexpr uint32_t capability = 0x0934;
constexpr uint32_t control_channel_privilege = 0x0A00;
constexpr uint32_t stream_source_port = 0x0D1C;  ///< of channel 0, in the low 16 bits
}  // namespace reg

constexpr uint32_t capability_resend = 4;    ///< a bit of `capability`
constexpr uint32_t privilege_exclusive = 1;  ///< bits of `control_channel_privilege`
constexpr uint32_t privilege_control = 2;

using command = std::vector<std::byte>;

command make_discovery(uint16_t request);
/// One register: a camera need not be able to read several at a time.
command make_read_register(uint16_t request, uint32_t address);

/// What a camera tells about itself.
struct identity {
    uint64_t mac = 0;  ///< low 48 bits
    std::string vendor;
    std::string model;
    std::string version;
    std::string serial;
    std::string user_name;
};

/// \return null unless `message` is a whole, successful answer to discovery `request`
std::optional<identity> read_discovery_answer(std::span<std::byte const> message, uint16_t request);

/// Answer to a register read.
struct register_answer {
    uint16_t status = 0;  ///< 0: success; else the camera refused
    uint32_t value = 0;
};
/// \return null unless `message` answers read `request` with a refusal or with exactly one value
std::optional<register_answer> read_register_answer(std::span<std::byte const> message, uint16_t request);

/// A request's number is never 0; they go round.
uint16_t next_request(uint16_t request);

}  // namespace openpv::gvcp
