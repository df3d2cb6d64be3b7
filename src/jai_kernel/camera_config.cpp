// SPDX-License-Identifier: MIT
#include <PvBuffer.h>
#include <PvDeviceInfo.h>
#include <PvGenParameterArray.h>

#include <algorithm>
#include <bit>
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
#include "mg_log_records.hpp"
#include "pixel_format.hpp"
#include "saturating_cast.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

using mg_host_api::param_number;

constexpr char _S_rule[] = "===================================";

// Values of the host's sweep settings.
constexpr int32_t _S_manual = 1;         ///< gain or exposure
constexpr int32_t _S_automatic = 2;      ///< gain or exposure
constexpr int32_t _S_cameraArea = 1;     ///< profile: measure brightness in the camera's own area
constexpr int32_t _S_lutConfigured = 1;  ///< LUT and gamma

constexpr float _S_noFps = -1.0F;               ///< frame rate is not configured
constexpr double _S_sentinelTolerance = 0.001;  ///< within which a frame rate counts as `_S_noFps`

// Bytes that a camera needs behind the image for chunks. The image is a chunk, too.
constexpr uint32_t _S_imagePadding = 3;  ///< at most: chunks begin at a multiple of four bytes
constexpr uint32_t _S_chunkTrailer = 8;  ///< ID and length, behind each chunk
constexpr uint32_t _S_chunkData = 8;     ///< the largest value of the chunks that `ProcSetCamConfigChunks` enables

/// Runs a step whose failure leaves the camera unchanged and does not end the configuration.
/// \return whether it succeeded
template <typename step>
bool _T_optional(step&& run) {
    try {
        run();
        return true;
    } catch (generic_error const&) {
        return false;  // logged where it was thrown
    }
}

/// Logs the temperature. Camera models have the feature as a text, a float or an integer.
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

/// \return frame period in whole microseconds at `rate` frames per second, 0: the rate is not a positive number
uint32_t _T_period(float rate) {
    return rate > 0.0F ? saturating_cast<uint32_t>(roundf(1e6F / rate)) : 0;
}

/// \param mask chunks that are enabled, `chunk_bit` values
/// \return bytes that they need at most behind the image
uint32_t _T_chunk_bytes(uint32_t mask) {
    auto const chunks = static_cast<uint32_t>(std::popcount(mask));
    return chunks == 0 ? 0 : _S_imagePadding + _S_chunkTrailer + chunks * (_S_chunkData + _S_chunkTrailer);
}

/// \return bytes of a frame in the format `code`, 0 if the code stands for none
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
    readFrameRate(cam);
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

/// Reads and logs the camera's values before the configuration. Each has its own guard, so that a missing one does not
/// prevent the others from being read. The frame rate is also the loop's if the host configures none.
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
    takeFrameRate(rate);

    MG_LOG_I("ResultingFrameRate  : %.1f\n", rate);
    MG_LOG_I("Gain, dB            : %.1f\n", gain);
    MG_LOG_I("ExposureTimeAbs, us : %.1lf\n", exposureTime);
    MG_LOG_I("Gamma               : %s\n", gamma.GetAscii());
    MG_LOG_I("PixelFormat         : 0x%08X\n", static_cast<unsigned>(format));
}

/// If the camera has no usable counter, frames are stamped with host time. If the frequency can't be read, that of an
/// earlier loop run is kept: it is the same camera.
void CCamProc::readTickFrequency(PvGenParameterArray* params) {
    mg_log_operation const mgLogFunction{"ProcSetCamConfig"};
    int64_t frequency = 0;
    if (params != nullptr && params->GetIntegerValue("GevTimestampTickFrequency", frequency).IsOK()) {
        tickFrequency = static_cast<uint32_t>(std::clamp<int64_t>(frequency, 0, std::numeric_limits<uint32_t>::max()));
    }
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
    isColor = PixelFormat__Find(formatCode)->filter == color_filter::none ? 0 : 1;
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

/// A buffer must hold the larger of the payload, chunks included, and the image alone. If the payload can't be read, it
/// must hold the image and the enabled chunks; if neither can be read, the device's own payload size is used.
void CCamProc::computeFrameSize(camera* cam) {
    constexpr uint128 maxBytes = 2'147'483'646;  // one less than the maximum of a signed 32-bit size
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
        size = std::max(size, hasPayload ? image : image + _T_chunk_bytes(chunkMask));
    }
    frameSize = size >= 1 && size <= maxBytes ? static_cast<uint32_t>(size) : cam->device->GetPayloadSize();
}

