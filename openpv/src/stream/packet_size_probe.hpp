// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Packet size negotiation.

#include <cstdint>

#include <PvResult.h>

#include "stream/stream_channel.hpp"

namespace openpv {

/// Finds the largest packet size that travels from the camera to the host unfragmented, and sets it.
///
/// The camera sends GVSP test packets of different sizes to a socket that exists only during the negotiation. The
/// stream destination is restored afterwards. If the negotiation fails, the packet size is restored too. Blocks for up
/// to 0.3 s per size that does not arrive. Call it within `camera_session::access`, and not while streaming.
///
/// \param host local address on the camera's network
/// \param camera address that test packets must come from
/// \param found receives the packet size in bytes, IP header included, on success
/// \return TIMEOUT if no test packet arrived; NOT_SUPPORTED if the packet size is locked; or the camera's error
PvResult negotiate_packet_size(stream_channel& channel, ipv4_address host, ipv4_address camera, std::uint32_t& found);

}  // namespace openpv
