// SPDX-License-Identifier: MIT
#pragma once
#include <PvStream.h>

/// A stream of a GigE Vision camera: GVSP over UDP. Every `PvStream` of this layer is one; use `dynamic_cast`.
class PvStreamGEV : public PvStream {
public:
    using PvStream::PvStream;

    /// \return UDP port on which the stream receives; changes with each `StreamEnable`
    uint16_t GetLocalPort() const;
    /// \return the address to which the camera sends: the host's on the camera's network, or that of a multicast group
    PvString GetLocalIPAddress() const;
};
