// SPDX-License-Identifier: MIT
#pragma once
#include <PvDevice.h>

/// A GigE Vision camera under control of this application. Every `PvDevice` of this layer is one; use `dynamic_cast`.
class PvDeviceGEV : public PvDevice {
public:
    using PvDevice::PvDevice;

    /// Sets the packet size. For channel 0 it is set again after a reconnection.
    /// \param size bytes, IP header included
    /// \param channel stream channel of the camera
    /// \return INVALID_PARAMETER outside the camera's limits or without that channel, NOT_SUPPORTED while streaming,
    ///     NOT_CONNECTED
    PvResult SetPacketSize(uint32_t size, uint32_t channel = 0);
    /// Finds the largest packet size that reaches the host unfragmented, and sets it. Blocks for up to 0.3 s per size
    /// that does not arrive.
    /// \param channel stream channel of the camera
    /// \param defaultSize packet size in bytes that is set if the negotiation fails; 0: "DefaultPacketSize"
    /// \return TIMEOUT if no test packet arrived, also if the default was set; otherwise as `SetPacketSize`
    PvResult NegotiatePacketSize(uint32_t channel = 0, uint32_t defaultSize = 0);
    /// Sets where the camera sends a stream. `StreamEnable` replaces it if a stream is open on the channel.
    /// \param address IPv4 address in dotted decimal form
    /// \param port UDP port; 0 closes the channel
    /// \param channel stream channel of the camera
    /// \return INVALID_PARAMETER for an invalid address or channel, NOT_CONNECTED
    PvResult SetStreamDestination(PvString const& address, uint16_t port, uint32_t channel = 0);
};
