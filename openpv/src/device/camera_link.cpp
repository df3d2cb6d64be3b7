// SPDX-License-Identifier: MIT
#include "device/camera_link.hpp"

#include <map>
#include <utility>

namespace openpv {
namespace {

/// Links in use, by connection ID.
class link_register {
public:
    std::shared_ptr<camera_link> find_or_make(connection_id const& id) {
        std::lock_guard const lock(mutex_);
        std::weak_ptr<camera_link>& known = links_[to_text(id)];
        auto link = known.lock();
        if (!link) {
            link = std::make_shared<camera_link>(id);
            known = link;
        }
        return link;
    }

private:
    std::mutex mutex_;
    std::map<std::string, std::weak_ptr<camera_link>> links_;
};

}  // namespace

std::shared_ptr<camera_link> camera_link::to(connection_id const& id) {
    static auto& links =
        *new link_register;  // never destroyed: static objects of the application may use it while the process exits
    return links.find_or_make(id);
}

camera_link::~camera_link() {
    close_session();
}

PvResult camera_link::connect_device(session_mode mode) {
    std::lock_guard const lock(operation_);
    if (device_connected_ && alive()) {
        return {
            PvResult::Code::GENERIC_ERROR,
            (to_text(id_) + " cannot be connected: this process has connected the camera already. Disconnect it first.")
                .c_str()};
    }
    if (!alive()) {
        PvResult const opened = open_session(mode);
        if (!opened.IsOK()) {
            return opened;
        }
    }
    device_connected_ = true;
    return {};
}

void camera_link::disconnect_device() {
    std::lock_guard const lock(operation_);
    device_connected_ = false;
    close_session();
}

PvResult camera_link::attach(link_listener& stream) {
    std::lock_guard const lock(operation_);
    if (!alive() && device_connected_) {
        return camera_session::not_connected("The stream cannot be opened");
    }
    if (stream_ != nullptr) {
        return {PvResult::Code::GENERIC_ERROR,
                "The stream cannot be opened: this process has opened the camera's stream already. Free it first."};
    }
    if (!alive()) {
        PvResult const opened = open_session(session_mode::control);
        if (!opened.IsOK()) {
            return opened;
        }
    }
    std::lock_guard const stream_lock(stream_mutex_);
    stream_ = &stream;
    return {};
}

void camera_link::detach() {
    std::lock_guard const lock(operation_);
    {
        std::lock_guard const stream_lock(stream_mutex_);
        stream_ = nullptr;
    }
    if (!device_connected_) {
        close_session();
    }
}

PvResult camera_link::notify_streaming_starts() {
    std::lock_guard const lock(stream_mutex_);
    return stream_ != nullptr ? stream_->streaming_starts() : PvResult();
}

void camera_link::notify_streaming_ends() {
    std::lock_guard const lock(stream_mutex_);
    if (stream_ != nullptr) {
        stream_->streaming_ends();
    }
}

std::shared_ptr<camera_session> camera_link::session() const {
    std::lock_guard const lock(session_mutex_);
    return session_;
}

bool camera_link::alive() const {
    auto const session = this->session();
    return session && session->alive();
}

bool camera_link::controls() const {
    auto const session = this->session();
    return session && session->controlled();
}

PvResult camera_link::open_session(session_mode mode) {
    close_session();
    packet_size_chosen_ = false;
    PvResult result;
    std::shared_ptr<camera_session> opened = camera_session::open(
        id_, [this] { notify_lost(); }, result, mode);
    std::lock_guard const lock(session_mutex_);
    session_ = std::move(opened);
    return result;
}

/// The stream releases the session first. A parameter access on another thread keeps it alive until the access ends.
void camera_link::close_session() {
    {
        std::lock_guard const lock(stream_mutex_);
        if (stream_ != nullptr) {
            stream_->session_closing();
        }
    }
    std::shared_ptr<camera_session> closing;  // destroyed without the lock
    {
        std::lock_guard const lock(session_mutex_);
        closing = std::exchange(session_, nullptr);
    }
}

void camera_link::notify_lost() {
    std::lock_guard const lock(stream_mutex_);
    if (stream_ != nullptr) {
        stream_->camera_lost();
    }
}

}  // namespace openpv
