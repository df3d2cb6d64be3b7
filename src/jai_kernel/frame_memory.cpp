// SPDX-License-Identifier: MIT
#include <algorithm>

#include "cam_proc.hpp"
#include "jai_camera/camera.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"
#include "pixel_conversion.hpp"
#include "pixel_format.hpp"
#include "rotation.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

using mg_host_api::param_number;

static constexpr char _S_logTag[] = "MG_JAI_PROC";

/// The first run receives into the host's plain memory. Once a conversion is known, later runs receive into instance 0.
void CCamProc::ProcInitMem(camera* cam, uint32_t size) {
    if (conversionFormat != 0) {
        instanceIndex = 0;
        MgGiMemInst__Init(0, size, 0);
        MgGiMemInst__SetActFsize(0, instance0FrameSize);
    } else {
        instanceIndex = -1;
        MgGiMem__Init(size, 0, size);
        MgGiMem__SetActFsize(instance0FrameSize);
        conversionFormat = MgGiMainCtx__GetCformat();
    }
    conversionPixelType = 0;
    conversionActive = false;
    if (conversionFormat != 0) {
        initConversion();
    }
    if (conversionActive) {
        prepareConversion(cam, size);
    }
}

/// Selects the format to convert to and sets up the memory instance for converted frames.
void CCamProc::initConversion() {
    mg_log_operation const mgLogFunction{"ProcInitMem"};
    MG_LOG_I("Conv: asking convertion from %i -> %i\n", int{formatCode}, int{conversionFormat});
    auto const* const target = PixelFormat__Find(conversionFormat);
    if (target == nullptr) {
        MG_LOG_W("The asked pixel conversion way is not supported (rc=%i)\n", -1);
        return;
    }
    if (target->filter == color_filter::bayerRg) {
        MG_LOG_I("BAYER_TILE_MAPPING value: meta codec chosen '%s'\n", target->name);
    }
    conversionPixelType = target->type;
    MG_LOG_I("Use pixel format: '%s'\n", target->printedName);
    conversionActive = true;
    if (instanceIndex == -1) {
        instanceIndex = 1;
    }
    MG_LOG_I("Initialize conversion to: \"%s\"\n", target->name);
    if (instanceIndex == 1) {
        instance1FrameSize = instance0FrameSize;
        MgGiMemInst__Init(1, instance1SetupSize, 0);
        MgGiMemInst__SetActFsize(1, instance1FrameSize);
        MgSc__InstSetParamVal(1, value_of(param_number::format_name), target->name);
        return;
    }
    // Instance 0 receives the frames without conversion if the formats cannot be converted.
    auto const* const source = PixelFormat__Find(formatCode);
    auto const* const announced = source == nullptr || PixelConversion__IsPossible(*source, *target) ? target : source;
    MgSc__InstSetParamVal(0, value_of(param_number::format_name), announced->name);
}

/// Allocates the buffer for converted frames, once per run. It holds each size that was announced for its instance, so
/// that a host that copies as much reads the plug-in's memory only. If the formats cannot be converted, logs it once
/// per run; the host then receives the frames without conversion.
/// \param size announced for instance 0 on a later run
void CCamProc::prepareConversion(camera* cam, uint32_t size) {
    mg_log_operation const mgLogFunction{"ProcInitMem"};
    auto const* const source = PixelFormat__Find(formatCode);
    auto const* const target = PixelFormat__Find(conversionFormat);
    convertedFrame.clear();
    if (source == nullptr || !PixelConversion__IsPossible(*source, *target)) {
        MG_LOG_W("A frame of format %i can't be converted to format %i, it is handed over as it is\n", int{formatCode},
                 int{conversionFormat});
        return;
    }
    uint64_t const converted = target->frameBytes(cam->sensor->getW(), cam->sensor->getH());
    uint32_t const announced =
        instanceIndex == 1 ? std::max(instance1SetupSize, instance1FrameSize) : std::max(size, instance0FrameSize);
    convertedFrame.assign(std::max<uint64_t>(converted, announced), 0);
}

/// Rotates the frame before the conversion, so that the converted frame is rotated, too.
void CCamProc::ProcLoadFrames(camera* cam) {
    auto const* const format = PixelFormat__Find(formatCode);
    auto* const pixels = static_cast<uint8_t*>(frameData);
    if (swRotate != 0 && format != nullptr) {
        Rotation__TurnBy180(*format, {pixels, frameSize}, cam->sensor->getW(), cam->sensor->getH());
    }
    instance0Frame = frameData;
    if (!convertFrame(cam)) {
        return;
    }
    // Each instance must receive frames in the codec announced for it: see `initConversion`.
    if (instanceIndex == 1) {
        instance1Frame = convertedFrame.data();
    } else {
        instance0Frame = convertedFrame.data();
    }
}

/// \return whether `convertedFrame` now holds the current frame
bool CCamProc::convertFrame(camera* cam) {
    auto const* const source = PixelFormat__Find(formatCode);
    auto const* const target = PixelFormat__Find(conversionFormat);
    if (!conversionActive || convertedFrame.empty() || source == nullptr || target == nullptr) {
        return false;
    }
    return PixelConversion__Convert(*source, *target, {static_cast<uint8_t const*>(frameData), frameSize},
                                    convertedFrame, cam->sensor->getW(), cam->sensor->getH());
}

/// If the host refuses the frame of instance 1, the one of instance 0 is dropped: they are two forms of one frame.
int CCamProc::ProcLoopMem(uint64_t timestamp, uint32_t flag) {
    auto const trigger = [&](uint32_t instance, void const*& frame) {
        int const result = MgGiMemInst__Trigger(instance, 0, timestamp, frame, static_cast<uint8_t>(flag));
        frame = nullptr;
        return result;
    };
    if (instance1Frame != nullptr) {
        int const result = trigger(1, instance1Frame);
        if (result != 0) {
            instance0Frame = nullptr;
            return result;
        }
    }
    return instance0Frame == nullptr ? 0 : trigger(0, instance0Frame);
}

}  // namespace Vorn::Support::MediaGrabber::Jai
