#include "unix_listener.hpp"

#include <sys/stat.h>

#include <stdexcept>
#include <system_error>
#include <utility>

#include "control_address.hpp"

namespace mediagrabber {

namespace {

constexpr int most_waiting = 8;

}  // namespace

void unix_listener::fail(std::string const& why) const {
    throw std::runtime_error("the " + name_ + " " + path_.string() + " can't be opened: " + why);
}

void unix_listener::fail() const {
    fail(std::generic_category().message(errno));
}

/// A socket that refuses connections has nobody behind it.
void unix_listener::remove_dead_socket() const {
    struct stat found {};
    if (lstat(path_.c_str(), &found) != 0) {
        return;
    }
    if (!S_ISSOCK(found.st_mode)) {
        fail("there is something else");
    }
    if (connect_to(path_, type_)) {
        fail("another mediagrabber listens there");
    }
    if (errno != ECONNREFUSED || unlink(path_.c_str()) != 0) {
        fail();
    }
}

unix_listener::unix_listener(std::string name, std::filesystem::path path, int type)
    : name_(std::move(name)), path_(std::move(path)), type_(type) {
    sockaddr_un const address = control_address(path_);
    remove_dead_socket();
    socket_ = file_handle(socket(AF_UNIX, type_ | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    struct stat made {};
    // The mode of the socket becomes that of the path, so there is no moment in which others may connect.
    if (!socket_ || fchmod(socket_.get(), S_IRUSR | S_IWUSR) != 0 ||
        bind(socket_.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0 ||
        lstat(path_.c_str(), &made) != 0 || listen(socket_.get(), most_waiting) != 0) {
        fail();
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

file_handle unix_listener::accept() const {
    file_handle connection(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    return connection && is_of_this_user(connection) ? std::move(connection) : file_handle();
}

}  // namespace mediagrabber
