#pragma once
/// \file
/// The seam between a stream and the engine that receives its blocks.

#include <cstddef>
#include <cstdint>

#include <PvBuffer.h>

namespace openpv {

/// How a block ended, and what its leader said.
struct received_block {
    uint32_t result = 0;     ///< code of a `PvResult`
    uint32_t width = 0;      ///< pixels; 0 when the leader tells of no picture
    uint32_t height = 0;     ///< lines
    uint64_t timestamp = 0;  ///< ticks of the camera's counter
    std::size_t bytes = 0;   ///< received into the buffer's memory
    std::size_t image_bytes =
        0;  ///< of the picture without chunks, as its size and pixel format make it; 0 when unknown
};

/// Hears what becomes of buffers, on the receiver's thread.
class block_sink {
public:
    virtual void block_finished(PvBuffer::impl& buffer, received_block const& block) = 0;

protected:
    ~block_sink() = default;
};

/// Receives blocks on a thread of its own and places them, without a copy, in the buffers that it was given, in that
/// order. Its operations are called one at a time, and only by the queue that owns it.
class block_receiver {
public:
    virtual ~block_receiver() = default;  ///< takes back what was given

    virtual void give(PvBuffer::impl& buffer) = 0;
    /// Begins to receive: after it was made, and after `take_back`.
    virtual void start() = 0;
    /// Returns when the receiver has no buffer any more and touches no buffer's memory. A buffer whose block had ended
    /// is reported first, the others are not. Blocks that come before `start` are lost.
    virtual void take_back() = 0;
};

}  // namespace openpv
