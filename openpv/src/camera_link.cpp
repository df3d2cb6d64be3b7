#include "camera_link.hpp"

#include <map>
#include <utility>

namespace openpv {
namespace {

/// The links in use, by connection ID.
class link_register {
public:
    std::shared_ptr<camera_link> find_or_make(connection_id const& id) {
        std::lock_guard const lock(mutex_);
        std::weak_ptr<camera_link>& place = links_[to_text(id)];
        auto link = place.lock();
        if (!link) {
            link = std::make_shared<camera_link>(id);
            place = link;
        }
        return link;
    }

private:
    std::mutex mutex_;
    std::map<std::string, std::weak_ptr<camera_link>> links_;
};

}  // namespace

std::shared_ptr<camera_link> camera_link::to(connection_id const& id) {
    static auto& links = *new link_register;  // never destroyed: it may be asked until the program's very end
    return links.find_or_make(id);
}

camera_link::~camera_link() {
    close_session();
}

PvResult camera_link::connect_device() {
    std::lock_guard const lock(operation_);
    if (device_connected_ && alive()) {
        return {PvResult::Code::GENERIC_ERROR,
                (to_text(id_) + " cannot be connected: this process has connected the camera already.").c_str()};
    }
    if (!alive()) {
        PvResult const opened = open_session();
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
                "The stream cannot be opened: this process has opened the camera's stream already."};
    }
    if (!alive()) {
        PvResult const opened = open_session();
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

PvResult camera_link::tell_streaming_starts() {
    std::lock_guard const lock(stream_mutex_);
    return stream_ != nullptr ? stream_->streaming_starts() : PvResult();
}

void camera_link::tell_streaming_ends() {
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

PvResult camera_link::open_session() {
    close_session();
    packet_size_chosen_ = false;
    PvResult result;
    std::shared_ptr<camera_session> opened = camera_session::open(
        id_, [this] { tell_lost(); }, result);
    std::lock_guard const lock(session_mutex_);
    session_ = std::move(opened);
    return result;
}

/// The stream lets go of the session first. A parameter access that is still under way on another thread keeps it until
/// it has ended.
void camera_link::close_session() {
    {
        std::lock_guard const lock(stream_mutex_);
        if (stream_ != nullptr) {
            stream_->session_closes();
        }
    }
    std::unique_lock lock(session_mutex_);
    auto const closing = std::exchange(session_, nullptr);
    lock.unlock();
}

void camera_link::tell_lost() {
    std::lock_guard const lock(stream_mutex_);
    if (stream_ != nullptr) {
        stream_->camera_lost();
    }
}

}  // namespace openpv
