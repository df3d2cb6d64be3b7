// SPDX-License-Identifier: MIT
#include <cstdlib>

#include "cam_proc.hpp"
#include "jai_camera/camera.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

constexpr uint32_t _S_lutValueBits = 12;  ///< of the camera's LUT

}  // namespace

void CCamProc::ProcDynamLut(camera* cam) {
    switch (dynLutStep) {
        case dyn_lut_step::armed:
            if (dynLutMode == dyn_lut_mode::in_12_bits) {
                // The arrays may have the size for the other depth.
                dynLut.reset();
                dynCdf.reset();
            }
            break;
        case dyn_lut_step::wait_two_frames:
            dynLutStep = dyn_lut_step::wait_one_frame;
            MG_LOG_I("dynamic LUT is waiting for new clear picture 2 frames yet\n");
            break;
        case dyn_lut_step::wait_one_frame:
            dynLutStep = dyn_lut_step::compute;
            MG_LOG_I("dynamic LUT is waiting for new clear picture 1 frame yet\n");
            break;
        case dyn_lut_step::compute:
            computeDynamicLut(cam);
            break;
        case dyn_lut_step::apply:
            applyDynamicLut(cam);
            break;
        case dyn_lut_step::finish:
            finishDynamicLut();
            break;
        case dyn_lut_step::idle:
            break;
    }
}

/// Measures the current frame and derives the LUT from it. A LUT measured in 12 bits for an 8-bit image is applied in
/// the run after the switch back to 8 bits, any other LUT at once.
void CCamProc::computeDynamicLut(camera* cam) {
    if (!allocateDynamicLut()) {
        dynLut.reset();
        dynCdf.reset();
        dynLutStep = dyn_lut_step::idle;
        return;
    }
    uint32_t const width = cam->sensor->getW();
    uint32_t const height = cam->sensor->getH();
    MgGi__CalcLutDynam(frameData, width, height, width, cdfBits, dynCdf.get());
    if (dynLutMode == dyn_lut_mode::in_12_bits) {
        dynLutMode = dyn_lut_mode::back_to_8_bits;
        signalCode = signal_code::user_2;
        cam->ExStopCapture();
    }
    dynLutStep = dyn_lut_step::apply;
    // The array may be larger: a cycle in 8 bits can use one that was allocated for 12 bits.
    dynLutEntries = uint32_t{1} << lutBits;
    MgGi__GetLutDynam(lutBits, dynCdf.get(), _S_lutValueBits, dynLut.get());
    MG_LOG_I("a new LUT was dynamically calculated...\n");
    if (dynLutMode == dyn_lut_mode::native) {
        applyDynamicLut(cam);
    }
}

/// \return whether both arrays exist; an allocation that fails is not logged
bool CCamProc::allocateDynamicLut() {
    if (dynCdf == nullptr) {
        dynCdf.reset(static_cast<uint32_t*>(std::malloc((size_t{1} << cdfBits) * sizeof(uint32_t))));
        if (dynCdf != nullptr) {
            MG_LOG_I("allocated CDF array for %u bits pixel\n", unsigned{cdfBits});
        }
    }
    if (dynLut == nullptr) {
        dynLut.reset(static_cast<uint16_t*>(std::malloc((size_t{1} << lutBits) * sizeof(uint16_t))));
        if (dynLut != nullptr) {
            MG_LOG_I("allocated LUT array for %u bits pixel\n", unsigned{lutBits});
        }
    }
    return dynCdf != nullptr && dynLut != nullptr;
}

void CCamProc::applyDynamicLut(camera* cam) {
    if (dynLut != nullptr) {
        setupCamLutManual(cam, true, true);
        MG_LOG_I("continue operation with new LUT (dynamically calculated)...\n");
    }
    if (dynLutMode == dyn_lut_mode::native) {
        dynLutStep = dyn_lut_step::idle;
    } else {
        finishDynamicLut();
    }
}

/// Ends the cycle. After the switch back to 8 bits, also frees the arrays, which have the size for 12 bits.
void CCamProc::finishDynamicLut() {
    if (dynLutMode == dyn_lut_mode::back_to_8_bits) {
        dynLutMode = dyn_lut_mode::native;
        dynLut.reset();
        dynCdf.reset();
    }
    dynLutStep = dyn_lut_step::idle;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
