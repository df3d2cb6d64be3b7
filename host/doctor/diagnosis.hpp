// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Checks a machine for settings that cause frame loss or wrong timestamps, and suggests fixes.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "config/configuration.hpp"
#include "doctor/camera_search.hpp"
#include "doctor/machine.hpp"

namespace mediagrabber {

/// The load that a recording puts on the machine.
struct demand {
    double frame_bytes = 0;                     ///< of one frame on the network
    double bytes_per_s = 0;                     ///< of all frames
    std::optional<std::uint32_t> packet_bytes;  ///< configured packet size; nothing: negotiated with the camera
};

/// \return the load of a configuration. A size or rate left to the camera counts as the maximum of gigabit Ethernet
demand demand_of(configuration const& configured);

enum class severity : std::uint8_t {
    good,
    advice,   ///< frames may arrive without it, at the cost of CPU time or reserve
    bad,      ///< frames are lost or have wrong timestamps
    unknown,  ///< could not be determined
};

/// The result of one check.
struct finding {
    severity level = severity::unknown;
    std::string what;           ///< the subject of the check
    std::string found;          ///< its state
    std::string wanted;         ///< recommended state and reason; empty if good
    std::string command;        ///< that sets the recommended state or shows more; empty if good
    bool until_reboot = false;  ///< whether the command's effect ends with the next boot; see fix_plan()
};

/// \param found  as returned by examine_machine()
/// \return the findings per interface, then those of the machine
std::vector<finding> diagnose(machine const& found, demand const& needed);

/// \param found  as returned by search_cameras()
/// \return a finding per camera, or one that says why there is none
std::vector<finding> evaluate_cameras(std::optional<std::vector<listed_camera>> const& found);

/// \param bytes_per_s  measured by measure_disk()
/// \param directory    of the recording
finding evaluate_disk(double bytes_per_s, demand const& needed, std::string const& directory);

}  // namespace mediagrabber
