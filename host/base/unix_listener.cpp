// SPDX-License-Identifier: MIT
#include "base/unix_listener.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "base/unix_socket.hpp"

namespace mediagrabber {

namespace {

constexpr int max_pending_connections = 8;  ///< the backlog of listen()

}  // namespace

void unix_listener::fail(std::string const& why) const {
    throw std::runtime_error(fmt::format("the {} {} cannot be created: {}", name_, path_.string(), why));
}

void unix_listener::fail() const {
    fail(std::generic_category().message(errno));
}

/// A socket that refuses connections has no listening process.
void unix_listener::remove_dead_socket() const {
    struct stat found {};
    if (lstat(path_.c_str(), &found) != 0) {
        return;
    }
    if (!S_ISSOCK(found.st_mode)) {
        fail("the path exists and is not a socket");
    }
    // EAGAIN: a process listens, and its queue is full.
    if (connect_to(path_, type_, std::chrono::milliseconds(0)) || errno == EAGAIN) {
        fail("another mediagrabber listens there");
    }
    if (errno != ECONNREFUSED || unlink(path_.c_str()) != 0) {
        fail();
    }
}

/// Called while the path is still hidden.
void unix_listener::permit_group(std::filesystem::path const& hidden) const {
    if (!group_) {
        return;
    }
    constexpr auto unchanged = static_cast<uid_t>(-1);
    constexpr mode_t for_group = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP;
    if (chown(hidden.c_str(), unchanged, *group_) != 0 || chmod(hidden.c_str(), for_group) != 0) {
        int const error = errno;
        unlink(hidden.c_str());
        fail(fmt::format("it cannot be given to the group {}: {}; is the user of the recording a member?", *group_,
                         std::generic_category().message(error)));
    }
}

unix_listener::unix_listener(std::string name, std::filesystem::path path, int type, std::optional<gid_t> group)
    : name_(std::move(name)), path_(std::move(path)), type_(type), group_(group), pause_(name_) {
    unix_socket(path_);  // reports a path that is too long
    remove_dead_socket();
    // The socket listens before it appears at its path, so that clients can connect as soon as the path exists.
    // Until then it has another path, which fits into an address however long path_ is, because it names the directory
    // by its descriptor. No other socket of this machine has the same number.
    auto const parent = path_.has_parent_path() ? path_.parent_path() : std::filesystem::path(".");
    file_handle const directory(open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    socket_ = file_handle(socket(AF_UNIX, type_ | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    struct stat made {};
    if (!directory || !socket_ || fstat(socket_.get(), &made) != 0) {
        fail();
    }
    std::filesystem::path const hidden(fmt::format("/proc/self/fd/{}/.mediagrabber.{}", directory.get(), made.st_ino));
    sockaddr_un const address = unix_socket(hidden);
    unlink(hidden.c_str());  // left behind by a process that was killed here before the machine started again
    // bind() gives the path the mode of the socket, so that other users cannot connect at any time.
    if (fchmod(socket_.get(), S_IRUSR | S_IWUSR) != 0 ||
        bind(socket_.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        fail();
    }
    permit_group(hidden);
    // link() refuses a path that exists, as bind() does.
    bool const listening = lstat(hidden.c_str(), &made) == 0 && listen(socket_.get(), max_pending_connections) == 0 &&
                           link(hidden.c_str(), path_.c_str()) == 0;
    int const error = errno;
    unlink(hidden.c_str());
    if (!listening) {
        fail(std::generic_category().message(error));
    }
    device_ = made.st_dev;
    inode_ = made.st_ino;
}

unix_listener::~unix_listener() {
    struct stat found {};
    if (lstat(path_.c_str(), &found) == 0 && found.st_dev == device_ && found.st_ino == inode_) {
        unlink(path_.c_str());
    }
}

file_handle unix_listener::accept() {
    file_handle connection(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection) {
        pause_.after(errno);
        return {};
    }
    pause_.succeeded();
    return may_connect(connection, group_) ? std::move(connection) : file_handle();
}

}  // namespace mediagrabber
