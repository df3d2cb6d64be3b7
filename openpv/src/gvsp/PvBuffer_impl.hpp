// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// State of a buffer that the stream shares with the public class.

#include <cstdint>
#include <memory>
#include <vector>

#include <PvBuffer.h>
#include <PvImage.h>

#include "gvsp/block_receiver.hpp"
#include "gvsp/chunk_layout.hpp"

namespace openpv {
class block_queue;
}

/// While a buffer is queued, only its `block_queue` and the receiver's thread access this state. Otherwise the thread
/// that holds the buffer does.
struct PvBuffer::impl {
    explicit impl(PvBuffer& buffer) : owner(&buffer) {}

    /// Stores the result of a block and finds its chunks. Called before the buffer can be retrieved.
    void finish(openpv::received_block const& block);

    PvBuffer* const owner;
    std::uint8_t* memory = nullptr;  ///< owned by the caller of `Attach`
    std::uint32_t size = 0;          ///< bytes attached
    PvImage image;

    // The block received last.
    std::uint32_t result = 0;     ///< code of a `PvResult`
    std::uint64_t timestamp = 0;  ///< ticks of the camera clock
    std::vector<openpv::chunk> chunks;

    std::weak_ptr<openpv::block_queue> queue;  ///< the queue that holds this buffer; empty while it is not queued
};
