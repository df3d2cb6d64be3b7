#include <PvBuffer.h>
#include <PvDeviceInfo.h>
#include <PvGenParameterArray.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "cam_proc.hpp"
#include "conf_unpack.hpp"
#include "errors.hpp"
#include "int128.hpp"
#include "jai_camera/camera.hpp"
#include "jai_property_bag/property_bag.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"
#include "pixel_format.hpp"
#include "saturating_cast.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

constexpr char _S_rule[] = "===================================";

// The host's modes of gain and exposure.
constexpr int32_t _S_manual = 1;
constexpr int32_t _S_automatic = 2;

constexpr float _S_noFps = -1.0F;
constexpr double _S_sentinelTolerance = 0.001;

/// Runs a step whose failure leaves the camera as it is and never ends the configuration; the feature block that
/// refused has logged why.
template <typename step>
void _T_optional(step&& run) {
    try {
        run();
    } catch (generic_error const&) {
        // Logged where it happened.
    }
}

/// Prints the temperature in the form that the camera's feature has.
void _T_report_temperature(PvGenParameterArray* params) {
    static PvString const _s_name("DeviceTemperature");
    auto* const feature = params == nullptr ? nullptr : params->Get(_s_name);
    PvGenType type{};
    if (feature == nullptr || !feature->GetType(type).IsOK()) {
        MG_LOG_I("Temperature, C   : undefined val (type %i)\n", -1);
    } else if (type == PvGenTypeString) {
        PvString value;
        params->GetStringValue(_s_name, value);
        MG_LOG_I("Temperature, C   : %s\n", value.GetAscii());
    } else if (type == PvGenTypeFloat) {
        double value = 0.0;
        params->GetFloatValue(_s_name, value);
        MG_LOG_I("Temperature, C   : %.2f\n", value);
    } else if (type == PvGenTypeInteger) {
        int64_t value = 0;
        params->GetIntegerValue(_s_name, value);
        MG_LOG_I("Temperature, C   : %u\n", static_cast<unsigned>(value));
    } else {
        MG_LOG_I("Temperature, C   : undefined val (type %i)\n", static_cast<int>(type));
    }
}

uint64_t _T_round_up_to_32(uint64_t value) {
    return (value + 31) / 32 * 32;
}

uint32_t _T_saturated_32(uint128 value) {
    return static_cast<uint32_t>(std::min(value, static_cast<uint128>(std::numeric_limits<uint32_t>::max())));
}

/// Whole microseconds of a frame at `rate` frames a second.
uint32_t _T_period(float rate) {
    return saturating_cast<uint32_t>(roundf(1e6F / rate));
}

/// Bytes of a frame in the host's format `code`, 0 for no format.
uint32_t _T_frame_bytes(uint8_t code, uint32_t width, uint32_t height) {
    auto const* const format = PixelFormat__Find(code);
    return format == nullptr ? 0 : _T_saturated_32(static_cast<uint128>(format->lineBytes(width)) * height);
}

}  // namespace

int CCamProc::ProcSetCamConfig(camera* cam, PvDeviceInfo const* info, unsigned* bufferCountInOut) {
    cam->deviceParams = cam->device->GetParameters();
    reportDevice(cam, info);
    reportCurrentSettings(cam);
    if (!selectPixelFormat(cam)) {
        return -1;
    }
    configureRegion(cam);
    ProcSetCamConfigChunks(cam, cam->getDevParams());
    computeFrameSize(cam);
    capBufferCount(cam, bufferCountInOut);
    computeGeometry(cam);

    MG_LOG_I("Applying initial configuration...\n");
    int const result = setupCam(cam, false, true);
    if (result != 0) {
        return result;
    }
    publishGeometry(cam);
    MG_LOG_I("...initial configuration is applied\n");
    return 0;
}

void CCamProc::reportDevice(camera* cam, PvDeviceInfo const* info) {
    MG_LOG_I("== Camera Device Information ==\n");
    MG_LOG_I("%s\n", _S_rule);
    MG_LOG_I("Vendor           : %s\n", info->GetVendorName().GetAscii());
    MG_LOG_I("Model            : %s\n", info->GetModelName().GetAscii());
    MG_LOG_I("Version          : %s\n", info->GetVersion().GetAscii());
    MG_LOG_I("DeviceSerialID   : %s\n", info->GetSerialNumber().GetAscii());
    MG_LOG_I("ID               : %s\n", info->GetDisplayID().GetAscii());
    _T_report_temperature(cam->getDevParams());
}

