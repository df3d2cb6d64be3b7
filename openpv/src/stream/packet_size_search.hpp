// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Search for the largest packet size.

#include <cstdint>
#include <functional>
#include <optional>

namespace openpv {

/// Packet sizes that a camera supports, in bytes, IP header included. The defaults apply to a camera that does not
/// describe its limits.
struct packet_size_limits {
    std::uint32_t minimum = 576;   ///< every GigE Vision camera must support it
    std::uint32_t maximum = 9000;  ///< usual MTU with jumbo frames
    std::uint32_t increment = 4;   ///< GigE Vision packet sizes are multiples of four
};

/// Finds the largest size that passes, on the grid of `limits`. Tries the maximum first, because it passes on a network
/// configured for cameras, then the minimum, to detect a camera without test packets early, then bisects.
///
/// \param passes whether a packet of that many bytes arrives; must be false for all sizes above one that does not pass
/// \return null if not even the minimum passes
std::optional<std::uint32_t> find_max_passing(packet_size_limits const& limits,
                                              std::function<bool(std::uint32_t)> const& passes);

}  // namespace openpv
