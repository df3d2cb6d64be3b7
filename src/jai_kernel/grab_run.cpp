// SPDX-License-Identifier: MIT
#include <PvDeviceInfo.h>

#include "cam_proc.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

int CCamProc::ProcOnce(camera* cam, PvDeviceInfo const* info, buffer_factory* factory) {
    MG_LOG_I("Using device Model:%s Serial:%s\n", info->GetModelName().GetAscii(), info->GetSerialNumber().GetAscii());
    dynLutStep = dyn_lut_step::idle;
    dynLutMode = dyn_lut_mode::native;
    dynLut.reset();
    dynCdf.reset();
    chunkMask = 0;
    int exitCode = 0;
    bool switchedDepth = false;
    do {
        exitCode = ProcLoop(cam, info, factory);
        switchedDepth = dynLutMode == dyn_lut_mode::in_12_bits || dynLutMode == dyn_lut_mode::back_to_8_bits;
    } while (exitCode == 0 && switchedDepth);
    dynLut.reset();
    dynCdf.reset();
    return exitCode;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
