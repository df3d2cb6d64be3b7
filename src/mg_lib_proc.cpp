// SPDX-License-Identifier: MIT
#include <PvDeviceInfo.h>
#include <PvInterface.h>
#include <PvSystem.h>

#include <vector>

#include "jai_kernel/kernel_run.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"
#include "mg_revision.hpp"

using Vorn::Support::MediaGrabber::Jai::Kernel__Run;

static constexpr char _S_logTag[] = "MG_JAI_MAIN";

namespace {

using mg_host_api::exit_code;
using mg_host_api::signal_code;

constexpr uint32_t _S_infoLevel = 3;  ///< of `gMgLogLevelLib`

using device_list = std::vector<PvDeviceInfo const*>;

/// Queries the SDK's texts only if the message is not filtered.
void _T_report_device(uint32_t interfaceIndex, PvInterface const& interface, PvDeviceInfo const& device) {
    if (gMgLogLevelLib < _S_infoLevel) {
        return;
    }
    PvString const description = device.GetDisplayID();
    PvString const model = device.GetModelName();
    PvString const serial = device.GetSerialNumber();
    PvString const interfaceName = interface.GetDisplayID();
    MG_LOG_I("== %u. Camera Device Information ==\n", interfaceIndex);
    MG_LOG_I("===================================\n");
    MG_LOG_I("\tDescription        : %s\n", description.GetAscii());
    MG_LOG_I("\tDeviceModel        : %s\n", model.GetAscii());
    MG_LOG_I("\tDeviceSerial       : %s\n", serial.GetAscii());
    MG_LOG_I("\tInterface          : %s\n", interfaceName.GetAscii());
}

/// Lists the devices of all interfaces, in order of interface, then of discovery.
device_list _T_list_devices(PvSystem const& system) {
    device_list devices;
    uint32_t const interfaces = system.GetInterfaceCount();
    for (uint32_t i = 0; i < interfaces; ++i) {
        PvInterface const* const interface = system.GetInterface(i);
        uint32_t const count = interface->GetDeviceCount();
        for (uint32_t j = 0; j < count; ++j) {
            devices.push_back(interface->GetDeviceInfo(j));
            _T_report_device(i, *interface, *devices.back());
        }
    }
    return devices;
}

/// The host's camera selection. Texts may be null.
struct target {
    char const* model = MgGiMainCtx__GetModelStr();
    char const* id = MgGiMainCtx__GetIdStr();
    uint32_t mask = MgGiMainCtx__GetActiveCamMask();

    bool matches(PvDeviceInfo const& device) const {
        bool const anySerial = id == nullptr || *id == '\0';
        return model != nullptr && device.GetModelName() == PvString(model) &&
               (anySerial || device.GetSerialNumber() == PvString(id));
    }
    bool selects(size_t index) const { return ((mask >> (index % 32)) & 1U) != 0; }
};

/// \return the first device that matches by model and serial number or that the mask selects; null: none does
PvDeviceInfo const* _T_choose(device_list const& devices, target const& wanted) {
    for (size_t i = 0; i < devices.size(); ++i) {
        PvDeviceInfo const* const device = devices[i];
        if (wanted.matches(*device)) {
            return device;
        }
        if (wanted.selects(i)) {
            PvString const model = device->GetModelName();
            PvString const serial = device->GetSerialNumber();
            MG_LOG_I("Loop %u. Choose Model \"%s\" Serial \"%s\" using command line option\n", static_cast<unsigned>(i),
                     model.GetAscii(), serial.GetAscii());
            return device;
        }
    }
    return nullptr;
}

char const* _T_printable(char const* text) {
    return text == nullptr ? "(null)" : text;
}

/// Finds the target camera and runs it. The counters advance inside the log calls, once for each active sink, so they
/// count written messages.
/// \return result of the run, an `mg_host_api::exit_code`
int32_t _T_find_and_run() {
    static uint32_t _s_device_absent_count = 0;
    static uint32_t _s_target_device_absent_count = 0;

    PvSystem system;
    system.Find();
    auto const devices = _T_list_devices(system);
    if (devices.empty()) {
        MG_LOG_I("fail: any device not found (times:%u)\n", _s_device_absent_count++);
        return value_of(exit_code::no_device);
    }
    target const wanted;
    PvDeviceInfo const* const device = _T_choose(devices, wanted);
    if (device == nullptr) {
        MG_LOG_I("fail: target device not found (model:%s, id:%s, times:%u)\n", _T_printable(wanted.model),
                 _T_printable(wanted.id), _s_target_device_absent_count++);
        return value_of(exit_code::no_target);
    }
    _s_target_device_absent_count = 0;
    return Kernel__Run(device);
}

/// Handles a reload signal that the run has not handled.
void _T_follow_pending_reload() {
    if (MgUtl__CheckSignal() != value_of(signal_code::reload)) {
        return;
    }
    uint32_t exitRequested = 0;
    if (MgGi__DoReconfig(&exitRequested) == 0) {
        MG_LOG_I("continue operation with new configuration...\n");
    } else {
        MG_LOG_I("incorrect cfg file, continue with the old one...\n");
    }
}

}  // namespace

int32_t MgLibProc() {
    MG_LOG_D("init SDK staff\n");
    MG_LOG_I("Printing all the devices information found:\n");
    int32_t const exitCode = _T_find_and_run();
    _T_follow_pending_reload();
    if ((gMgLogModeLib & 2U) != 0) {
        _T_set_log_mode(gMgLogIdLib, "mediagrabber");
    }
    MG_LOG_I("Loop completed (exitCode = %i)\n", exitCode);
    return exitCode;
}

char const* MgLibGetVer() {
    static char const _s_version_info[] = MG_VERSION "-" MG_SOURCE_REVISION;
    return _s_version_info;
}
