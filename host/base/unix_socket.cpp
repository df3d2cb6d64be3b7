// SPDX-License-Identifier: MIT
#include "base/unix_socket.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

#include "base/failures.hpp"

namespace mediagrabber {

namespace {

namespace fs = std::filesystem;

/// The directory of this user's sockets; empty if there is none.
fs::path runtime_directory() {
    char const* const chosen = std::getenv("XDG_RUNTIME_DIR");
    if (chosen != nullptr && *chosen != '\0') {
        return chosen;
    }
    if (geteuid() == 0) {
        return "/run";
    }
    fs::path const usual = fmt::format("/run/user/{}", geteuid());
    struct stat found {};
    bool const own = stat(usual.c_str(), &found) == 0 && S_ISDIR(found.st_mode) && found.st_uid == geteuid();
    return own ? usual : fs::path();
}

constexpr std::string_view socket_prefix = "mediagrabber.";
constexpr std::string_view socket_suffix = ".sock";
constexpr std::string_view service_prefix = "mediagrabber-";  ///< of runtime directories

std::vector<found_control_socket> sockets_in(fs::path const& directory, std::string const& service,
                                             std::error_code& error) {
    std::vector<found_control_socket> found;
    for (fs::directory_iterator entry(directory, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        auto const file = entry->path().filename().string();
        if (file.starts_with(socket_prefix) && file.ends_with(socket_suffix)) {
            found.push_back({.path = entry->path(), .service = service});
        }
    }
    std::ranges::sort(found, {}, &found_control_socket::path);
    return found;
}

/// The supplementary groups of a peer; empty if they cannot be read.
std::vector<gid_t> groups_of_peer(file_handle const& connection) {
    std::vector<gid_t> groups(64);
    while (true) {
        auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        if (getsockopt(connection.get(), SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) == 0) {
            groups.resize(size / sizeof(gid_t));
            return groups;
        }
        if (errno != ERANGE) {
            return {};
        }
        groups.resize(size / sizeof(gid_t));
    }
}

}  // namespace

std::optional<fs::path> default_control_socket(std::string const& name) {
    auto const directory = runtime_directory();
    return directory.empty() ? std::nullopt
                             : std::optional(directory / fmt::format("{}{}{}", socket_prefix, name, socket_suffix));
}

std::vector<found_control_socket> control_sockets_of_user() {
    auto const directory = runtime_directory();
    std::error_code unreadable;
    return directory.empty() ? std::vector<found_control_socket>() : sockets_in(directory, "", unreadable);
}

std::vector<found_control_socket> control_sockets_of_services(fs::path const& runtime) {
    std::vector<found_control_socket> found;
    std::error_code error;
    for (fs::directory_iterator entry(runtime, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        auto const directory = entry->path().filename().string();
        if (directory.starts_with(service_prefix)) {
            std::error_code unreadable;
            std::ranges::move(sockets_in(entry->path(), directory.substr(service_prefix.size()), unreadable),
                              std::back_inserter(found));
        }
    }
    std::ranges::sort(found, {}, &found_control_socket::path);
    return found;
}

/// The name in the path is camera.name, which a client does not know.
fs::path service_control_socket(std::string const& name, fs::path const& runtime) {
    auto const directory = runtime / fmt::format("{}{}", service_prefix, name);
    std::error_code error;
    auto const found = sockets_in(directory, name, error);
    if (found.size() != 1) {
        throw std::runtime_error(
            fmt::format("the service mediagrabber@{} {} in {}{}", name,
                        found.empty() ? "has no control socket" : "has more than one control socket",
                        directory.string(), error ? ": " + error.message() : "; --socket names another one"));
    }
    return found.front().path;
}

sockaddr_un unix_socket(fs::path const& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.native().size() >= sizeof address.sun_path) {
        throw usage_error(fmt::format("{}: too long for a socket path, maximum {} bytes", path.string(),
                                      sizeof address.sun_path - 1));
    }
    std::memcpy(address.sun_path, path.c_str(), path.native().size());
    return address;
}

/// A blocking connect() to a listener with a full queue waits without a limit unless SO_SNDTIMEO is set.
file_handle connect_to(fs::path const& path, int type, std::chrono::milliseconds patience) {
    constexpr long ms_per_s = 1000;
    constexpr long us_per_ms = 1000;
    bool const wait = patience.count() > 0;
    sockaddr_un const address = unix_socket(path);
    file_handle connection(socket(AF_UNIX, type | SOCK_CLOEXEC | (wait ? 0 : SOCK_NONBLOCK), 0));
    timeval const limit{.tv_sec = patience.count() / ms_per_s, .tv_usec = patience.count() % ms_per_s * us_per_ms};
    if (connection && wait) {
        setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    }
    bool const connected =
        connection && connect(connection.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
    return connected ? std::move(connection) : file_handle();
}

bool may_connect(file_handle const& connection, std::optional<gid_t> group) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return false;
    }
    if (peer.uid == geteuid() || peer.uid == 0) {
        return true;
    }
    if (!group) {
        return false;
    }
    auto const others = groups_of_peer(connection);
    return peer.gid == *group || std::ranges::find(others, *group) != others.end();
}

std::optional<gid_t> group_number(std::string const& name) {
    gid_t number = 0;
    auto const [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error == std::errc() && end == name.data() + name.size()) {
        return number;
    }
    std::vector<char> texts(1024);
    group entry{};
    group* found = nullptr;
    while (getgrnam_r(name.c_str(), &entry, texts.data(), texts.size(), &found) == ERANGE) {
        texts.resize(texts.size() * 2);
    }
    return found == nullptr ? std::nullopt : std::optional(found->gr_gid);
}

}  // namespace mediagrabber
