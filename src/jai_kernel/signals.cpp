#include <sys/time.h>

#include "cam_proc.hpp"
#include "conf_unpack.hpp"
#include "jai_camera/camera.hpp"
#include "jai_property_bag/property_bag.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

// Signal codes of the host.
constexpr uint32_t _S_none = 0;
constexpr uint32_t _S_stop = 1;
constexpr uint32_t _S_reload = 2;
constexpr uint32_t _S_user1 = 3;
constexpr uint32_t _S_user2 = 4;
constexpr uint32_t _S_stopSecondKind = 5;

// Format codes for the switch of a dynamic look-up table to 12 bits and back.
constexpr uint8_t _S_format8Bit = 1;
constexpr uint8_t _S_format12Bit = 2;

timeval _T_now() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
}

/// The microseconds part of what has passed since `start`.
unsigned _T_spent(timeval const& start) {
    timeval const end = _T_now();
    return static_cast<unsigned>(MgUtl__TimeValDiff(&end, &start).tv_usec);
}

void _T_answer(bool* stop, bool value) {
    if (stop != nullptr) {
        *stop = value;
    }
}

}  // namespace

void CCamProc::ProcLookSignal() {
    signalCode = static_cast<uint32_t>(MgUtl__CheckSignal());
}

int CCamProc::ProcSignalUsr(unsigned grabbed) {
    if (signalCode == _S_user1) {
        signalCode = _S_none;
        MG_LOG_I("Grabbed %u images, processing SIGUSR1...\n", grabbed);
        dynLutStep = 1;
    }
    return 0;
}

/// Whatever code is pending is taken before the camera is touched.
unsigned CCamProc::ProcSignal(camera* cam, unsigned grabbed, bool* stop) {
    switch (signalCode) {
        case _S_none:
            pollDynamicConfig(cam, grabbed);
            return 0;
        case _S_stop:
        case _S_stopSecondKind:
            finishWithSignal(cam, grabbed);
            _T_answer(stop, true);
            return 0;
        case _S_reload:
            return reconfigure(cam, grabbed, stop);
        case _S_user2:
            _T_answer(stop, switchDepth(cam, grabbed));
            return 0;
        default:
            _T_answer(stop, false);
            return 0;
    }
}

/// Applies settings that changed while grabbing, unless a dynamic look-up table is under way.
void CCamProc::pollDynamicConfig(camera* cam, unsigned grabbed) {
    if (dynLutStep != 0 || dynLutMode != 0 || MgGi__CheckDynConfig(nullptr, nullptr, nullptr, nullptr) == 0) {
        return;
    }
    MG_LOG_I("Grabbed %u images, dynamic reconfiguration...\n", grabbed);
    timeval const start = _T_now();
    // A lost camera ends the run by its missing frames; settings that were refused stay as they were.
    setupCam(cam, true, false);
    unsigned const spent = _T_spent(start);
    MG_LOG_I("...done, spent %uus\n", spent);
}

void CCamProc::finishWithSignal(camera* cam, unsigned grabbed) {
    uint32_t const code = signalCode;
    signalCode = _S_none;
    MG_LOG_I("Grabbed %u images, finishing with signal...\n", grabbed);
    cam->ExStopCapture();
    MgGi__SetNewCfgVendor();
    MgGi__SetNewCfgPlugin();
    MgGi__SetSignalAction(static_cast<int32_t>(code));
}

/// A new region of interest needs other frame memory, so it ends the run; everything else is applied while grabbing.
unsigned CCamProc::reconfigure(camera* cam, unsigned grabbed, bool* stop) {
    signalCode = _S_none;
    MG_LOG_I("Grabbed %u images, reconfiguration...\n", grabbed);
    timeval const start = _T_now();
    uint32_t exitRequested = 0;
    int const status = MgGi__DoReconfig(&exitRequested);
    if (status == 0 && exitRequested == 0) {
        property_bag region;
        Conf__UnpackSensor(region);
        exitRequested = testCamSensorChanged(cam, region) ? 1 : static_cast<uint32_t>(setupCam(cam, true, true));
    }
    unsigned const spent = _T_spent(start);
    MG_LOG_I("done, spent %uus\n", spent);

    if (exitRequested != 0) {
        MG_LOG_I("can't continue grabbing with new configuration, exiting...\n");
        cam->ExStopCapture();
        MgGi__SetSignalAction(static_cast<int32_t>(_S_reload));
        _T_answer(stop, true);
        return status < 0 ? 1U : 0U;
    }
    if (status == 0) {
        MG_LOG_I("continue grabbing with new configuration...\n");
    }
    _T_answer(stop, false);
    return 0;
}

/// User signal 2: a dynamic look-up table. An 8-bit picture is measured in 12 bits, which costs a restart of capture
/// each way; a 12-bit picture is measured as it is. \return whether the run is to end for the switch
bool CCamProc::switchDepth(camera* cam, unsigned grabbed) {
    signalCode = _S_none;
    MG_LOG_I("Grabbed %u images, processing SIGUSR2...\n", grabbed);
    if (dynLutMode == 7) {
        MgGiMainCtx__SetFormat(_S_format8Bit);
        cam->ExStopCapture();
        MG_LOG_I("...Switching back to 8-bit mode...\n");
        return true;
    }
    if (dynLutMode != 0) {
        return false;
    }
    if (lutBits != 8) {
        dynLutStep = 1;
        return false;
    }
    cam->ExStopCapture();
    MgGiMainCtx__SetFormat(_S_format12Bit);
    dynLutStep = 1;
    dynLutMode = 6;
    MG_LOG_I("...Switching to 12-bit mode for dynamic LUT calculation/applying...\n");
    return true;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
