#pragma once
#include <PvDevice.h>

/// A connected GigE Vision camera.
class PvDeviceGEV : public PvDevice {
public:
    using PvDevice::PvDevice;

    PvResult SetPacketSize(uint32_t size, uint32_t channel = 0);  ///< bytes, IP header included
    /// Finds the largest packet that reaches the host and sets it; `defaultSize` (0: none) when none can be found.
    PvResult NegotiatePacketSize(uint32_t channel = 0, uint32_t defaultSize = 0);
    PvResult SetStreamDestination(PvString const& address, uint16_t port, uint32_t channel = 0);
};
