// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Implementation of a device: the camera's link, and the parameters of camera and connection.

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <PvDevice.h>

#include "device/camera_link.hpp"
#include "device/connection_settings.hpp"
#include "stream/stream_channel.hpp"

/// Connects a public device with its camera. `Connect` with another camera replaces the whole object. Connecting and
/// streaming operations of one device must not run concurrently; parameter accesses may.
struct PvDevice::impl {
    explicit impl(openpv::connection_id const& id);
    ~impl();

    PvResult connect(PvAccessType access);
    PvResult disconnect();
    bool is_connected() const { return connected_ && link->alive(); }

    /// Calls `operation(stream_channel&)` if the channel exists.
    /// \return the operation's result, or INVALID_PARAMETER
    template <class function>
    PvResult with_channel(std::string const& what, std::uint32_t channel, function&& operation) {
        return link->access(what, [&](openpv::register_port& registers, openpv::node_graph& features) -> PvResult {
            openpv::stream_channel stream_channel(registers, features, channel);
            PvResult const exists = stream_channel.check_exists();
            return exists.IsOK() ? operation(stream_channel) : exists;
        });
    }

    /// Sets the channel's packet size. For channel 0, the size is set again after a reconnection.
    PvResult set_packet_size(std::uint32_t bytes, std::uint32_t channel);
    /// \param fallback packet size to set if the negotiation fails; the result is its failure nevertheless
    /// \param usable receives whether a size was set, negotiated or not
    PvResult negotiate_packet_size(std::uint32_t channel, std::uint32_t fallback, bool& usable);
    /// Sets the packet size of channel 0 before streaming, unless the application has chosen one on this connection.
    PvResult choose_packet_size();

    std::shared_ptr<openpv::camera_link> const link;
    std::shared_ptr<openpv::connection_settings> const settings = std::make_shared<openpv::connection_settings>();
    std::unique_ptr<PvGenParameterArray> const parameters;
    std::unique_ptr<PvGenParameterArray> const communication;

private:
    std::atomic<bool> connected_ = false;
    std::optional<std::uint32_t> packet_size_;  ///< chosen by the application for channel 0
};
