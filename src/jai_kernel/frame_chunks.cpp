// SPDX-License-Identifier: MIT
#include <PvBuffer.h>

#include <cstring>

#include "cam_proc.hpp"
#include "errors.hpp"
#include "jai_camera/camera.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"
#include "saturating_cast.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

using mg_host_api::param_number;

constexpr uint32_t _S_counterChunk = 0x200F;  ///< ID of the exposure start counter's chunk
constexpr uint32_t _S_maxChunkSize = 8;       ///< bytes; a larger chunk is not a single value
constexpr uint32_t _S_loggedTicks = 15;       ///< counter values up to this one are logged

/// Holds the counter while the host reads it.
struct MGSCUVAL {
    static inline uint32_t _s_valU32 = 0;
};

/// Reads the exposure start counter from the frame's chunks, the last one if there are several.
///
/// The other chunks are not decoded. The host gets the block's own timestamp, and gain and exposure time from the
/// camera's features, which are correct also for cameras that put raw values into these chunks.
/// \param counter receives the counter; unchanged if there is none
void _T_scan_chunks(PvBuffer& buffer, uint32_t& counter) {
    uint32_t const count = buffer.GetChunkCount();
    uint32_t id = 0;
    for (uint32_t index = 0; index < count; ++index) {
        buffer.GetChunkIDByIndex(index, id);
        uint32_t const size = buffer.GetChunkSizeByIndex(index);
        if (id != _S_counterChunk || size > _S_maxChunkSize || size < sizeof counter) {
            continue;
        }
        auto const* const data = buffer.GetChunkRawDataByID(id);
        if (data != nullptr) {
            std::memcpy(&counter, data, sizeof counter);
        }
    }
}

}  // namespace

uint64_t CCamProc::ProcFrameChunks(camera* cam, PvBuffer* buffer) {
    static uint32_t _s_chunkCntr = 1;
    static uint64_t u64TSold = 0;

    if (chunkMask != 0) {
        _T_scan_chunks(*buffer, _s_chunkCntr);
    }
    publishGainAndExposure(cam);

    uint64_t const ticks = buffer->GetTimestamp();
    // Without a frequency, the time is unknown; the configuration has logged a warning.
    double const factor = tickFrequency == 0 ? 0.0 : 1'000'000.0 / double(tickFrequency);
    auto const microseconds = saturating_cast<uint64_t>(static_cast<double>(ticks) * factor);
    if (_s_chunkCntr <= _S_loggedTicks) {
        MG_LOG_D("ProcChunks: tick is %llu (diff = %llu) (rc=%llu)\n", static_cast<unsigned long long>(microseconds),
                 static_cast<unsigned long long>(microseconds - u64TSold),
                 static_cast<unsigned long long>(microseconds));
    }
    u64TSold = microseconds;
    MgSc__SetParamVal(value_of(param_number::camera_ticks), &ticks);
    if ((chunkMask & value_of(chunk_bit::counter)) != 0) {
        MGSCUVAL::_s_valU32 = _s_chunkCntr;
        MgSc__SetParamVal(value_of(param_number::exposure_counter), &MGSCUVAL::_s_valU32);
    }
    ++_s_chunkCntr;
    return microseconds;
}

/// If the gain can't be read, the previous one is kept, it is not published, and the frame is delivered without it. If
/// the exposure time can't be read, the exception reaches the caller.
void CCamProc::publishGainAndExposure(camera* cam) {
    try {
        gainDb = static_cast<float>(cam->grabControl->getManualGainDb());
        MgSc__SetParamVal(value_of(param_number::gain_db), &gainDb);
    } catch (generic_error const&) {
        // Logged where it was thrown.
    }
    exposure = cam->grabControl->getManualExposure();
    auto const published = saturating_cast<float>(exposure);
    exposureInt = saturating_cast<int32_t>(published);
    MgSc__SetParamVal(value_of(param_number::exposure_us), &published);
}

}  // namespace Vorn::Support::MediaGrabber::Jai
