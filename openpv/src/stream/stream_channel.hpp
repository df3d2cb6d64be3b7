// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Stream channel of a camera: packet size, destination, test packets.

#include <cstdint>

#include <PvResult.h>

#include "genicam/node_graph.hpp"
#include "gvcp/register_port.hpp"
#include "net/udp_socket.hpp"
#include "stream/packet_size_search.hpp"

namespace openpv {

/// Accesses the registers and features of one stream channel.
///
/// A short-lived view: create it inside `camera_session::access`, which provides the device and serialises access, and
/// do not keep it. Each operation is one or several round trips to the camera and returns its error; arguments that
/// receive a value are set only on success, unless noted.
class stream_channel {
public:
    stream_channel(register_port& registers, node_graph& features, std::uint32_t channel)
        : registers_(registers), features_(features), channel_(channel) {}

    PvResult check_exists();  ///< \return INVALID_PARAMETER if the camera has fewer channels

    /// \param bytes packet size, IP header included
    PvResult get_packet_size(std::uint32_t& bytes);
    PvResult check_packet_size_unlocked();  ///< \return NOT_SUPPORTED while the camera locks the packet size
    /// Sets the packet size through the feature "GevSCPSPacketSize" if the camera has it, so that its limits and locks
    /// apply; otherwise through the register.
    /// \param bytes packet size, IP header included
    /// \return INVALID_PARAMETER outside the limits, NOT_SUPPORTED while locked
    PvResult set_packet_size(std::uint32_t bytes);
    /// \param limits unchanged if the camera does not describe valid limits
    PvResult get_packet_size_limits(packet_size_limits& limits);

    PvResult get_destination(udp_endpoint& destination);  ///< where the camera sends the stream
    PvResult set_destination(udp_endpoint destination);

    /// Makes the camera send one unfragmented test packet to the destination. The packet size of the channel changes to
    /// `bytes`.
    PvResult fire_test_packet(std::uint32_t bytes);

private:
    PvResult read_register(char const* what, std::uint32_t offset, std::uint32_t& value);
    PvResult write_register(char const* what, std::uint32_t offset, std::uint32_t value);
    /// Calls `operation(node&, evaluation&)`, which returns a `PvResult`, on "GevSCPSPacketSize" with this channel
    /// selected, and restores the selector.
    /// \param found false, without a call, if the camera does not have the feature for this channel
    template <class function>
    PvResult with_packet_size_feature(char const* what, bool& found, function&& operation);

    register_port& registers_;
    node_graph& features_;
    std::uint32_t channel_;
};

}  // namespace openpv
