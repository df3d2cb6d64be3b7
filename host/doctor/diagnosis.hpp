#pragma once
/// \file
/// What of a machine would lose frames, and how it is mended.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "configuration.hpp"
#include "doctor/machine.hpp"

namespace mediagrabber {

/// What a recording asks of the machine.
struct demand {
    double frame_bytes = 0;                     ///< of one frame on the network
    double bytes_per_s = 0;                     ///< of all of them
    std::optional<std::uint32_t> packet_bytes;  ///< nothing: negotiated with the camera
};

/// What a configuration asks for. Where it leaves size or rate to the camera, as much as a gigabit line can bring.
demand demand_of(configuration const& configured);

enum class verdict : std::uint8_t {
    good,
    advice,   ///< frames may come without it; it costs processor time, or steadiness
    bad,      ///< frames get lost, or have wrong times
    unknown,  ///< it could not be found out
};

struct finding {
    verdict judged = verdict::unknown;
    std::string what;
    std::string found;
    std::string wanted;   ///< empty when it is good
    std::string command;  ///< that mends it, or tells more; empty when it is good
};

/// The findings about each interface, then those about the whole machine.
std::vector<finding> diagnose(machine const& found, demand const& asked);

/// \param directory where the recording would go
finding judge_disk(double bytes_per_s, demand const& asked, std::string const& directory);

}  // namespace mediagrabber
