// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Cameras on the networks of this machine, as `gevctl list` finds them.
///
/// gevctl runs as a process of its own: this program must not contain a second copy of the layer that the plug-in uses.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mediagrabber {

/// A camera that acknowledged a search. Also one in another subnet does, by broadcast.
struct listed_camera {
    std::string name;  ///< model and serial number
    std::string address;
    std::string interface;
    bool reachable = false;     ///< whether it responds at its address
    std::string controlled_by;  ///< address of the application that has control; empty: none
    std::string
        command_to_reach;  ///< that gives the camera an address of this network; empty if reachable or not known
};

/// Searches for about a second.
/// \param interface  limits the result to this interface; empty: all
/// \return null if gevctl is neither beside this program nor on the path, or fails
std::optional<std::vector<listed_camera>> search_cameras(std::string const& interface);

/// \param json  the output of `gevctl list --json`
/// \return null if it is something else
std::optional<std::vector<listed_camera>> parse_camera_list(std::string_view json);

}  // namespace mediagrabber
