// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace camsim {

/// How fast the packets of a frame follow each other (`--pacing`).
struct packet_pacing {
    enum class kind : std::uint8_t {
        burst,   ///< as fast as the host sends
        rate,    ///< `value` bytes per second
        spread,  ///< over the fraction `value` (above 0, up to 1) of the frame period
    };

    kind how = kind::spread;
    double value = 0.5;  ///< the default leaves half of the period for the receiver to catch up

    /// Time between the starts of two packets, without the stream channel's own packet delay (GevSCPD).
    /// \param packet_bytes size of a full packet with all headers
    /// \param packets packets of the frame
    std::chrono::duration<double> packet_interval(std::size_t packet_bytes, std::uint32_t packets,
                                                  std::chrono::duration<double> frame_period) const;
};

/// Parses "burst", a rate in megabytes (10^6 bytes) per second such as "118", or "spread:FRACTION".
/// \return empty if the text is not valid
std::optional<packet_pacing> parse_pacing(std::string const& text);

}  // namespace camsim
