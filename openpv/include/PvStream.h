#pragma once
#include <cstdint>
#include <memory>

#include <PvBuffer.h>
#include <PvResult.h>
#include <PvString.h>

/// Receives blocks from a camera into queued buffers, on a thread of its own.
class PvStream {
public:
    struct impl;
    explicit PvStream(std::unique_ptr<impl> state);
    PvStream(PvStream const&) = delete;
    PvStream& operator=(PvStream const&) = delete;
    virtual ~PvStream();

    /// \return the open stream, or null with the reason in `result`
    static PvStream* CreateAndOpen(PvString const& connectionId, PvResult* result);
    static void Free(PvStream* stream);

    PvResult QueueBuffer(PvBuffer* buffer);
    /// Waits for a finished buffer. `operation` receives how its block ended. Without OK as the call's result no buffer
    /// is handed out. A time-out of 0xFFFFFFFF waits for ever.
    PvResult RetrieveBuffer(PvBuffer** buffer, PvResult* operation, uint32_t timeoutMs);
    PvResult AbortQueuedBuffers();    ///< finishes every queued buffer as ABORTED
    uint32_t GetQueuedBufferCount();  ///< queued, or finished and not yet retrieved
    uint32_t GetQueuedBufferMaximum();

protected:
    std::unique_ptr<impl> impl_;
};
