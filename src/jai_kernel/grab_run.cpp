#include <PvDeviceInfo.h>

#include "cam_proc.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

int CCamProc::ProcOnce(camera* cam, PvDeviceInfo const* info, buffer_factory* factory) {
    MG_LOG_I("Using device Model:%s Serial:%s\n", info->GetModelName().GetAscii(), info->GetSerialNumber().GetAscii());
    dynLutStep = 0;
    dynLutMode = 0;
    dynLut.reset();
    dynCdf.reset();
    chunkMask = 0;
    int exitCode = 0;
    do {
        exitCode = ProcLoop(cam, info, factory);
    } while (exitCode == 0 && (dynLutMode == 6 || dynLutMode == 7));
    dynLut.reset();
    dynCdf.reset();
    return exitCode;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
