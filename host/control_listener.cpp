#include "control_listener.hpp"

#include <sys/stat.h>

#include <stdexcept>
#include <system_error>

#include "control_address.hpp"

namespace mediagrabber {

namespace {

constexpr int most_waiting = 8;

[[noreturn]] void fail(std::filesystem::path const& path, std::string const& why) {
    throw std::runtime_error("the control socket " + path.string() + " can't be opened: " + why);
}

[[noreturn]] void fail(std::filesystem::path const& path) {
    fail(path, std::generic_category().message(errno));
}

/// A socket that refuses connections has nobody behind it.
void remove_dead_socket(std::filesystem::path const& path) {
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0) {
        return;
    }
    if (!S_ISSOCK(found.st_mode)) {
        fail(path, "there is something else");
    }
    if (connect_to(path)) {
        fail(path, "another mediagrabber listens there");
    }
    if (errno != ECONNREFUSED || unlink(path.c_str()) != 0) {
        fail(path);
    }
}

}  // namespace

control_listener::control_listener(std::filesystem::path path) : path_(std::move(path)) {
    sockaddr_un const address = control_address(path_);
    remove_dead_socket(path_);
    socket_ = file_handle(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    struct stat made {};
    // The mode of the socket becomes that of the path, so there is no moment in which others may connect.
    if (!socket_ || fchmod(socket_.get(), S_IRUSR | S_IWUSR) != 0 ||
        bind(socket_.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0 ||
        lstat(path_.c_str(), &made) != 0 || listen(socket_.get(), most_waiting) != 0) {
        fail(path_);
    }
    device_ = made.st_dev;
    inode_ = made.st_ino;
}

control_listener::~control_listener() {
    struct stat found {};
    if (lstat(path_.c_str(), &found) == 0 && found.st_dev == device_ && found.st_ino == inode_) {
        unlink(path_.c_str());
    }
}

file_handle control_listener::accept() const {
    file_handle connection(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    return connection && is_of_this_user(connection) ? std::move(connection) : file_handle();
}

}  // namespace mediagrabber
