#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace camsim {

/// How fast a frame's packets follow each other.
struct packet_pacing {
    enum class kind : std::uint8_t {
        burst,   ///< as fast as the host sends
        rate,    ///< `value` bytes a second
        spread,  ///< over `value` (0 to 1) of the frame period
    };

    kind how = kind::spread;
    double value = 0.5;

    std::chrono::duration<double> packet_interval(std::size_t packet_bytes, std::uint32_t packets,
                                                  std::chrono::duration<double> frame_period) const;
};

std::optional<packet_pacing> parse_pacing(std::string const& text);

}  // namespace camsim
