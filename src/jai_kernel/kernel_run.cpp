// SPDX-License-Identifier: MIT
#include "kernel_run.hpp"

#include <PvDeviceGEV.h>
#include <PvDeviceInfo.h>
#include <PvGenParameterArray.h>
#include <PvStreamGEV.h>

#include <algorithm>
#include <limits>
#include <memory>

#include "cam_proc.hpp"
#include "errors.hpp"
#include "jai_camera/camera.hpp"
#include "jai_factory/buffer_factory.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

/// Packet sizes in bytes up to this one are set as configured; on the host interface, a larger one means "negotiate".
constexpr uint32_t _S_maxFixedPacketBytes = 9000;

/// Stream channels that GigE Vision allows a device. A larger count is not believed.
constexpr int64_t _S_maxChannels = 512;

/// Each step of the packet size set-up logs under this name.
constexpr mg_log_operation _S_packetSizeSetup{"_T_setup_gev_packet_size"};

/// \return false: the camera streams unconditionally and cannot be stopped, so its packet size must not change
bool _T_stop_unconditional_streaming(PvGenParameterArray& params) {
    constexpr auto mgLogFunction = _S_packetSizeSetup;
    auto* const feature = params.GetBoolean("GevSCCFGUnconditionalStreaming");
    if (feature == nullptr) {
        MG_LOG_W("fail: PvGenParameterArray::GetBoolean (name:GevSCCFGUnconditionalStreaming)\n");
        return true;
    }
    bool streams = false;
    if (!feature->GetValue(streams).IsOK()) {
        MG_LOG_W("fail: PvGenBoolean::GetValue (name:GevSCCFGUnconditionalStreaming)\n");
        return true;
    }
    if (streams && !feature->SetValue(false).IsOK()) {
        MG_LOG_W("fail: PvGenBoolean::SetValue (name:GevSCCFGUnconditionalStreaming, value:false)\n");
        return false;
    }
    MG_LOG_I("done: PvGenBoolean::SetValue (name:GevSCCFGUnconditionalStreaming, value:false)\n");
    return true;
}

/// Logs failures; the packet size is set nevertheless.
void _T_set_auto_negotiation(PvGenParameterArray& communication, bool wanted) {
    constexpr auto mgLogFunction = _S_packetSizeSetup;
    char const* const text = wanted ? "true" : "false";
    auto* const feature = communication.GetBoolean("AutoNegotiation");
    if (feature == nullptr) {
        MG_LOG_W("fail: PvGenParameterArray::GetBoolean (name:AutoNegotiation)\n");
        return;
    }
    bool negotiates = true;
    if (!feature->GetValue(negotiates).IsOK()) {
        MG_LOG_W("fail: PvGenBoolean::GetValue (name:AutoNegotiation)\n");
        return;
    }
    if (negotiates != wanted && !feature->SetValue(wanted).IsOK()) {
        MG_LOG_W("fail: PvGenBoolean::SetValue (name:AutoNegotiation, value:%s)\n", text);
        return;
    }
    MG_LOG_I("done: PvGenBoolean::SetValue (name:AutoNegotiation, value:%s)\n", text);
}

void _T_set_fixed_packet_size(PvDeviceGEV& device, PvGenParameterArray& communication, uint32_t size) {
    constexpr auto mgLogFunction = _S_packetSizeSetup;
    _T_set_auto_negotiation(communication, false);
    int64_t active = 0;
    if (!communication.GetIntegerValue("DefaultPacketSize", active).IsOK()) {
        MG_LOG_W("fail: PvGenParameterArray::GetIntegerValue (name:DefaultPacketSize)\n");
        return;
    }
    if (active != int64_t{size} && !device.SetPacketSize(size, 0).IsOK()) {
        MG_LOG_W("fail: PvDeviceGEV::SetPacketSize (value:%u)\n", size);
        return;
    }
    MG_LOG_I("done: PvDeviceGEV::SetPacketSize (value:%u)\n", size);
}

