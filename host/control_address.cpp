#include "control_address.hpp"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

namespace mediagrabber {

std::filesystem::path default_control_socket(std::uint32_t instance) {
    std::string const number = std::to_string(instance);
    char const* const runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && *runtime != '\0') {
        return std::filesystem::path(runtime) / ("mediagrabber." + number + ".sock");
    }
    if (geteuid() == 0) {
        return "/run/mediagrabber." + number + ".sock";
    }
    return "/tmp/mediagrabber-" + std::to_string(geteuid()) + "." + number + ".sock";
}

sockaddr_un control_address(std::filesystem::path const& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.native().size() >= sizeof address.sun_path) {
        throw std::runtime_error(path.string() + ": too long for a socket, which may have " +
                                 std::to_string(sizeof address.sun_path - 1) + " bytes");
    }
    std::memcpy(address.sun_path, path.c_str(), path.native().size());
    return address;
}

file_handle connect_to(std::filesystem::path const& path, int type) {
    sockaddr_un const address = control_address(path);
    file_handle connection(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    bool const connected =
        connection && connect(connection.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
    return connected ? std::move(connection) : file_handle();
}

bool is_of_this_user(file_handle const& connection) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           (peer.uid == geteuid() || peer.uid == 0);
}

}  // namespace mediagrabber
