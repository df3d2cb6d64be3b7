// SPDX-License-Identifier: MIT
#pragma once
#include <PvBuffer.h>

#include <cstdint>
#include <memory>
#include <vector>

class PvStream;

namespace Vorn::Support::MediaGrabber::Jai {

/// Wraps the host's frame buffers in SDK buffers, so that the camera's frames are received into the host's memory.
///
/// The factory owns the SDK buffers, the host owns the memory behind them. The SDK buffers live until a later
/// `GetBuffer` checks the host's buffers again. Used by the thread that called `MgLibProc`. Failures are returned and
/// logged.
class buffer_factory {
public:
    /// Checks the host's buffers, wraps them and queues them on the stream. The buffers must lie one after the other
    /// in memory, at equal distances.
    /// \param stream receives the buffers; null: only the check
    /// \param size in: bytes that a buffer must hold, out: distance from one buffer to the next
    /// \param count number of buffers
    /// \return the first host buffer, or null: the buffers are not usable
    void* GetBuffer(PvStream* stream, uint32_t* size, uint32_t count);

private:
    std::vector<std::unique_ptr<PvBuffer>> buffers_;  ///< in the host's order
};

/// The plug-in's only factory. It keeps the buffers of the last run until the next one.
extern buffer_factory mgBufFactory;

}  // namespace Vorn::Support::MediaGrabber::Jai
