// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>
#include <memory>

#include <PvGenParameterArray.h>
#include <PvResult.h>
#include <PvString.h>
#include <PvTypes.h>

/// A camera under control of this application, or one that it only reads.
///
/// Obtain it with `CreateAndConnect` and free it with `Free`. After a loss of the camera, `Connect` on the same object
/// restores the connection; parameters that were looked up stay valid. Connecting and streaming functions must not be
/// called concurrently; parameters may be used from any thread. Failures are returned as `PvResult`; nothing throws.
class PvDevice {
public:
    struct impl;
    explicit PvDevice(std::unique_ptr<impl> state);
    PvDevice(PvDevice const&) = delete;
    PvDevice& operator=(PvDevice const&) = delete;
    virtual ~PvDevice();

    /// Connects a camera and takes control of it. Blocks for about a second if the camera does not respond.
    ///
    /// With PvAccessReadOnly, this layer writes no register, so another application may have control, but not exclusive
    /// access. A stream receives only what that application has the camera send to a multicast group.
    /// \param connectionId from `PvDeviceInfo::GetConnectionID`
    /// \param access control, or only reading
    /// \param result receives the outcome; may be null. INVALID_PARAMETER for an invalid ID, NOT_FOUND if the camera
    ///     does not respond or another camera has its address, GENERIC_ERROR if it is controlled already or cannot be
    ///     used
    /// \return the device, to be freed with `Free`; null on failure
    static PvDevice* CreateAndConnect(PvString const& connectionId, PvResult* result,
                                      PvAccessType access = PvAccessControl);
    /// Disconnects and destroys a device.
    /// \param device may be null
    static void Free(PvDevice* device);

    /// Connects again after `Disconnect` or a loss. With the ID of another camera, connects that one instead;
    /// parameters that were looked up before are then destroyed.
    /// \param connectionId from `PvDeviceInfo::GetConnectionID`
    /// \param access as `CreateAndConnect`
    /// \return as `CreateAndConnect`; the device is unchanged if another camera cannot be connected
    PvResult Connect(PvString const& connectionId, PvAccessType access = PvAccessControl);
    /// Releases control of the camera, also if a stream is still open.
    /// \return NOT_CONNECTED if the device is disconnected already
    PvResult Disconnect();
    /// \return false after `Disconnect`, and once the camera no longer responds or another application controls it
    bool IsConnected() const;

    /// \return the camera's features; owned by the device
    PvGenParameterArray* GetParameters();
    /// \return host-side settings of the connection; owned by the device
    PvGenParameterArray* GetCommunicationParameters();

    /// Prepares the camera and its open stream for an acquisition, and locks the transport layer parameters. Sets the
    /// packet size unless the application has chosen one: negotiated, or "DefaultPacketSize". With read-only access,
    /// only prepares the stream: call it again when the controlling application has changed the packet or payload size.
    /// \param channel stream channel of the camera; an open `PvStream` receives channel 0
    /// \return INVALID_PARAMETER if the camera does not have the channel, NOT_CONNECTED, or the camera's error
    PvResult StreamEnable(uint32_t channel = 0);
    /// Ends what `StreamEnable` started. Buffers stay queued.
    /// \param channel stream channel of the camera
    /// \return as `StreamEnable`
    PvResult StreamDisable(uint32_t channel = 0);
    /// \return size of a block in bytes, with the camera's current settings; 0 if it cannot be read
    uint32_t GetPayloadSize();

protected:
    std::unique_ptr<impl> impl_;
};
