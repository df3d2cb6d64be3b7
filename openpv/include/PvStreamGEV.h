#pragma once
#include <PvStream.h>

/// A stream of a GigE Vision camera: GVSP over UDP.
class PvStreamGEV : public PvStream {
public:
    using PvStream::PvStream;

    uint16_t GetLocalPort() const;       ///< UDP port on which the stream receives
    PvString GetLocalIPAddress() const;  ///< the host's address on the camera's side
};
