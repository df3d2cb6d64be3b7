#pragma once
/// \file
/// Which packet size to try next.

#include <cstdint>
#include <functional>
#include <optional>

namespace openpv {

/// Packet sizes that a camera offers, in bytes with the IP header.
struct packet_size_limits {
    uint32_t minimum = 576;  ///< what every camera must be able to send
    uint32_t maximum = 9000;
    uint32_t increment = 4;
};

/// Searches for the largest size that passes, on the grid of `limits`. The largest is tried first, because on a network
/// that was made for cameras it passes; then the smallest, so that a camera without test packets is found out soon;
/// then by halves.
///
/// \param passes whether a packet of that many bytes arrives; sizes above one that does not pass must not pass either
/// \return null when not even the smallest passes
std::optional<uint32_t> find_largest_passing(packet_size_limits const& limits,
                                             std::function<bool(uint32_t)> const& passes);

}  // namespace openpv