/// Reads the values in force before anything is configured, each on its own: one that is missing hides no other. The
/// rate in force also serves the loop when the host configures none.
void CCamProc::reportCurrentSettings(camera* cam) {
    MG_LOG_I("~~ Camera Device Current Settings ~~\n");
    MG_LOG_I("%s\n", _S_rule);
    auto* const params = cam->getDevParams();
    double rate = 0.0;
    double gain = 0.0;
    double exposureTime = 0.0;
    PvString gamma;
    int64_t format = 0;
    _T_optional([&] { cam->sensor->initialize(); });
    _T_optional([&] { rate = cam->frameRate.getValue(); });
    _T_optional([&] { gain = cam->grabControl->getManualGainDb(); });
    _T_optional([&] { exposureTime = cam->grabControl->getManualExposure(); });
    if (params != nullptr) {
        params->GetEnumValue("JAIGamma", gamma);
        params->GetEnumValue("PixelFormat", format);
    }
    cam->ExPropertyGetGamma(currentGamma);
    readTickFrequency(params);
    if (rate > 0.0) {
        frameRate = static_cast<float>(rate);
        framePeriod = _T_period(frameRate);
    }

    MG_LOG_I("ResultingFrameRate  : %.1f\n", rate);
    MG_LOG_I("Gain, dB            : %.1f\n", gain);
    MG_LOG_I("ExposureTimeAbs, us : %.1lf\n", exposureTime);
    MG_LOG_I("Gamma               : %s\n", gamma.GetAscii());
    MG_LOG_I("PixelFormat         : 0x%08X\n", static_cast<unsigned>(format));
}

/// A camera without a usable counter is stamped with host time.
void CCamProc::readTickFrequency(PvGenParameterArray* params) {
    mg_log_operation const mgLogFunction{"ProcSetCamConfig"};
    int64_t frequency = 0;
    if (params != nullptr) {
        params->GetIntegerValue("GevTimestampTickFrequency", frequency);
    }
    tickFrequency = static_cast<uint32_t>(std::clamp<int64_t>(frequency, 0, std::numeric_limits<uint32_t>::max()));
    if (tickFrequency == 0) {
        MG_LOG_W("The camera's timestamp frequency is 0 or can't be read: frames are stamped with host time\n");
    }
}

bool CCamProc::selectPixelFormat(camera* cam) {
    formatCode = MgGiMainCtx__GetFormat();
    if (ProcSetPixelFormat(cam, cam->getDevParams(), &formatCode, &containerBits, &significantBits, &pixelType,
                           nullptr) != 0) {
        MG_LOG_E("The asked pixel format is not supported by device!\n");
        return false;
    }
    isColor = formatCode == BAYER_RG8 ? 1 : 0;
    lutBits = significantBits;
    cdfBits = significantBits;
    return true;
}

void CCamProc::configureRegion(camera* cam) {
    property_bag region;
    Conf__UnpackSensor(region);
    _T_optional([&] { setupCamSensor(cam, region); });
}

void CCamProc::setupCamSensor(camera* cam, property_bag const& bag) {
    cam->sensor->setup(bag);
}

bool CCamProc::testCamSensorChanged(camera* cam, property_bag const& bag) {
    return cam->sensor->testChanged(bag);
}

/// One buffer holds the payload, chunks included, or the bare image where that is larger; what the device says of
/// itself when neither can be told.
void CCamProc::computeFrameSize(camera* cam) {
    constexpr uint128 largest = 2'147'483'646;
    auto* const params = cam->getDevParams();
    int64_t payload = 0;
    int64_t format = 0;
    bool const hasPayload = params->GetIntegerValue("PayloadSize", payload).IsOK() && payload >= 0;
    bool const hasFormat = params->GetEnumValue("PixelFormat", format).IsOK();

    uint128 size = 0;
    if (hasPayload) {
        size = _T_round_up_to_32(static_cast<uint64_t>(payload));
    }
    if (hasFormat) {
        auto const bits = PvImage::GetPixelSize(static_cast<PvPixelType>(format));
        auto const image = static_cast<uint128>(bits) * cam->sensor->getW() * cam->sensor->getH() / 8;
        size = std::max(size, image);
    }
    frameSize = size >= 1 && size <= largest ? static_cast<uint32_t>(size) : cam->device->GetPayloadSize();
}

void CCamProc::capBufferCount(camera* cam, unsigned* bufferCountInOut) {
    unsigned const requested = *bufferCountInOut;
    bufferCount = std::min(requested, cam->stream->GetQueuedBufferMaximum());
    *bufferCountInOut = bufferCount;
    MG_LOG_I("Set gBufferFrameSize to %u, bufNum to %u (old %u)\n", frameSize, bufferCount, requested);
}

/// Instance 1 is set up for the frame as it comes or as it is converted, whichever is larger.
void CCamProc::computeGeometry(camera* cam) {
    uint32_t const width = cam->sensor->getW();
    uint32_t const height = cam->sensor->getH();
    stride = _T_saturated_32(PixelFormat__Find(formatCode)->lineBytes(width));
    fullFrameSize = _T_frame_bytes(formatCode, width, height);
    instance0FrameSize = fullFrameSize;
    instance1FrameSize = fullFrameSize;
    instance1SetupSize = std::max(fullFrameSize, _T_frame_bytes(MgGiMainCtx__GetCformat(), width, height));
}

void CCamProc::publishGeometry(camera* cam) {
    uint32_t const width = cam->sensor->getW();
    uint32_t const height = cam->sensor->getH();
    MgSc__SetParamVal(8, &stride);
    MgSc__SetParamVal(1, &width);
    MgSc__SetParamVal(2, &height);
    MgGiMemInst__SetActFsize(0, fullFrameSize);
}

