// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Connection IDs: the text that names a discovered camera to `PvDevice` and `PvStream`.

#include <cstdint>
#include <optional>
#include <string>

#include "net/ipv4_address.hpp"

namespace openpv {

/// A camera and the host address through which it is reached.
///
/// Text form `MAC@CAMERA%HOST`, for example `00:11:1c:00:00:07@192.168.1.20%192.168.1.1`. The MAC address identifies
/// the camera: it distinguishes two cameras of one model, and detects that another camera has taken over the address.
/// The host address selects the network interface, because two interfaces may reach the same address.
struct connection_id {
    std::uint64_t mac = 0;  ///< low 48 bits
    ipv4_address camera;
    ipv4_address host;

    bool operator==(connection_id const&) const = default;
};

std::string to_text(connection_id const& id);
/// \return null if `text` is not a valid connection ID
std::optional<connection_id> parse_connection_id(std::string const& text);

/// \return for example `00:11:1c:00:00:07`
std::string mac_to_text(std::uint64_t mac);

}  // namespace openpv
