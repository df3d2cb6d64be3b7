// SPDX-License-Identifier: MIT
/// \file
/// PvBuffer and PvImage.
#include <PvBuffer.h>

#include "scripted_objects.hpp"

using support::journal;

int32_t scripted::buffers_alive = 0;

PvBuffer::PvBuffer(PvPayloadType type) : impl_(std::make_unique<impl>()) {
    impl_->declared = type;
    impl_->content.payload = type;
    ++scripted::buffers_alive;
}
PvBuffer::~PvBuffer() {
    --scripted::buffers_alive;
}

PvResult PvBuffer::Attach(void* memory, uint32_t bytes) {
    journal().add("Attach(%p, %u)", memory, bytes);
    impl_->memory = memory;
    impl_->size = bytes;
    return scripted::sdk().attach;
}
PvPayloadType PvBuffer::GetPayloadType() const {
    return impl_->content.payload;
}
PvImage* PvBuffer::GetImage() {
    impl_->image.width_ = impl_->content.width;
    impl_->image.height_ = impl_->content.height;
    impl_->image.data_ = static_cast<uint8_t*>(impl_->memory);
    return impl_->content.without_image ? nullptr : &impl_->image;
}
uint64_t PvBuffer::GetTimestamp() const {
    return impl_->content.timestamp;
}
uint32_t PvBuffer::GetChunkCount() {
    journal().add("GetChunkCount()");
    return static_cast<uint32_t>(impl_->content.chunks.size());
}
PvResult PvBuffer::GetChunkIDByIndex(uint32_t index, uint32_t& id) {
    if (index >= impl_->content.chunks.size() || impl_->content.chunks[index].nameless) {
        return PvResult::Code::INVALID_PARAMETER;
    }
    id = impl_->content.chunks[index].id;
    return scripted::ok;
}
uint32_t PvBuffer::GetChunkSizeByIndex(uint32_t index) {
    auto const& chunks = impl_->content.chunks;
    return index < chunks.size() ? static_cast<uint32_t>(chunks[index].data.size()) : 0;
}
uint8_t const* PvBuffer::GetChunkRawDataByID(uint32_t id) {
    for (auto const& chunk : impl_->content.chunks) {
        if (chunk.id == id && !chunk.hidden) {
            return chunk.data.data();
        }
    }
    return nullptr;
}

uint32_t PvImage::GetWidth() const {
    return width_;
}
uint32_t PvImage::GetHeight() const {
    return height_;
}
uint8_t* PvImage::GetDataPointer() {
    return data_;
}
uint32_t PvImage::GetPixelSize(PvPixelType type) {
    return (static_cast<uint32_t>(type) >> 16) & 0xFF;
}