int CCamProc::setupCam(camera* cam, bool restartCapture, bool full) {
    if (!ensureConnected(cam)) {
        return -1;
    }
    if (full) {
        _T_optional([&] { configureFrameRate(cam); });
        ProcParametrizeCamRotate(cam);
    }
    _T_optional([&] { setupCamGrabControl(cam); });
    if (MgGiMainCtx__GetSweepLutMod() == 1 && setupCamLutManual(cam, false, restartCapture) == 0) {
        SetupCamGamma(cam, restartCapture);
    }
    setupCamGpio(cam);
    reportNewSettings(cam);
    selectTimestampMode();
    return 0;
}

/// A camera that was lost is connected again; it has forgotten its settings, so all of them count as new.
bool CCamProc::ensureConnected(camera* cam) {
    mg_log_operation const mgLogFunction{"setupCam"};
    if (cam->device->IsConnected()) {
        MG_LOG_D("done: PvDevice::IsConnected\n");
        return true;
    }
    if (!cam->device->Connect(cam->info->GetConnectionID()).IsOK()) {
        MG_LOG_W("fail: PvDevice::Connect (configuration is skipped)\n");
        return false;
    }
    MG_LOG_I("done: PvDevice::Connect (camera is reconnected)\n");
    cam->deviceParams = cam->device->GetParameters();
    gainMode = 0;
    exposureMode = 0;
    return true;
}

void CCamProc::configureFrameRate(camera* cam) {
    float const asked = MgGiMainCtx__GetFps();
    if (std::abs(double{asked} - double{_S_noFps}) <= _S_sentinelTolerance) {
        MG_LOG_I("  Fps config is skipped\n");
        return;
    }
    cam->frameRate.setValue(double{asked});
    auto const inForce = static_cast<float>(cam->frameRate.getValue());
    frameRate = inForce;
    framePeriod = _T_period(inForce);
    MgGi__SetCurrFpsUs(framePeriod);
}

/// A mode is written only when it differs from the one applied last; the modes applied are remembered once the camera
/// has taken them.
void CCamProc::setupCamGrabControl(camera* cam) {
    int32_t const askedGainMode = MgGiMainCtx__GetSweepGainMod();
    int32_t const askedExposureMode = MgGiMainCtx__GetSweepEtimeMod();
    property_bag bag;
    if (MgGiMainCtx__GetSweepProf() == 1) {
        bag.setBool(property::auto_area_enable, true);
    }
    auto const putSwitch = [&bag](property key, int32_t mode, int32_t remembered) {
        if (mode != remembered && (mode == _S_manual || mode == _S_automatic)) {
            bag.setBool(key, mode == _S_automatic);
        }
    };
    putSwitch(property::auto_gain, askedGainMode, gainMode);
    putSwitch(property::auto_exposure, askedExposureMode, exposureMode);
    if (askedGainMode == _S_automatic || askedExposureMode == _S_automatic) {
        Conf__UnpackAutoFn(bag);
    }
    if (askedGainMode == _S_manual) {
        Conf__UnpackManualGainDb(bag);
    }
    if (askedExposureMode == _S_manual) {
        Conf__UnpackManualExposure(bag);
    }
    cam->grabControl->setup(bag);
    gainMode = askedGainMode;
    exposureMode = askedExposureMode;
    gainDb = static_cast<float>(cam->grabControl->getManualGainDb());
    exposure = cam->grabControl->getManualExposure();
}

void CCamProc::setupCamGpio(camera* cam) {
    property_bag lines;
    Conf__UnpackGpio(lines);
    cam->setupGpio(lines);
}

void CCamProc::reportNewSettings(camera* cam) {
    MG_LOG_I("~~ Camera Device New Settings ~~\n");
    MG_LOG_I("%s\n", _S_rule);
    MG_LOG_I("ROI OffsX x OffsY   : %u x %u\n", cam->sensor->getX(), cam->sensor->getY());
    MG_LOG_I("ROI Width x Height  : %u x %u\n", cam->sensor->getW(), cam->sensor->getH());
    MG_LOG_I("ResultingFrameRate  : %f\n", double{frameRate});
    MG_LOG_I("Gain, dB            : %f\n", double{gainDb});
    MG_LOG_I("ExposureTimeAbs, us : %lf\n", exposure);
    MG_LOG_I("Gamma               : %f\n", double{currentGamma});
    MG_LOG_I("PixelFormat         : 0x%08X\n", static_cast<unsigned>(pixelType));
    MG_LOG_I("Stride              : %u\n", stride);
    MG_LOG_I("Full frame size     : %u\n", fullFrameSize);
    MG_LOG_I("%s\n", _S_rule);
}

void CCamProc::selectTimestampMode() {
    timestampAdjustment = MgGiMainCtx__GetTsadjns();
    if (timestampAdjustment != 0) {
        MG_LOG_I("REFCAMTS mode - TS is obtained from cam (sync accuracy %g)\n", timestampAdjustment * 1e-9);
    } else {
        MG_LOG_I("REGULAR mode - TS is obtained using box gettimeofday\n");
    }
}

}  // namespace Vorn::Support::MediaGrabber::Jai