void _T_negotiate_packet_size(PvDeviceGEV& device, PvGenParameterArray& communication) {
    constexpr auto mgLogFunction = _S_packetSizeSetup;
    _T_set_auto_negotiation(communication, true);
    if (!device.NegotiatePacketSize(0, 0).IsOK()) {
        MG_LOG_W("fail: PvDeviceGEV::NegotiatePacketSize\n");
        return;
    }
    MG_LOG_I("done: PvDeviceGEV::NegotiatePacketSize\n");
}

/// Sets the packet size of the other stream channels to that of channel 0.
void _T_propagate_packet_size(PvDeviceGEV& device, PvGenParameterArray& params) {
    constexpr auto mgLogFunction = _S_packetSizeSetup;
    int64_t channels = 0;
    if (!params.GetIntegerValue("GevStreamChannelCount", channels).IsOK() || channels < 2) {
        return;
    }
    int64_t size = 0;
    if (!params.GetIntegerValue("GevSCPSPacketSize", size).IsOK() || size < 0 ||
        size > std::numeric_limits<uint32_t>::max()) {
        MG_LOG_W("Could not read back streaming channel 0 packet size\n");
        return;
    }
    for (int64_t channel = 1; channel < std::min(channels, _S_maxChannels); ++channel) {
        if (!device.SetPacketSize(static_cast<uint32_t>(size), static_cast<uint32_t>(channel)).IsOK()) {
            MG_LOG_W("Failed to propagate GevSCPSPacketSize on all streaming channels\n");
            return;
        }
    }
}

/// A step that fails leaves the active packet size; the run continues.
void _T_setup_gev_packet_size(PvDeviceGEV& device, PvGenParameterArray& params, PvGenParameterArray& communication) {
    if (!_T_stop_unconditional_streaming(params)) {
        return;
    }
    uint32_t const size = MgGiMainCtx__GetDatachunk();
    if (size <= _S_maxFixedPacketBytes) {
        _T_set_fixed_packet_size(device, communication, size);
    } else {
        _T_negotiate_packet_size(device, communication);
    }
    _T_propagate_packet_size(device, params);
}

void _T_setup_packet_size(PvDeviceGEV& device) {
    auto* const params = device.GetParameters();
    if (params == nullptr) {
        MG_LOG_E("fail: PvDeviceGEV::GetParameters\n");
        return;
    }
    auto* const communication = device.GetCommunicationParameters();
    if (communication == nullptr) {
        MG_LOG_E("fail: PvDeviceGEV::GetCommunicationParameters\n");
        return;
    }
    _T_setup_gev_packet_size(device, *params, *communication);
}

/// Sets the destination of the camera's stream to the socket that receives it.
void _T_set_stream_destination(PvDeviceGEV& device, PvStream* stream) {
    auto* const gevStream = dynamic_cast<PvStreamGEV*>(stream);
    if (gevStream != nullptr) {
        device.SetStreamDestination(gevStream->GetLocalIPAddress(), gevStream->GetLocalPort(), 0);
    }
}

}  // namespace

int Kernel__Run(PvDeviceInfo const* info) {
    auto const type = info->GetType();
    MG_LOG_D("exec: PvDeviceInfoType:%u\n", static_cast<unsigned>(type));
    std::shared_ptr<camera> cam;
    try {
        cam = std::make_shared<camera>(info);
    } catch (internal_error const&) {
        return value_of(mg_host_api::exit_code::camera_unavailable);
    }
    auto* const device = type == PvDeviceInfoTypeGEV ? dynamic_cast<PvDeviceGEV*>(cam->device.get()) : nullptr;
    if (device != nullptr) {
        _T_setup_packet_size(*device);
        _T_set_stream_destination(*device, cam->stream.get());
    }
    CCamProc kernel;
    int const result = kernel.ProcOnce(cam.get(), info, &mgBufFactory);
    MG_LOG_I("done: rc:%i)\n", result);
    return result;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
