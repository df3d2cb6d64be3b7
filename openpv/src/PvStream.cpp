#include <PvStream.h>

#include <chrono>
#include <optional>
#include <utility>

#include <PvStreamGEV.h>

#include "connection_id.hpp"
#include "gvsp_receiver.hpp"
#include "PvBuffer_impl.hpp"
#include "PvStream_impl.hpp"

namespace {

constexpr uint32_t wait_for_ever = 0xFFFFFFFF;

}  // namespace

std::unique_ptr<PvStream::impl> PvStream::impl::open(openpv::connection_id const& id, PvResult& result) {
    std::unique_ptr<impl> opened(new impl(id));
    result = opened->link->attach(*opened);
    opened->attached_ = result.IsOK();
    if (result.IsOK()) {
        result = opened->make_receiver(false);
    }
    return result.IsOK() ? std::move(opened) : nullptr;
}

PvStream::impl::~impl() {
    queue->set_receiver(nullptr);
    if (attached_) {
        link->detach();
    }
}

void PvStream::impl::camera_lost() {
    queue->wake();
}

void PvStream::impl::session_closes() {
    queue->set_receiver(nullptr);
    queue->wake();
}

/// A new receiver each time: packet size and connection may have changed, the camera counts its blocks from 1 again,
/// and what is left of an earlier sequence in the old receiver's socket must not get a buffer.
PvResult PvStream::impl::streaming_starts() {
    return make_receiver(true);
}

void PvStream::impl::streaming_ends() {
    queue->set_receiver(nullptr);
}

PvResult PvStream::impl::make_receiver(bool streaming) {
    queue->set_receiver(nullptr);
    return link->access("The stream cannot be opened", [this, streaming](ArvDevice& device) {
        PvResult result;
        auto receiver = openpv::gvsp_receiver::make(device, link->id(), queue->sink(), streaming, result);
        if (receiver) {
            local_port = receiver->local_port();
            queue->set_receiver(std::move(receiver));
        }
        return result;
    });
}

PvStream::PvStream(std::unique_ptr<impl> state) : impl_(std::move(state)) {}
PvStream::~PvStream() = default;

PvStream* PvStream::CreateAndOpen(PvString const& connectionId, PvResult* result) {
    PvResult outcome;
    PvStream* stream = nullptr;
    if (auto const id = openpv::parse_connection_id(connectionId.GetAscii())) {
        if (auto opened = impl::open(*id, outcome)) {
            stream = new PvStreamGEV(std::move(opened));
        }
    } else {
        outcome = {PvResult::Code::INVALID_PARAMETER, "The stream cannot be opened: this is no connection ID."};
    }
    if (result != nullptr) {
        *result = outcome;
    }
    return stream;
}

void PvStream::Free(PvStream* stream) {
    delete stream;
}

PvResult PvStream::QueueBuffer(PvBuffer* buffer) {
    if (buffer == nullptr) {
        return {PvResult::Code::INVALID_PARAMETER, "There is no buffer to queue: the pointer is null."};
    }
    return impl_->queue->add(*buffer->impl_);
}

PvResult PvStream::RetrieveBuffer(PvBuffer** buffer, PvResult* operation, uint32_t timeoutMs) {
    if (buffer == nullptr || operation == nullptr) {
        return {PvResult::Code::INVALID_PARAMETER,
                "There is no place for the buffer and its result: a pointer is null."};
    }
    std::optional<std::chrono::milliseconds> timeout;
    if (timeoutMs != wait_for_ever) {
        timeout = std::chrono::milliseconds(timeoutMs);
    }
    return impl_->queue->retrieve(*buffer, *operation, timeout, [this] { return impl_->link->alive(); });
}

PvResult PvStream::AbortQueuedBuffers() {
    impl_->queue->abort();
    return {};
}

uint32_t PvStream::GetQueuedBufferCount() {
    return static_cast<uint32_t>(impl_->queue->count());
}
uint32_t PvStream::GetQueuedBufferMaximum() {
    return static_cast<uint32_t>(openpv::block_queue::maximum);
}
