// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Connection to one camera, shared by its `PvDevice` and `PvStream` in this process.

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <PvResult.h>

#include "device/camera_session.hpp"
#include "gvcp/connection_id.hpp"

namespace openpv {

/// Events for the stream of a camera. The link's stream mutex is locked during each call, so a listener must not attach
/// or detach, connect or disconnect.
class link_listener {
public:
    virtual void camera_lost() = 0;           ///< on the heartbeat thread; must return at once
    virtual void session_closing() = 0;       ///< releases everything that uses the session
    virtual PvResult streaming_starts() = 0;  ///< the camera is about to send; prepares to receive
    virtual void streaming_ends() = 0;        ///< the camera no longer sends

protected:
    ~link_listener() = default;
};

/// Owns the session with a camera while there is one. The camera may be connected, lost and connected again while
/// device and stream keep the same link.
///
/// Obtain it with `to`; device and stream each hold a `shared_ptr`, and the link ends with the last of them. All
/// operations may be called from any thread. Locks are taken in this order: `operation_`, `stream_mutex_`, the
/// session's access, `session_mutex_`. Failures are returned as `PvResult`; nothing throws.
class camera_link {
public:
    /// \return the only link of this process to that camera; created if there is none
    static std::shared_ptr<camera_link> to(connection_id const& id);

    explicit camera_link(connection_id const& id) : id_(id) {}
    camera_link(camera_link const&) = delete;
    camera_link& operator=(camera_link const&) = delete;
    ~camera_link();

    /// Connects the device. If a stream has opened a session, the device takes it over, with control.
    /// \return GENERIC_ERROR if this process has connected the camera already, or the error of `camera_session::open`
    PvResult connect_device(session_mode mode = session_mode::control);
    void disconnect_device();  ///< closes the session, also one that a stream has opened

    /// Connects the stream: uses the device's session, or opens one that ends with the stream. A camera has one stream,
    /// because only stream channel 0 is received.
    /// \param stream borrowed until `detach`
    /// \return NOT_CONNECTED if the device's connection is lost, GENERIC_ERROR if there is a stream already
    PvResult attach(link_listener& stream);
    void detach();

    PvResult notify_streaming_starts();  ///< for the device: the camera is about to send
    void notify_streaming_ends();        ///< for the device: the camera no longer sends

    std::shared_ptr<camera_session> session() const;  ///< null without a session
    bool alive() const;                               ///< whether there is a session and its camera is not lost
    bool controls() const;                            ///< whether there is a session with control
    /// As `camera_session::access`; NOT_CONNECTED without a session.
    template <class function>
    PvResult access(std::string const& what, function&& operation) const {
        auto const session = this->session();
        return session ? session->access(what, std::forward<function>(operation)) : camera_session::not_connected(what);
    }

    /// Whether the application has chosen the packet size of stream channel 0 during the current session.
    bool packet_size_chosen() const { return packet_size_chosen_; }
    void packet_size_chosen(bool chosen) { packet_size_chosen_ = chosen; }

    connection_id const& id() const { return id_; }

private:
    PvResult open_session(session_mode mode);
    void close_session();
    void notify_lost();

    connection_id const id_;
    std::atomic<bool> packet_size_chosen_ = false;
    std::mutex operation_;  ///< serialises connecting, disconnecting, attaching and detaching
    bool device_connected_ = false;

    std::mutex mutable session_mutex_;  ///< guards `session_`; held only to copy or replace it
    std::shared_ptr<camera_session> session_;

    std::mutex stream_mutex_;  ///< guards `stream_`; held during its callbacks
    link_listener* stream_ = nullptr;
};

}  // namespace openpv
