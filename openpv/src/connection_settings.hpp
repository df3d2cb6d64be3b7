#pragma once
/// \file
/// Settings of the connection on the host's side: what `GetCommunicationParameters` offers.

#include <atomic>
#include <cstdint>
#include <memory>

#include <PvGenParameterArray.h>

namespace openpv {

struct connection_settings {
    /// Whether the packet size is negotiated when streaming is enabled and nobody has chosen one. "AutoNegotiation".
    std::atomic<bool> auto_negotiation = true;
    /// Bytes, IP header included: the packet size without negotiation, or when it fails. "DefaultPacketSize". 1476 fits
    /// through every Ethernet with room for a tunnel's header.
    std::atomic<int64_t> default_packet_size = 1476;
};

/// \return an array with these settings as parameters
std::unique_ptr<PvGenParameterArray> make_communication_parameters(std::shared_ptr<connection_settings> settings);

}  // namespace openpv
