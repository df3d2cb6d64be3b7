// SPDX-License-Identifier: MIT
#include "camera.hpp"

#include "errors.hpp"
#include "jai_property_bag/property_bag.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "JAI_CAM";

camera::camera(PvDeviceInfo const* deviceInfo)
    : info(deviceInfo),
      device(nullptr, &PvDevice::Free),
      stream(nullptr, &PvStream::Free),
      sensor(Sensor__Create(this)),
      grabControl(GrabControl__Create(this)),
      gpioLine2(Gpio__CreateLine2(this)),
      gpioLine3(Gpio__CreateLine3(this)),
      frameRate(this) {
    PvString const connection = info->GetConnectionID();
    PvResult result;
    device.reset(PvDevice::CreateAndConnect(connection, &result));
    if (!result.IsOK() || device == nullptr) {
        MG_LOG_E("fail: PvDevice::CreateAndConnect (model:%s, serial:%s)\n", info->GetModelName().GetAscii(),
                 info->GetSerialNumber().GetAscii());
        throw internal_error();
    }
    stream.reset(PvStream::CreateAndOpen(connection, &result));
    if (!result.IsOK() || stream == nullptr) {
        MG_LOG_E("fail: PvStream::CreateAndOpen (model:%s, serial:%s)\n", info->GetModelName().GetAscii(),
                 info->GetSerialNumber().GetAscii());
        throw internal_error();
    }
}

camera::~camera() {
    device->Disconnect();
}

void camera::setupGpio(property_bag const& bag) {
    for (auto* const line : {gpioLine2.get(), gpioLine3.get()}) {
        try {
            line->setup(bag);
        } catch (generic_error const&) {
            // Logged where it was thrown.
        }
    }
}

int camera::ExStartCapture() {
    if (deviceParams == nullptr || device == nullptr) {
        MG_LOG_W("Can't get contexts to start capture\n");
        return -1;
    }
    auto* const start = deviceParams->GetCommand("AcquisitionStart");
    if (start == nullptr) {
        MG_LOG_W("Can't map AcquisitionStart command\n");
        return -2;
    }
    if (!device->StreamEnable(0).IsOK()) {
        MG_LOG_W("Can't enable stream to start capture\n");
        return -3;
    }
    if (!start->Execute().IsOK()) {
        MG_LOG_W("Can't execute AcquisitionStart command to start capture\n");
        return -4;
    }
    return 0;
}

/// The reverse order of starting: first the command, then the stream channel. A code stands for the same step in both.
int camera::ExStopCapture() {
    if (deviceParams == nullptr || device == nullptr || stream == nullptr) {
        MG_LOG_W("Can't get contexts to stop capture\n");
        return -1;
    }
    auto* const stop = deviceParams->GetCommand("AcquisitionStop");
    if (stop == nullptr) {
        MG_LOG_W("Can't map AcquisitionStop command\n");
        return -2;
    }
    if (!stop->Execute().IsOK()) {
        MG_LOG_W("Can't execute AcquisitionStop command to stop capture\n");
        return -4;
    }
    if (!device->StreamDisable(0).IsOK()) {
        MG_LOG_W("Can't disable stream to stop capture\n");
        return -3;
    }
    return 0;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
