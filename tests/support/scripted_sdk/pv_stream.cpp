// SPDX-License-Identifier: MIT
/// \file
/// PvStream and PvStreamGEV.
#include <PvStreamGEV.h>

#include <deque>

#include "scripted_objects.hpp"

using support::journal;
using support::outside_plugin;

struct PvStream::impl {
    scripted::device& script;
    std::deque<PvBuffer*> queued{};
    std::deque<PvBuffer*> aborted{};
    uint32_t made = 0;  ///< blocks made by the endless script

    scripted::block next_block() {
        if (!script.blocks.empty()) {
            auto next = std::move(script.blocks.front());
            script.blocks.pop_front();
            return next;
        }
        if (script.endless) {
            return script.endless(made++);
        }
        return {.call = PvResult::Code::TIMEOUT};
    }
};

PvStream::PvStream(std::unique_ptr<impl> state) : impl_(std::move(state)) {
    ++scripted::sdk().streams_alive;
}
PvStream::~PvStream() {
    --scripted::sdk().streams_alive;
}

PvStream* PvStream::CreateAndOpen(PvString const& connection_id, PvResult* result) {
    journal().add("PvStream::CreateAndOpen(%s)", connection_id.GetAscii());
    auto* const script = scripted::find_device(connection_id);
    *result = script == nullptr ? PvResult::Code::NOT_FOUND : script->open_stream;
    if (script == nullptr || (!result->IsOK() && !script->half_connected)) {
        return nullptr;
    }
    std::unique_ptr<impl> state(new impl{*script});
    return script->stream_is_gev ? new PvStreamGEV(std::move(state)) : new PvStream(std::move(state));
}

void PvStream::Free(PvStream* stream) {
    journal().add("PvStream::Free()");
    delete stream;
}

PvResult PvStream::QueueBuffer(PvBuffer* buffer) {
    outside_plugin const scope;
    journal().add("QueueBuffer(%p)", buffer->impl_->memory);
    if (impl_->script.queue == scripted::ok) {
        impl_->queued.push_back(buffer);
    }
    return impl_->script.queue;
}

PvResult PvStream::RetrieveBuffer(PvBuffer** buffer, PvResult* operation, uint32_t timeout_ms) {
    outside_plugin const scope;
    journal().add("RetrieveBuffer(%u)", timeout_ms);
    *buffer = nullptr;
    if (!impl_->aborted.empty()) {
        *buffer = impl_->aborted.front();
        impl_->aborted.pop_front();
        *operation = PvResult::Code::ABORTED;
        return scripted::ok;
    }
    auto block = impl_->next_block();
    if (block.before) {
        block.before();
    }
    if (block.call != scripted::ok) {
        return block.call;
    }
    if (block.without_buffer) {
        *operation = block.operation;
        return scripted::ok;
    }
    if (impl_->queued.empty()) {
        return PvResult::Code::TIMEOUT;
    }
    *buffer = impl_->queued.front();
    impl_->queued.pop_front();
    *operation = block.operation;
    (*buffer)->impl_->content = std::move(block);
    return scripted::ok;
}

PvResult PvStream::AbortQueuedBuffers() {
    outside_plugin const scope;
    journal().add("AbortQueuedBuffers()");
    if (impl_->script.abort != scripted::ok) {
        return impl_->script.abort;
    }
    impl_->aborted.insert(impl_->aborted.end(), impl_->queued.begin(), impl_->queued.end());
    impl_->queued.clear();
    return scripted::ok;
}
uint32_t PvStream::GetQueuedBufferCount() {
    return static_cast<uint32_t>(impl_->queued.size() + impl_->aborted.size());
}
uint32_t PvStream::GetQueuedBufferMaximum() {
    return impl_->script.queue_maximum;
}

uint16_t PvStreamGEV::GetLocalPort() const {
    return impl_->script.local_port;
}
PvString PvStreamGEV::GetLocalIPAddress() const {
    return impl_->script.local_address.c_str();
}
