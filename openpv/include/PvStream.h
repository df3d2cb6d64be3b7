// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>
#include <memory>

#include <PvBuffer.h>
#include <PvResult.h>
#include <PvString.h>

/// Receives blocks from a camera into queued buffers, on a thread of its own.
///
/// Obtain it with `CreateAndOpen` and free it with `Free`. Queue buffers, call `PvDevice::StreamEnable`, start the
/// acquisition, then retrieve each buffer and queue it again. Buffers are filled in queue order. A stream survives a
/// loss of the camera and continues after `PvDevice::Connect` and `StreamEnable`. Functions of an open stream may be
/// called from any thread. Failures are returned as `PvResult`; nothing throws.
class PvStream {
public:
    struct impl;
    explicit PvStream(std::unique_ptr<impl> state);
    PvStream(PvStream const&) = delete;
    PvStream& operator=(PvStream const&) = delete;
    virtual ~PvStream();

    /// Opens the stream of a camera, with a socket of its own. Uses the connection of a `PvDevice` of this process, or
    /// connects the camera until the stream is freed. The camera sends to this socket, or, if its GevSCDA is a
    /// multicast address, still to that group, which the stream joins. \param connectionId from
    /// `PvDeviceInfo::GetConnectionID` \param result receives the outcome; may be null. INVALID_PARAMETER for an
    /// invalid ID, GENERIC_ERROR if the
    ///     stream is open already, NOT_CONNECTED if the device's connection is lost, NOT_SUPPORTED with read-only
    ///     access if the camera does not send to a multicast group; otherwise as `PvDevice::CreateAndConnect`
    /// \return the stream, to be freed with `Free`; null on failure
    static PvStream* CreateAndOpen(PvString const& connectionId, PvResult* result);
    /// Closes and destroys a stream. Queued buffers become free without being retrieved.
    /// \param stream may be null
    static void Free(PvStream* stream);

    /// Queues a buffer behind the others.
    /// \param buffer with attached memory; belongs to the stream until it is retrieved
    /// \return INVALID_PARAMETER if it is null, queued already or without memory, GENERIC_ERROR if the queue is full
    PvResult QueueBuffer(PvBuffer* buffer);
    /// Waits for the oldest finished buffer.
    /// \param buffer receives the buffer, which belongs to the caller until it is queued again; unchanged unless OK
    /// \param operation receives the result of its block: OK, MISSING_PACKETS, BUFFER_TOO_SMALL or ABORTED
    /// \param timeoutMs milliseconds; 0xFFFFFFFF waits without limit
    /// \return TIMEOUT if no buffer was finished in time, NOT_CONNECTED if the camera is lost and no finished buffer is
    ///     left, INVALID_PARAMETER if a pointer is null
    PvResult RetrieveBuffer(PvBuffer** buffer, PvResult* operation, uint32_t timeoutMs);
    /// Finishes every queued buffer as ABORTED, behind those that are finished already.
    /// \return always OK
    PvResult AbortQueuedBuffers();
    /// \return buffers that are queued, or finished and not yet retrieved
    uint32_t GetQueuedBufferCount();
    /// \return largest possible value of `GetQueuedBufferCount()`
    uint32_t GetQueuedBufferMaximum();

protected:
    std::unique_ptr<impl> impl_;
};
