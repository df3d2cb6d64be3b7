// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Host-side settings of a connection: the contents of `GetCommunicationParameters`.

#include <atomic>
#include <cstdint>
#include <memory>

#include <PvGenParameterArray.h>

namespace openpv {

/// Settings of one device. Shared by the device, which reads them, and the parameters, which write them; each member
/// may be accessed from any thread.
struct connection_settings {
    /// "AutoNegotiation": negotiates the packet size when streaming is enabled, unless the application has chosen one.
    std::atomic<bool> auto_negotiation = true;
    /// "DefaultPacketSize": packet size in bytes, IP header included, without negotiation or if it fails. 1476 is the
    /// Ethernet MTU of 1500 less the header of a GRE tunnel.
    std::atomic<std::int64_t> default_packet_size = 1476;
};

/// \return an array with these settings as parameters; it shares ownership of them
std::unique_ptr<PvGenParameterArray> make_communication_parameters(std::shared_ptr<connection_settings> settings);

}  // namespace openpv
