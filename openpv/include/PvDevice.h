#pragma once
#include <cstdint>
#include <memory>

#include <PvGenParameterArray.h>
#include <PvResult.h>
#include <PvString.h>
#include <PvTypes.h>

/// A connected camera.
class PvDevice {
public:
    struct impl;
    explicit PvDevice(std::unique_ptr<impl> state);
    PvDevice(PvDevice const&) = delete;
    PvDevice& operator=(PvDevice const&) = delete;
    virtual ~PvDevice();

    /// \return the connected device, or null with the reason in `result`
    static PvDevice* CreateAndConnect(PvString const& connectionId, PvResult* result);
    static void Free(PvDevice* device);

    PvResult Connect(PvString const& connectionId, PvAccessType access = PvAccessControl);
    PvResult Disconnect();
    bool IsConnected() const;  ///< false once the camera no longer answers

    PvGenParameterArray* GetParameters();               ///< features of the camera
    PvGenParameterArray* GetCommunicationParameters();  ///< settings of the connection on the host's side

    PvResult StreamEnable(uint32_t channel = 0);
    PvResult StreamDisable(uint32_t channel = 0);
    uint32_t GetPayloadSize();  ///< bytes

protected:
    std::unique_ptr<impl> impl_;
};
