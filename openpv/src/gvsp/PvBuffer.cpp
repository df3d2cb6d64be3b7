// SPDX-License-Identifier: MIT
#include <PvBuffer.h>

#include <algorithm>
#include <span>
#include <string>

#include "gvsp/block_queue.hpp"
#include "gvsp/PvBuffer_impl.hpp"

void PvBuffer::impl::finish(openpv::received_block const& block) {
    result = block.result;
    timestamp = block.timestamp;
    image.width_ = block.width;
    image.height_ = block.height;
    chunks.clear();
    if (result == PvResult::Code::OK) {
        openpv::find_chunks(std::span(memory, std::min<std::size_t>(block.bytes, size)), block.image_bytes, chunks);
    }
}

/// The type is ignored because there is only one: an image with appended chunks is an image too.
PvBuffer::PvBuffer(PvPayloadType /*type*/) : impl_(std::make_unique<impl>(*this)) {}

PvBuffer::~PvBuffer() {
    if (auto const queue = impl_->queue.lock()) {
        queue->withdraw(*impl_);
    }
}

PvResult PvBuffer::Attach(void* memory, uint32_t bytes) {
    if (memory == nullptr || bytes == 0) {
        return {PvResult::Code::INVALID_PARAMETER,
                "The buffer cannot be attached: the memory is null or its size is 0."};
    }
    if (!impl_->queue.expired()) {
        return {PvResult::Code::INVALID_PARAMETER, "The buffer cannot be attached: it is queued. Retrieve it first."};
    }
    impl_ = std::make_unique<impl>(*this);
    impl_->memory = static_cast<uint8_t*>(memory);
    impl_->size = bytes;
    impl_->image.data_ = impl_->memory;
    return {};
}

PvPayloadType PvBuffer::GetPayloadType() const {
    return PvPayloadTypeImage;
}
PvImage* PvBuffer::GetImage() {
    return &impl_->image;
}
uint64_t PvBuffer::GetTimestamp() const {
    return impl_->timestamp;
}

uint32_t PvBuffer::GetChunkCount() {
    return static_cast<uint32_t>(impl_->chunks.size());
}

PvResult PvBuffer::GetChunkIDByIndex(uint32_t index, uint32_t& id) {
    if (index >= impl_->chunks.size()) {
        return {PvResult::Code::NOT_FOUND,
                ("The chunk cannot be found: index " + std::to_string(index) + " is beyond the block's " +
                 std::to_string(impl_->chunks.size()) + " chunks.")
                    .c_str()};
    }
    id = impl_->chunks[index].id;
    return {};
}

uint32_t PvBuffer::GetChunkSizeByIndex(uint32_t index) {
    return index < impl_->chunks.size() ? static_cast<uint32_t>(impl_->chunks[index].bytes) : 0;
}

uint8_t const* PvBuffer::GetChunkRawDataByID(uint32_t id) {
    auto const found = std::ranges::find(impl_->chunks, id, &openpv::chunk::id);
    return found != impl_->chunks.end() ? impl_->memory + found->offset : nullptr;
}
