#pragma once
#include <memory>

#include <PvString.h>
#include <PvTypes.h>

/// Identity of a camera that was found. Lives as long as the `PvSystem` that found it.
class PvDeviceInfo {
public:
    struct impl;
    explicit PvDeviceInfo(std::unique_ptr<impl> state);
    PvDeviceInfo(PvDeviceInfo const&) = delete;
    PvDeviceInfo& operator=(PvDeviceInfo const&) = delete;
    ~PvDeviceInfo();

    PvDeviceInfoType GetType() const;
    PvString GetVendorName() const;
    PvString GetModelName() const;
    PvString GetVersion() const;
    PvString GetSerialNumber() const;
    PvString GetDisplayID() const;
    PvString GetConnectionID() const;  ///< names the device to `PvDevice` and `PvStream`

private:
    std::unique_ptr<impl> impl_;
};
