#pragma once
/// \file
/// Finds the cameras behind the host's network interfaces.

#include <optional>
#include <vector>

#include "gvcp_message.hpp"
#include "ipv4_address.hpp"
#include "network_interface.hpp"

namespace openpv {

struct discovered_camera {
    gvcp::identity identity;
    ipv4_address camera;
    ipv4_address host;  ///< the host's address on which the camera answered
};

struct discovered_interface {
    network_interface interface;
    std::vector<discovered_camera> cameras;  ///< in order of their first answer
};

/// Broadcasts discovery on every interface and gathers answers for a second, the longest time the standard lets a
/// camera wait before it answers. An interface that cannot be searched (no route for broadcasts, say) is listed without
/// cameras.
///
/// \return null when the host's interfaces cannot be listed; `errno` says why
std::optional<std::vector<discovered_interface>> discover_cameras();

}  // namespace openpv