void CCamProc::capBufferCount(camera* cam, unsigned* bufferCountInOut) {
    unsigned const requested = *bufferCountInOut;
    bufferCount = std::min(requested, cam->stream->GetQueuedBufferMaximum());
    *bufferCountInOut = bufferCount;
    MG_LOG_I("Set gBufferFrameSize to %u, bufNum to %u (old %u)\n", frameSize, bufferCount, requested);
}

/// Instance 1 is set up for the larger of the raw and the converted frame.
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
    MgSc__SetParamVal(value_of(param_number::stride), &stride);
    MgSc__SetParamVal(value_of(param_number::width), &width);
    MgSc__SetParamVal(value_of(param_number::height), &height);
    MgGiMemInst__SetActFsize(0, fullFrameSize);
}

int CCamProc::setupCam(camera* cam, bool restartCapture, bool full) {
    if (!ensureConnected(cam)) {
        return -1;
    }
    if (full) {
        if (!_T_optional([&] { configureFrameRate(cam); })) {
            readFrameRate(cam);
        }
        ProcParametrizeCamRotate(cam);
    }
    _T_optional([&] { setupCamGrabControl(cam); });
    if (MgGiMainCtx__GetSweepLutMod() == _S_lutConfigured && setupCamLutManual(cam, false, restartCapture) == 0) {
        SetupCamGamma(cam, restartCapture);
    }
    setupCamGpio(cam);
    reportNewSettings(cam);
    selectTimestampMode();
    return 0;
}

/// Connects a lost camera again. A camera that was lost may have lost its settings, so the remembered modes are reset.
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
    float const requested = MgGiMainCtx__GetFps();
    if (std::abs(double{requested} - double{_S_noFps}) <= _S_sentinelTolerance) {
        MG_LOG_I("  Fps config is skipped\n");
        return;
    }
    cam->frameRate.setValue(double{requested});
    auto const active = saturating_cast<float>(cam->frameRate.getValue());
    frameRate = active;
    framePeriod = _T_period(active);
    MgGi__SetCurrFpsUs(framePeriod);
}

/// Reads the rate that the camera has after settings that may have changed it: format, region, chunks, a refused rate.
/// Neither the value nor a failure is logged.
void CCamProc::readFrameRate(camera* cam) {
    auto* const params = cam->getDevParams();
    double rate = 0.0;
    if (params != nullptr && params->GetFloatValue("AcquisitionFrameRate", rate).IsOK()) {
        takeFrameRate(rate);
    }
}

/// Takes a rate as the loop's, unless it is not above 0: then the previous one counts.
void CCamProc::takeFrameRate(double rate) {
    if (rate > 0.0) {
        frameRate = saturating_cast<float>(rate);
        framePeriod = _T_period(frameRate);
    }
}

/// Writes a mode only if it differs from the one applied last. Remembers the modes after the camera has accepted them.
void CCamProc::setupCamGrabControl(camera* cam) {
    int32_t const requestedGainMode = MgGiMainCtx__GetSweepGainMod();
    int32_t const requestedExposureMode = MgGiMainCtx__GetSweepEtimeMod();
    property_bag bag;
    if (MgGiMainCtx__GetSweepProf() == _S_cameraArea) {
        bag.setBool(property::auto_area_enable, true);
    }
    auto const putSwitch = [&bag](property key, int32_t mode, int32_t remembered) {
        if (mode != remembered && (mode == _S_manual || mode == _S_automatic)) {
            bag.setBool(key, mode == _S_automatic);
        }
    };
    putSwitch(property::auto_gain, requestedGainMode, gainMode);
    putSwitch(property::auto_exposure, requestedExposureMode, exposureMode);
    if (requestedGainMode == _S_automatic || requestedExposureMode == _S_automatic) {
        Conf__UnpackAutoFn(bag);
    }
    if (requestedGainMode == _S_manual) {
        Conf__UnpackManualGainDb(bag);
    }
    if (requestedExposureMode == _S_manual) {
        Conf__UnpackManualExposure(bag);
    }
    cam->grabControl->setup(bag);
    gainMode = requestedGainMode;
    exposureMode = requestedExposureMode;
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
    MG_LOG_I("%s%u x %u\n", mg_log_records::region_offsets, cam->sensor->getX(), cam->sensor->getY());
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
