// SPDX-License-Identifier: MIT
#include <PvGenParameterArray.h>
#include <PvStream.h>

#include "cam_proc.hpp"
#include "jai_camera/camera.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

/// A kind of chunk that the camera can append to its frames.
struct chunk_kind {
    char const* selector;
    chunk_bit bit;
    char const* description;  ///< in messages
};
constexpr chunk_kind _S_chunkKinds[] = {
    {.selector = "GainAll", .bit = chunk_bit::gain, .description = "gain"},
    {.selector = "ExposureTime", .bit = chunk_bit::exposure, .description = "exposure time"},
    {.selector = "Timestamp", .bit = chunk_bit::timestamp, .description = "timestamp"},
    {.selector = "ExposureStartCounter", .bit = chunk_bit::counter, .description = "counter value"},
};

constexpr uint32_t _S_noTimeoutMs = 0xFFFFFFFF;  ///< waits without a limit

/// Selects a kind of chunk and enables or disables it.
/// \return whether the camera accepted both writes
bool _T_switch_chunk(PvGenParameterArray& params, PvGenEnum& selector, chunk_kind const& kind, bool on) {
    return selector.SetValue(PvString(kind.selector)).IsOK() && params.SetBooleanValue("ChunkEnable", on).IsOK();
}

/// Aborts all queued buffers and removes them from the stream. The buffer factory keeps owning them. A stream that no
/// longer returns its buffers is left as it is.
void _T_drain(PvStream& stream) {
    stream.AbortQueuedBuffers();
    bool retrieved = true;
    while (retrieved && stream.GetQueuedBufferCount() != 0) {
        PvBuffer* buffer = nullptr;
        PvResult operation;
        retrieved = stream.RetrieveBuffer(&buffer, &operation, _S_noTimeoutMs).IsOK();
    }
}

}  // namespace

void CCamProc::ProcSetCamConfigChunks(camera* /*cam*/, PvGenParameterArray* params) {
    auto* const active = params->GetBoolean("ChunkModeActive");
    if (active == nullptr) {
        MG_LOG_W("Chunks can't be enabled: missing configuration param1\n");
        return;
    }
    auto* const selector = params->GetEnum("ChunkSelector");
    if (selector == nullptr) {
        MG_LOG_W("Chunks can't be enabled: missing configuration param2\n");
        return;
    }
    bool isActive = false;
    if (!active->GetValue(isActive).IsOK()) {
        MG_LOG_W("Chunks can't be enabled: can't get configuration value\n");
        return;
    }
    if (!isActive && !active->SetValue(true).IsOK()) {
        MG_LOG_W("Chunks can't be enabled: can't configure\n");
        return;
    }
    chunkMask = 0;
    for (auto const& kind : _S_chunkKinds) {
        if (_T_switch_chunk(*params, *selector, kind, true)) {
            MG_LOG_I("  Enabled %s chunks sending\n", kind.description);
            chunkMask |= value_of(kind.bit);
        }
    }
    MG_LOG_I("Chunks enabling is finished (0x%08X)\n", chunkMask);
}

void CCamProc::ProcSetCamConfigEnd(camera* cam) {
    MG_LOG_I("Restore some changed camera values (%u)\n", chunkMask);
    if (chunkMask != 0 && !disableChunks(cam->getDevParams())) {
        return;
    }
    _T_drain(*cam->stream);
    MG_LOG_I("Camera config restore is done\n");
}

/// Disables the enabled kinds of chunk. Chunk mode that reads active stays active.
/// \return whether the mask was cleared
bool CCamProc::disableChunks(PvGenParameterArray* params) {
    mg_log_operation const mgLogFunction{"ProcSetCamConfigEnd"};
    // A camera that was connected again during the run may have no features.
    auto* const active = params == nullptr ? nullptr : params->GetBoolean("ChunkModeActive");
    if (active == nullptr) {
        MG_LOG_W("Chunks can't be disabled: missing configuration param1\n");
        return false;
    }
    auto* const selector = params->GetEnum("ChunkSelector");
    if (selector == nullptr) {
        MG_LOG_W("Chunks can't be disabled: missing configuration param2\n");
        return false;
    }
    bool isActive = false;
    if (!active->GetValue(isActive).IsOK()) {
        MG_LOG_W("Chunks can't be disabled: can't get configuration value\n");
        return false;
    }
    for (auto const& kind : _S_chunkKinds) {
        if ((chunkMask & value_of(kind.bit)) != 0 && _T_switch_chunk(*params, *selector, kind, false)) {
            MG_LOG_I("  Disabled %s chunks sending\n", kind.description);
        }
    }
    if (!isActive && !active->SetValue(false).IsOK()) {
        MG_LOG_W("Chunks can't be disabled: can't configure\n");
        return false;
    }
    chunkMask = 0;
    return true;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
