/// \file
/// A plug-in with openpv inside, as a host loads it.

#include <PvDevice.h>

/// Connects to a camera and lets it go. \return whether that worked
extern "C" __attribute__((visibility("default"))) bool connect_once(char const* id) {
    PvResult result;
    PvDevice* const device = PvDevice::CreateAndConnect(id, &result);
    PvDevice::Free(device);
    return result.IsOK();
}
