#pragma once
/// \file
/// A device: its camera's link, and the parameters of camera and connection.

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <PvDevice.h>

#include "camera_link.hpp"
#include "connection_settings.hpp"
#include "gev_stream_channel.hpp"

struct PvDevice::impl {
    explicit impl(openpv::connection_id const& id);
    ~impl();

    PvResult connect();
    PvResult disconnect();
    bool is_connected() const { return connected_ && link->alive(); }

    /// Calls `operation(gev_stream_channel&)` on a channel that exists.
    template <class function>
    PvResult with_channel(std::string const& what, uint32_t channel, function&& operation) {
        return link->access(what, [&](ArvDevice& device) -> PvResult {
            openpv::gev_stream_channel stream_channel(device, channel);
            PvResult const exists = stream_channel.check_exists();
            return exists.IsOK() ? operation(stream_channel) : exists;
        });
    }

    /// Chooses the channel's packet size: for channel 0 also over a reconnection.
    PvResult set_packet_size(uint32_t bytes, uint32_t channel);
    /// \param fallback what is set when no test packet arrives; then the result is not OK all the same
    /// \param usable whether some size was set, negotiated or not
    PvResult negotiate_packet_size(uint32_t channel, uint32_t fallback, bool& usable);
    /// Gives channel 0, which is about to stream, a packet size when nobody has chosen one on this connection.
    PvResult settle_packet_size();

    std::shared_ptr<openpv::camera_link> const link;
    std::shared_ptr<openpv::connection_settings> const settings = std::make_shared<openpv::connection_settings>();
    std::unique_ptr<PvGenParameterArray> const parameters;
    std::unique_ptr<PvGenParameterArray> const communication;

private:
    std::atomic<bool> connected_ = false;
    std::optional<uint32_t> packet_size_;  ///< chosen for channel 0
};
