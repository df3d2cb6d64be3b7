// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>
#include <memory>

#include <PvDeviceInfo.h>
#include <PvString.h>

/// A network interface of the host, with the devices found on it in order of discovery. Owned by its `PvSystem`, and
/// valid until the next `Find`. Immutable.
class PvInterface {
public:
    struct impl;
    explicit PvInterface(std::unique_ptr<impl> state);
    PvInterface(PvInterface const&) = delete;
    PvInterface& operator=(PvInterface const&) = delete;
    ~PvInterface();

    /// \return number of devices found on this interface
    uint32_t GetDeviceCount() const;
    /// \param index below `GetDeviceCount()`
    /// \return the device, owned by this object; null if there are fewer devices
    PvDeviceInfo const* GetDeviceInfo(uint32_t index) const;
    /// \return text for people, with all addresses: `eth0 [192.168.1.1]`
    PvString GetDisplayID() const;

private:
    std::unique_ptr<impl> impl_;
};
