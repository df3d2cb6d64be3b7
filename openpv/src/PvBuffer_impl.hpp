#pragma once
/// \file
/// What a buffer and the stream that fills it know of each other.

#include <cstdint>
#include <memory>
#include <vector>

#include <PvBuffer.h>
#include <PvImage.h>

#include "block_receiver.hpp"
#include "chunk_layout.hpp"

namespace openpv {
class block_queue;
}

struct PvBuffer::impl {
    explicit impl(PvBuffer& buffer) : owner(&buffer) {}

    /// Takes over how a block ended; called before the buffer can be retrieved.
    void finish(openpv::received_block const& block);

    PvBuffer* const owner;
    uint8_t* memory = nullptr;
    uint32_t size = 0;  ///< bytes attached
    PvImage image;

    // The block received last.
    uint32_t result = 0;     ///< code of a `PvResult`
    uint64_t timestamp = 0;  ///< ticks of the camera's counter
    std::vector<openpv::chunk> chunks;

    /// The queue that holds this buffer at present.
    std::weak_ptr<openpv::block_queue> queue;
};
