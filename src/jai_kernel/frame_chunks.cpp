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

constexpr uint32_t _S_counterChunk = 0x200F;
constexpr uint32_t _S_maxChunkSize = 8;
constexpr uint32_t _S_counterBit = 8;  ///< of the chunk mask

/// The slot through which the counter is handed over.
struct MGSCUVAL {
    static inline uint32_t _s_valU32 = 0;
};

/// Takes the exposure start counter from the frame's chunks, the last one if there are several.
///
/// The other chunks are not decoded: the host gets the block's own timestamp, and gain and exposure as the camera
/// reports them, which are right for cameras that put raw values into these chunks too.
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
    // Without a frequency there is no time; the configuration has warned about it.
    double const factor = tickFrequency == 0 ? 0.0 : 1'000'000.0 / double(tickFrequency);
    auto const microseconds = saturating_cast<uint64_t>(static_cast<double>(ticks) * factor);
    if (_s_chunkCntr <= 15) {
        MG_LOG_D("ProcChunks: tick is %llu (diff = %llu) (rc=%llu)\n", static_cast<unsigned long long>(microseconds),
                 static_cast<unsigned long long>(microseconds - u64TSold),
                 static_cast<unsigned long long>(microseconds));
    }
    u64TSold = microseconds;
    MgSc__SetParamVal(9, &ticks);
    if ((chunkMask & _S_counterBit) != 0) {
        MGSCUVAL::_s_valU32 = _s_chunkCntr;
        MgSc__SetParamVal(10, &MGSCUVAL::_s_valU32);
    }
    ++_s_chunkCntr;
    return microseconds;
}

/// A gain that can't be read leaves the last one in force and is not published; the frame goes on without it. An
/// exposure time that can't be read is the caller's to deal with.
void CCamProc::publishGainAndExposure(camera* cam) {
    try {
        gainDb = static_cast<float>(cam->grabControl->getManualGainDb());
        MgSc__SetParamVal(6, &gainDb);
    } catch (generic_error const&) {
        // The camera block has logged what failed.
    }
    exposure = cam->grabControl->getManualExposure();
    auto const published = static_cast<float>(exposure);
    exposureInt = saturating_cast<int32_t>(published);
    MgSc__SetParamVal(7, &published);
}

}  // namespace Vorn::Support::MediaGrabber::Jai
