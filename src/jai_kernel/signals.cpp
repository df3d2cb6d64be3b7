// SPDX-License-Identifier: MIT
#include <sys/time.h>

#include "cam_proc.hpp"
#include "conf_unpack.hpp"
#include "jai_camera/camera.hpp"
#include "jai_property_bag/property_bag.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"
#include "pixel_format.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

// Formats of a dynamic LUT cycle that measures an 8-bit image in 12 bits.
constexpr format_code _S_format8Bit = format_code::Mono8;
constexpr format_code _S_format12Bit = format_code::Mono12Packed;

timeval _T_now() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
}

/// \return the microseconds part of the time since `start`, without its seconds
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
    signalCode = static_cast<signal_code>(MgUtl__CheckSignal());
}

int CCamProc::ProcSignalUsr(unsigned grabbed) {
    if (signalCode == signal_code::user_1) {
        signalCode = signal_code::none;
        MG_LOG_I("Grabbed %u images, processing SIGUSR1...\n", grabbed);
        dynLutStep = dyn_lut_step::armed;
    }
    return 0;
}

/// Each handler clears `signalCode` before it accesses the camera.
unsigned CCamProc::ProcSignal(camera* cam, unsigned grabbed, bool* stop) {
    switch (signalCode) {
        case signal_code::none:
            pollDynamicConfig(cam, grabbed);
            return 0;
        case signal_code::stop:
        case signal_code::stop_second_kind:
            finishWithSignal(cam, grabbed);
            _T_answer(stop, true);
            return 0;
        case signal_code::reload:
            return reconfigure(cam, grabbed, stop);
        case signal_code::user_2:
            _T_answer(stop, switchDepth(cam, grabbed));
            return 0;
        case signal_code::user_1:
            break;
    }
    // `ProcSignalUsr` handles user signal 1; a code without a name stays pending.
    _T_answer(stop, false);
    return 0;
}

/// Applies settings that changed while grabbing, unless a dynamic LUT cycle is active.
void CCamProc::pollDynamicConfig(camera* cam, unsigned grabbed) {
    if (dynLutStep != dyn_lut_step::idle || dynLutMode != dyn_lut_mode::native ||
        MgGi__CheckDynConfig(nullptr, nullptr, nullptr, nullptr) == 0) {
        return;
    }
    MG_LOG_I("Grabbed %u images, dynamic reconfiguration...\n", grabbed);
    timeval const start = _T_now();
    // The result is not needed: the missing frames of a lost camera end the run, and refused settings stay unchanged.
    setupCam(cam, true, false);
    unsigned const spent = _T_spent(start);
    MG_LOG_I("...done, spent %uus\n", spent);
}

void CCamProc::finishWithSignal(camera* cam, unsigned grabbed) {
    signal_code const code = signalCode;
    signalCode = signal_code::none;
    MG_LOG_I("Grabbed %u images, finishing with signal...\n", grabbed);
    cam->ExStopCapture();
    MgGi__SetNewCfgVendor();
    MgGi__SetNewCfgPlugin();
    MgGi__SetSignalAction(value_of(code));
}

/// A new region of interest needs frame memory of another size, so it ends the run. All other settings are applied
/// while grabbing.
unsigned CCamProc::reconfigure(camera* cam, unsigned grabbed, bool* stop) {
    signalCode = signal_code::none;
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
        MgGi__SetSignalAction(value_of(signal_code::reload));
        _T_answer(stop, true);
        return status < 0 ? 1U : 0U;
    }
    if (status == 0) {
        MG_LOG_I("continue grabbing with new configuration...\n");
    }
    _T_answer(stop, false);
    return 0;
}

/// Handles user signal 2: a dynamic LUT cycle. An 8-bit image is measured in 12 bits, which takes a restart of capture
/// in each direction; a 12-bit image is measured as it is.
/// \return whether the run ends for a switch of depth
bool CCamProc::switchDepth(camera* cam, unsigned grabbed) {
    signalCode = signal_code::none;
    MG_LOG_I("Grabbed %u images, processing SIGUSR2...\n", grabbed);
    if (dynLutMode == dyn_lut_mode::back_to_8_bits) {
        MgGiMainCtx__SetFormat(value_of(_S_format8Bit));
        cam->ExStopCapture();
        MG_LOG_I("...Switching back to 8-bit mode...\n");
        return true;
    }
    if (dynLutMode != dyn_lut_mode::native) {
        return false;
    }
    if (lutBits != 8) {
        dynLutStep = dyn_lut_step::armed;
        return false;
    }
    cam->ExStopCapture();
    MgGiMainCtx__SetFormat(value_of(_S_format12Bit));
    dynLutStep = dyn_lut_step::armed;
    dynLutMode = dyn_lut_mode::in_12_bits;
    MG_LOG_I("...Switching to 12-bit mode for dynamic LUT calculation/applying...\n");
    return true;
}

void CCamProc::abandonDepthSwitch() {
    if (dynLutMode != dyn_lut_mode::native) {
        MgGiMainCtx__SetFormat(value_of(_S_format8Bit));
    }
}

}  // namespace Vorn::Support::MediaGrabber::Jai
