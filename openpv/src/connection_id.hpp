#pragma once
/// \file
/// The name by which a discovered camera is opened.

#include <cstdint>
#include <optional>
#include <string>

#include "ipv4_address.hpp"

namespace openpv {

/// A camera, and the way to it. Text form `MAC@CAMERA%HOST`, for example `00:11:1c:00:00:07@192.168.1.20%192.168.1.1`:
/// the MAC address says which camera (two of one model, or one that took over an address, are told apart), the host's
/// address says through which network interface (two interfaces may see the same address).
struct connection_id {
    uint64_t mac = 0;  ///< low 48 bits
    ipv4_address camera;
    ipv4_address host;

    bool operator==(connection_id const&) const = default;
};

std::string to_text(connection_id const& id);
std::optional<connection_id> parse_connection_id(std::string const& text);

/// `00:11:1c:00:00:07`
std::string mac_to_text(uint64_t mac);

}  // namespace openpv
