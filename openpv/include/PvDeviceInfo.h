// SPDX-License-Identifier: MIT
#pragma once
#include <memory>

#include <PvString.h>
#include <PvTypes.h>

/// Identity of a discovered camera. Owned by the `PvSystem` that found it, and valid until its next `Find`. Immutable,
/// so it may be read from any thread.
class PvDeviceInfo {
public:
    struct impl;
    explicit PvDeviceInfo(std::unique_ptr<impl> state);
    PvDeviceInfo(PvDeviceInfo const&) = delete;
    PvDeviceInfo& operator=(PvDeviceInfo const&) = delete;
    ~PvDeviceInfo();

    /// \return always `PvDeviceInfoTypeGEV`
    PvDeviceInfoType GetType() const;
    /// \return manufacturer name, as the camera reports it; unprintable characters are replaced by `?` here and below
    PvString GetVendorName() const;
    /// \return model name
    PvString GetModelName() const;
    /// \return version of the camera
    PvString GetVersion() const;
    /// \return serial number
    PvString GetSerialNumber() const;
    /// \return text for people: `GO-5100M-PGE [192.168.1.20] serial U500123`, followed by the user-defined name if
    ///     there is one
    PvString GetDisplayID() const;
    /// \return text that identifies the camera to `PvDevice` and `PvStream`; it stays valid while addresses do not
    /// change
    PvString GetConnectionID() const;

private:
    std::unique_ptr<impl> impl_;
};
