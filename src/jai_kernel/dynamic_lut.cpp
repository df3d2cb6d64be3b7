#include <cstdlib>

#include "cam_proc.hpp"
#include "jai_camera/camera.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

// Steps of a cycle. From 1 to 2 it is moved by the grabbing loop.
constexpr uint32_t _S_idle = 0;
constexpr uint32_t _S_armed = 1;
constexpr uint32_t _S_waitTwoFrames = 2;
constexpr uint32_t _S_waitOneFrame = 3;
constexpr uint32_t _S_compute = 4;
constexpr uint32_t _S_apply = 5;
constexpr uint32_t _S_finish = 8;

// Modes: is an 8-bit picture on its trip to 12 bits?
constexpr uint32_t _S_native = 0;
constexpr uint32_t _S_in12Bits = 6;
constexpr uint32_t _S_backTo8Bits = 7;

constexpr uint32_t _S_lutValueBits = 12;  ///< of the camera's table
constexpr uint32_t _S_userSignal2 = 4;    ///< switches the picture's depth

}  // namespace

void CCamProc::ProcDynamLut(camera* cam) {
    switch (dynLutStep) {
        case _S_armed:
            if (dynLutMode == _S_in12Bits) {
                // They may have been made for the other depth.
                dynLut.reset();
                dynCdf.reset();
            }
            break;
        case _S_waitTwoFrames:
            dynLutStep = _S_waitOneFrame;
            MG_LOG_I("dynamic LUT is waiting for new clear picture 2 frames yet\n");
            break;
        case _S_waitOneFrame:
            dynLutStep = _S_compute;
            MG_LOG_I("dynamic LUT is waiting for new clear picture 1 frame yet\n");
            break;
        case _S_compute:
            computeDynamicLut(cam);
            break;
        case _S_apply:
            applyDynamicLut(cam);
            break;
        case _S_finish:
            finishDynamicLut();
            break;
        default:
            break;
    }
}

/// Measures this frame and derives the table. On the trip to 12 bits the table waits for the run that follows the
/// switch back; otherwise it is applied at once.
void CCamProc::computeDynamicLut(camera* cam) {
    if (!allocateDynamicLut()) {
        dynLut.reset();
        dynCdf.reset();
        dynLutStep = _S_idle;
        return;
    }
    uint32_t const width = cam->sensor->getW();
    uint32_t const height = cam->sensor->getH();
    MgGi__CalcLutDynam(frameData, width, height, width, cdfBits, dynCdf.get());
    if (dynLutMode == _S_in12Bits) {
        dynLutMode = _S_backTo8Bits;
        signalCode = _S_userSignal2;
        cam->ExStopCapture();
    }
    dynLutStep = _S_apply;
    // Not what the array has room for: one that was made for 12 bits may have been kept for a cycle in 8.
    dynLutEntries = uint32_t{1} << lutBits;
    MgGi__GetLutDynam(lutBits, dynCdf.get(), _S_lutValueBits, dynLut.get());
    MG_LOG_I("a new LUT was dynamically calculated...\n");
    if (dynLutMode == _S_native) {
        applyDynamicLut(cam);
    }
}

bool CCamProc::allocateDynamicLut() {
    if (dynCdf == nullptr) {
        dynCdf.reset(static_cast<uint32_t*>(std::malloc((size_t{1} << cdfBits) * sizeof(uint32_t))));
        MG_LOG_I("allocated CDF array for %u bits pixel\n", unsigned{cdfBits});
    }
    if (dynLut == nullptr) {
        dynLut.reset(static_cast<uint16_t*>(std::malloc((size_t{1} << lutBits) * sizeof(uint16_t))));
        MG_LOG_I("allocated LUT array for %u bits pixel\n", unsigned{lutBits});
    }
    return dynCdf != nullptr && dynLut != nullptr;
}

void CCamProc::applyDynamicLut(camera* cam) {
    if (dynLut != nullptr) {
        setupCamLutManual(cam, true, true);
        MG_LOG_I("continue operation with new LUT (dynamically calculated)...\n");
    }
    if (dynLutMode == _S_native) {
        dynLutStep = _S_idle;
    } else {
        finishDynamicLut();
    }
}

/// The step 8 of a cycle: the trip to 12 bits is over.
void CCamProc::finishDynamicLut() {
    if (dynLutMode == _S_backTo8Bits) {
        dynLutMode = _S_native;
        dynLut.reset();
        dynCdf.reset();
    }
    dynLutStep = _S_idle;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
