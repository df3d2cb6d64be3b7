// SPDX-License-Identifier: MIT
#include "buffer_factory.hpp"

#include <PvStream.h>
#include <sched.h>

#include <limits>

#include "mg_host_api.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_FACTORY";

buffer_factory mgBufFactory;

namespace {

/// Layout of the host's buffers.
struct flat_block {
    bool valid;       ///< the addresses rise with the index, at equal distances that a frame fits in
    uint64_t stride;  ///< distance from buffer to buffer in bytes, 0 for a single buffer
};

flat_block _T_measure_host_buffers(uint32_t size, uint32_t count) {
    mg_log_operation const mgLogFunction{"GetBuffer"};
    uint64_t previous = 0;
    uint64_t stride = 0;
    for (uint32_t index = 0; index < count; ++index) {
        void* const buffer = MgGiMem__GetBufPtr(index);
        auto const address = reinterpret_cast<uint64_t>(buffer);
        MG_LOG_D("AllocBuffer: asked size %u - idx=%u buff %p (cpu=%u)\n", size, index, buffer,
                 static_cast<unsigned>(sched_getcpu()));
        if (index == 1) {
            stride = address - previous;
        }
        if (index > 0 && (address <= previous || address - previous < size || address - previous != stride)) {
            return {.valid = false, .stride = 0};
        }
        previous = address;
    }
    // `GetBuffer` returns the stride in 32 bits.
    return {.valid = stride <= std::numeric_limits<uint32_t>::max(), .stride = stride};
}

}  // namespace

/// A single host buffer has no stride: it is returned, but not wrapped and queued.
void* buffer_factory::GetBuffer(PvStream* stream, uint32_t* size, uint32_t count) {
    if (size == nullptr || *size == 0 || count == 0) {
        MG_LOG_W("Incorrect input params detected\n");
        return nullptr;
    }
    void* const first = MgGiMem__GetBufPtr(0);
    if (first == nullptr) {
        MG_LOG_W("The buffer flat zero head found\n");
        return nullptr;
    }
    auto const block = _T_measure_host_buffers(*size, count);
    buffers_.clear();
    if (!block.valid) {
        MG_LOG_E("Allocated buffer flat is incorrect !\n");
        return nullptr;
    }
    if (stream == nullptr || block.stride == 0) {
        return first;
    }

    uint32_t const asked = *size;
    *size = static_cast<uint32_t>(block.stride);
    buffers_.reserve(count);
    for (uint32_t index = 0; index < count; ++index) {
        auto& buffer = buffers_.emplace_back(std::make_unique<PvBuffer>(PvPayloadTypeImage));
        buffer->Attach(MgGiMem__GetBufPtr(index), asked);
    }
    MG_LOG_I("return flat buffer: %p, block size %u (asked %u)\n", first, *size, asked);
    for (auto const& buffer : buffers_) {
        stream->QueueBuffer(buffer.get());
    }
    return first;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
