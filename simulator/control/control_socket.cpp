// SPDX-License-Identifier: MIT
#include "control/control_socket.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "faults/fault_file.hpp"

namespace camsim {

namespace {

constexpr int max_backlog = 8;  // connections that wait to be accepted

[[noreturn]] void fail(std::filesystem::path const& path, std::string const& why) {
    throw std::runtime_error("the control socket " + path.string() + " cannot be created: " + why);
}

sockaddr_un address_of(std::filesystem::path const& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string const& name = path.native();
    if (name.empty() || name.size() >= sizeof(address.sun_path)) {
        fail(path, "its path must have 1 to " + std::to_string(sizeof(address.sun_path) - 1) + " bytes");
    }
    std::memcpy(address.sun_path, name.data(), name.size());
    return address;
}

file_descriptor unix_socket() {
    return file_descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

/// Removes a socket file that a process has left behind: connections to it are refused.
void remove_dead_socket(std::filesystem::path const& path, sockaddr_un const& address) {
    if (!std::filesystem::is_socket(path)) {
        return;  // link() reports what else is there
    }
    file_descriptor const probe = unix_socket();
    bool const alive = ::connect(probe.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
    if (!alive && errno == ECONNREFUSED) {
        ::unlink(path.c_str());
    }
}

/// The socket listens before it appears at its path, so that clients can connect as soon as the path exists.
file_descriptor listen_at(std::filesystem::path const& path) {
    remove_dead_socket(path, address_of(path));
    std::filesystem::path const hidden = path.native() + '.' + std::to_string(::getpid());
    sockaddr_un const address = address_of(hidden);
    ::unlink(hidden.c_str());  // left behind by a process that was killed here and had the same number
    file_descriptor listener = unix_socket();
    // bind() gives the path the mode of the socket, so other users cannot connect at any moment.
    if (!listener || ::fchmod(listener.get(), S_IRUSR | S_IWUSR) != 0 ||
        ::bind(listener.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        fail(path, std::generic_category().message(errno));
    }
    // link() refuses a path that exists, as bind() does.
    bool const listening = ::listen(listener.get(), max_backlog) == 0 && ::link(hidden.c_str(), path.c_str()) == 0;
    int const error = errno;
    ::unlink(hidden.c_str());
    if (!listening) {
        fail(path, std::generic_category().message(error));
    }
    return listener;
}

/// One line of TOML: `name = value`.
std::string line_of(char const* name, auto const& value) {
    std::ostringstream text;
    text << name << " = " << value << '\n';
    return text.str();
}

std::string error_line(std::string what) {
    std::ranges::replace(what, '\n', ';');
    return line_of("error", toml::value<std::string>(std::move(what)));
}

std::string list_line(std::vector<active_fault> const& all) {
    toml::array list;
    for (active_fault const& one : all) {
        toml::table entry{{"fault", one.number},
                          {"kind", definition_of(one.what.kind).name},
                          {"hits", static_cast<std::int64_t>(one.hits)}};
        entry.is_inline(true);
        list.push_back(std::move(entry));
    }
    std::string text = line_of("faults", list);
    std::ranges::replace(text.begin(), text.end() - 1, '\n', ' ');  // toml++ breaks long lists into lines
    return text;
}

}  // namespace

std::string handle_control_request(std::string const& line, fault_timeline& timeline, active_faults const& faults,
                                   std::vector<std::string> const& features,
                                   std::function<void(bool)> const& set_line1) {
    control_request request;
    try {
        request = parse_control_request(line, features);
    } catch (fault_text_error const& error) {
        return error_line(error.what());
    }
    if (auto const* const start = std::get_if<scheduled_fault>(&request.what)) {
        return line_of("fault", timeline.add(*start, std::chrono::steady_clock::now()));
    }
    if (auto const* const stop = std::get_if<control_request::stop>(&request.what)) {
        auto const hits = stop->number == 0 ? std::optional(timeline.cancel_all()) : timeline.cancel(stop->number);
        return hits ? line_of("hits", *hits)
                    : error_line("fault " + std::to_string(stop->number) + " does not exist or has ended");
    }
    if (auto const* const input = std::get_if<control_request::input_line>(&request.what)) {
        set_line1(input->high);
        return line_of("line1", input->high ? "true" : "false");
    }
    return list_line(faults.list());
}

control_socket::control_socket(std::filesystem::path path, handler handle)
    : path_(std::move(path)),
      handle_(std::move(handle)),
      listener_(listen_at(path_)),
      wake_(::eventfd(0, EFD_CLOEXEC)) {
    if (!wake_) {
        throw std::system_error(errno, std::generic_category(), "cannot create the control socket's eventfd");
    }
    thread_ = std::jthread([this](std::stop_token const& stop) { run(stop); });
}

control_socket::~control_socket() {
    thread_.request_stop();
    ::eventfd_write(wake_.get(), 1);
    thread_ = {};
    ::unlink(path_.c_str());
}

void control_socket::run(std::stop_token const& stop) {
    while (!stop.stop_requested()) {
        std::vector<pollfd> watched{{wake_.get(), POLLIN, 0}, {listener_.get(), POLLIN, 0}};
        for (connection const& one : connections_) {
            watched.push_back({one.socket.get(), POLLIN, 0});
        }
        ::poll(watched.data(), watched.size(), -1);
        auto found = watched.begin() + 2;
        std::erase_if(connections_, [&](connection& one) { return (found++)->revents != 0 && !serve(one); });
        if (watched[1].revents != 0) {
            accept_one();
        }
    }
}

void control_socket::accept_one() {
    file_descriptor socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (socket) {
        connections_.push_back({std::move(socket)});
    }
}

/// \return whether the connection stays open
bool control_socket::serve(connection& one) {
    std::array<char, max_request_bytes> part{};
    ssize_t const got = ::recv(one.socket.get(), part.data(), part.size(), 0);
    if (got <= 0) {
        return got < 0 && (errno == EAGAIN || errno == EINTR);
    }
    one.received.append(part.data(), static_cast<std::size_t>(got));
    for (std::size_t end = one.received.find('\n'); end != std::string::npos; end = one.received.find('\n')) {
        std::string const response = handle_(one.received.substr(0, end));
        one.received.erase(0, end + 1);
        if (::send(one.socket.get(), response.data(), response.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(response.size())) {
            return false;
        }
    }
    return one.received.size() <= max_request_bytes;
}

}  // namespace camsim
