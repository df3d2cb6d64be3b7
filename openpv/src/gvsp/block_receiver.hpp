// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Interface between the buffer queue of a stream and the receiver that fills the buffers.

#include <cstddef>
#include <cstdint>

#include <PvBuffer.h>

namespace openpv {

/// Result of one block and the contents of its leader.
struct received_block {
    std::uint32_t result = 0;     ///< code of a `PvResult`
    std::uint32_t width = 0;      ///< pixels; 0 if the leader describes no image
    std::uint32_t height = 0;     ///< lines
    std::uint64_t timestamp = 0;  ///< ticks of the camera clock
    std::size_t bytes = 0;        ///< received into the buffer's memory
    /// Image size without chunks in bytes, calculated from its dimensions and pixel format; 0 if unknown.
    std::size_t image_bytes = 0;
};

/// Receives finished buffers.
class block_sink {
public:
    /// Called on the receiver's thread, once per buffer, in the order in which the blocks end. Must not call the
    /// receiver.
    virtual void block_finished(PvBuffer::impl& buffer, received_block const& block) = 0;

protected:
    ~block_sink() = default;
};

/// Receives blocks on a thread of its own and writes them directly into the buffers that were added, in that order.
///
/// A `block_queue` owns the receiver and serialises all calls, so implementations need to synchronise only with their
/// own thread. Buffers are borrowed: from `add_buffer` until `block_finished` reports them or `stop` returns.
class block_receiver {
public:
    virtual ~block_receiver() = default;  ///< as `stop`

    /// Adds a buffer behind those that were added before. May be called while the receiver runs.
    virtual void add_buffer(PvBuffer::impl& buffer) = 0;
    /// Starts receiving. Called after construction and after `stop`.
    virtual void start() = 0;
    /// Stops receiving and releases all buffers. Blocks that are complete are reported before it returns; the other
    /// buffers are not reported, and their memory is no longer accessed. Packets that arrive before the next `start`
    /// are lost.
    virtual void stop() = 0;
};

}  // namespace openpv
