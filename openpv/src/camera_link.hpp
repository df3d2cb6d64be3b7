#pragma once
/// \file
/// What `PvDevice` and `PvStream` of one camera share in this process.

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <PvResult.h>

#include "camera_session.hpp"
#include "connection_id.hpp"

namespace openpv {

/// The stream, as its camera's link sees it.
class link_listener {
public:
    virtual void camera_lost() = 0;     ///< on a thread of the session; must not wait
    virtual void session_closes() = 0;  ///< lets go of everything that belongs to the session
    virtual PvResult streaming_starts() = 0;
    virtual void streaming_ends() = 0;

protected:
    ~link_listener() = default;
};

/// The camera may be connected, lost and connected again while device and stream keep the same link.
class camera_link {
public:
    /// The one link of this process to the camera, made when there is none.
    static std::shared_ptr<camera_link> to(connection_id const& id);

    explicit camera_link(connection_id const& id) : id_(id) {}
    camera_link(camera_link const&) = delete;
    camera_link& operator=(camera_link const&) = delete;
    ~camera_link();

    /// The device's connection. There can be one device a camera; a session that a stream has opened is taken over.
    PvResult connect_device();
    void disconnect_device();  ///< closes the session, whoever opened it

    /// The stream's connection: the device's, or one of its own, which ends with the stream. There can be one stream a
    /// camera, because there is one stream channel that it receives from.
    PvResult attach(link_listener& stream);
    void detach();

    PvResult tell_streaming_starts();  ///< the camera is about to send
    void tell_streaming_ends();        ///< it no longer does

    std::shared_ptr<camera_session> session() const;  ///< null when there is none
    bool alive() const;
    /// As `camera_session::access`, NOT_CONNECTED without a session.
    template <class function>
    PvResult access(std::string const& what, function&& operation) const {
        auto const session = this->session();
        return session ? session->access(what, std::forward<function>(operation)) : camera_session::not_connected(what);
    }

    /// Whether somebody has chosen the packet size of stream channel 0 on the session in force.
    bool packet_size_chosen() const { return packet_size_chosen_; }
    void packet_size_chosen(bool chosen) { packet_size_chosen_ = chosen; }

    connection_id const& id() const { return id_; }

private:
    PvResult open_session();
    void close_session();
    void tell_lost();

    connection_id const id_;
    std::atomic<bool> packet_size_chosen_ = false;
    std::mutex operation_;  ///< connecting, disconnecting, attaching: one at a time
    bool device_connected_ = false;

    std::mutex mutable session_mutex_;
    std::shared_ptr<camera_session> session_;

    std::mutex stream_mutex_;
    link_listener* stream_ = nullptr;
};

}  // namespace openpv
