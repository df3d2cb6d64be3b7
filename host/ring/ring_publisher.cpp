// SPDX-License-Identifier: MIT
#include "ring/ring_publisher.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/host_log.hpp"
#include "ring/mg_frame_ring.h"

namespace mediagrabber {

namespace {

constexpr std::size_t max_readers = 32;  ///< bounds the system calls per frame

bool notify(file_handle const& connection, mg_ring_message const& message) {
    return send(connection.get(), &message, sizeof message, MSG_DONTWAIT | MSG_NOSIGNAL) ==
           static_cast<ssize_t>(sizeof message);
}

}  // namespace

ring_publisher::ring_publisher(std::filesystem::path path, std::optional<gid_t> group)
    : listener_("ring socket", std::move(path), SOCK_SEQPACKET, group), end_(eventfd(0, EFD_CLOEXEC)) {
    readers_.reserve(max_readers);
    thread_ = std::thread([this] { run(); });
}

ring_publisher::~ring_publisher() {
    eventfd_write(end_.get(), 1);
    thread_.join();
}

void ring_publisher::on_frame(frame_lease const& frame) noexcept {
    if (!frame.has_pixels()) {
        return;
    }
    try {
        std::lock_guard const lock(mutex_);
        publish(frame);
    } catch (std::exception const& error) {
        if (!std::exchange(failed_, true)) {
            log_error(std::string("cannot publish frames in shared memory: ") + error.what());
        }
    }
}

/// Called with the mutex locked. Another buffer pool needs another ring, which is sent to all readers.
void ring_publisher::publish(frame_lease const& frame) {
    if (ring_ == nullptr || !ring_->is_of(*frame.memory())) {
        ring_.reset();
        ring_ = std::make_unique<shared_ring>(frame.memory());
        for (auto const& one : readers_) {
            send_ring(one);
        }
    }
    ring_->enter(frame, ++sequence_);
    for (auto const& one : readers_) {
        notify(one.connection, {.kind = MG_RING_FRAME, .reserved = 0, .value = sequence_});
    }
}

/// A reader whose socket is full is disconnected, because it would keep reading the previous ring.
void ring_publisher::send_ring(reader const& to) const {
    mg_ring_message message{.kind = MG_RING_HERE, .reserved = 0, .value = sequence_};
    std::array<int, 2> const descriptors{ring_->ring_descriptor(), ring_->memory_descriptor()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof descriptors)> control{};
    iovec part{.iov_base = &message, .iov_len = sizeof message};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
    cmsghdr* const rights = CMSG_FIRSTHDR(&header);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof descriptors);
    std::memcpy(CMSG_DATA(rights), descriptors.data(), sizeof descriptors);
    if (sendmsg(to.connection.get(), &header, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
        shutdown(to.connection.get(), SHUT_RDWR);
    }
}

std::uint64_t ring_publisher::overtaken() const {
    std::lock_guard const lock(mutex_);
    std::uint64_t sum = overtaken_before_;
    for (auto const& one : readers_) {
        sum += one.overtaken;
    }
    return sum;
}

/// Only this thread adds and removes readers, so it may read the list without the mutex.
void ring_publisher::run() {
    std::vector<pollfd> watched;
    while (true) {
        watched = {{.fd = end_.get(), .events = POLLIN, .revents = 0},
                   {.fd = listener_.descriptor(), .events = POLLIN, .revents = 0}};
        for (auto const& one : readers_) {
            watched.push_back({.fd = one.connection.get(), .events = POLLIN, .revents = 0});
        }
        if (poll(watched.data(), watched.size(), -1) < 0) {
            continue;
        }
        if (watched[0].revents != 0) {
            return;
        }
        for (std::size_t i = watched.size(); i-- > 2;) {
            if (watched[i].revents != 0 && !receive(readers_[i - 2])) {
                drop(i - 2);
            }
        }
        if (watched[1].revents != 0) {
            accept_one();
        }
    }
}

void ring_publisher::accept_one() {
    auto connection = listener_.accept();
    if (!connection || readers_.size() == max_readers) {
        return;
    }
    std::lock_guard const lock(mutex_);
    readers_.push_back({.connection = std::move(connection)});
    if (ring_ != nullptr) {
        send_ring(readers_.back());
    }
    reader_count_ = readers_.size();
}

/// The reported total is not verified: it only feeds a metric. \return whether the reader is still connected
bool ring_publisher::receive(reader& from) {
    mg_ring_message message{};
    ssize_t const got = recv(from.connection.get(), &message, sizeof message, MSG_DONTWAIT);
    std::lock_guard const lock(mutex_);
    if (got == static_cast<ssize_t>(sizeof message) && message.kind == MG_RING_OVERTAKEN) {
        from.overtaken = message.value;
        return true;
    }
    return got < 0 && errno == EAGAIN;
}

void ring_publisher::drop(std::size_t index) {
    std::lock_guard const lock(mutex_);
    overtaken_before_ += readers_[index].overtaken;
    readers_.erase(readers_.begin() + static_cast<std::ptrdiff_t>(index));
    reader_count_ = readers_.size();
}

}  // namespace mediagrabber
