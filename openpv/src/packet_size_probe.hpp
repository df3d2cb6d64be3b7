#pragma once
/// \file
/// Finds the largest packet that gets from a camera to the host in one piece.

#include <cstdint>

#include <PvResult.h>

#include "gev_stream_channel.hpp"

namespace openpv {

/// Tries packet sizes with the camera's test packets, sent to a socket of its own; the channel's destination is put
/// back afterwards, and the size that was found is set.
///
/// \param host the host's address on the camera's side
/// \param camera where test packets must come from
/// \return OK with the size in `found`; TIMEOUT when no test packet arrived: then the size is what it was before
PvResult negotiate_packet_size(gev_stream_channel& channel, ipv4_address host, ipv4_address camera, uint32_t& found);

}  // namespace openpv
