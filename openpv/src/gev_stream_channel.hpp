#pragma once
/// \file
/// A camera's stream channel: packet size, destination, test packets.

#include <cstdint>

#include <arv.h>

#include <PvResult.h>

#include "packet_size_search.hpp"
#include "udp_socket.hpp"

namespace openpv {

/// One stream channel of a connected camera. Used within `camera_session::access`.
class gev_stream_channel {
public:
    gev_stream_channel(ArvDevice& device, uint32_t channel) : device_(device), channel_(channel) {}

    PvResult check_exists();  ///< INVALID_PARAMETER when the camera has fewer channels

    PvResult get_packet_size(uint32_t& bytes);
    PvResult check_packet_size_unlocked();  ///< NOT_SUPPORTED while streaming
    /// Through the feature "GevSCPSPacketSize" where the camera has it, so that its limits and locks count.
    PvResult set_packet_size(uint32_t bytes);
    PvResult get_packet_size_limits(packet_size_limits& limits);

    PvResult get_destination(udp_endpoint& destination);
    PvResult set_destination(udp_endpoint destination);

    /// Has the camera send one test packet of that size to the destination, unfragmented, and makes it the channel's
    /// size.
    PvResult fire_test_packet(uint32_t bytes);

private:
    PvResult read_register(char const* what, uint32_t offset, uint32_t& value);
    PvResult write_register(char const* what, uint32_t offset, uint32_t value);
    /// Calls `operation(ArvGcInteger*, GError**)`, which returns a `PvResult`, on "GevSCPSPacketSize" with this channel
    /// selected; `found` is false, and nothing is called, when the camera cannot reach this channel's size by its
    /// features.
    template <class function>
    PvResult with_packet_size_feature(char const* what, bool& found, function&& operation);

    ArvDevice& device_;
    uint32_t channel_;
};

}  // namespace openpv
