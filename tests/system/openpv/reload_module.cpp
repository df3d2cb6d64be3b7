// SPDX-License-Identifier: MIT
/// \file
/// A plug-in that contains openpv.

#include <PvDevice.h>

/// Connects to a camera and releases it. \return whether that succeeded
extern "C" __attribute__((visibility("default"))) bool connect_once(char const* id) {
    PvResult result;
    PvDevice* const device = PvDevice::CreateAndConnect(id, &result);
    PvDevice::Free(device);
    return result.IsOK();
}
