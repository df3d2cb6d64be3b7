// SPDX-License-Identifier: MIT
#include <PvStream.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include <PvStreamGEV.h>

#include "gvcp/connection_id.hpp"
#include "gvsp/PvBuffer_impl.hpp"
#include "sdk/PvStream_impl.hpp"
#include "stream/gvsp_receiver.hpp"

namespace {

constexpr uint32_t infinite_timeout = 0xFFFFFFFF;

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

void PvStream::impl::session_closing() {
    queue->set_receiver(nullptr);
    queue->wake();
}

/// Makes a new receiver for each acquisition: packet size and connection may have changed, the camera restarts its
/// block IDs at 1, and packets of the previous acquisition in the old socket must not reach a buffer.
PvResult PvStream::impl::streaming_starts() {
    return make_receiver(true);
}

void PvStream::impl::streaming_ends() {
    queue->set_receiver(nullptr);
}

PvResult PvStream::impl::make_receiver(bool streaming) {
    queue->set_receiver(nullptr);
    return link->access("The stream cannot be opened",
                        [this, streaming](openpv::register_port& registers, openpv::node_graph& features) {
                            PvResult result;
                            auto receiver = openpv::gvsp_receiver::make(registers, features, link->id(), queue->sink(),
                                                                        streaming, link->controls(), result);
                            if (receiver) {
                                destination = aligned_endpoint{receiver->destination()};
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
        outcome = {PvResult::Code::INVALID_PARAMETER,
                   ("The stream cannot be opened: \"" + std::string(connectionId.GetAscii()) +
                    "\" is not a valid connection ID. Use PvDeviceInfo::GetConnectionID.")
                       .c_str()};
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
        return {PvResult::Code::INVALID_PARAMETER, "The buffer cannot be queued: the pointer is null."};
    }
    return impl_->queue->add(*buffer->impl_);
}

PvResult PvStream::RetrieveBuffer(PvBuffer** buffer, PvResult* operation, uint32_t timeoutMs) {
    if (buffer == nullptr || operation == nullptr) {
        return {PvResult::Code::INVALID_PARAMETER, "The buffer cannot be retrieved: a pointer is null."};
    }
    std::optional<std::chrono::milliseconds> timeout;
    if (timeoutMs != infinite_timeout) {
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
    return static_cast<uint32_t>(openpv::block_queue::max_buffers);
}
