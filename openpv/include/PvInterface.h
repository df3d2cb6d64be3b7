#pragma once
#include <cstdint>
#include <memory>

#include <PvDeviceInfo.h>
#include <PvString.h>

/// One network interface of the host, with the devices found on it in order of discovery.
class PvInterface {
public:
    struct impl;
    explicit PvInterface(std::unique_ptr<impl> state);
    PvInterface(PvInterface const&) = delete;
    PvInterface& operator=(PvInterface const&) = delete;
    ~PvInterface();

    uint32_t GetDeviceCount() const;
    PvDeviceInfo const* GetDeviceInfo(uint32_t index) const;  ///< null beyond the last
    PvString GetDisplayID() const;

private:
    std::unique_ptr<impl> impl_;
};
