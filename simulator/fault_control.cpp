#include "fault_control.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "fault_file.hpp"

namespace camsim {

namespace {

constexpr int most_waiting = 8;

[[noreturn]] void fail(std::filesystem::path const& path, std::string const& why) {
    throw std::runtime_error("the control socket " + path.string() + " can't be opened: " + why);
}

sockaddr_un address_of(std::filesystem::path const& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string const& name = path.native();
    if (name.empty() || name.size() >= sizeof(address.sun_path)) {
        fail(path, "a path of 1 to " + std::to_string(sizeof(address.sun_path) - 1) + " bytes is possible");
    }
    std::memcpy(address.sun_path, name.data(), name.size());
    return address;
}

file_descriptor unix_socket() {
    return file_descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

/// A socket that refuses connections has nobody behind it.
void remove_dead_socket(std::filesystem::path const& path, sockaddr_un const& address) {
    if (!std::filesystem::is_socket(path)) {
        return;  // binding tells what else is there
    }
    file_descriptor const probe = unix_socket();
    bool const alive = ::connect(probe.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
    if (!alive && errno == ECONNREFUSED) {
        ::unlink(path.c_str());
    }
}

file_descriptor listen_at(std::filesystem::path const& path) {
    sockaddr_un const address = address_of(path);
    remove_dead_socket(path, address);
    file_descriptor listener = unix_socket();
    // The mode of the socket becomes that of the path, so there is no moment in which others may connect.
    if (!listener || ::fchmod(listener.get(), S_IRUSR | S_IWUSR) != 0 ||
        ::bind(listener.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0 ||
        ::listen(listener.get(), most_waiting) != 0) {
        fail(path, std::generic_category().message(errno));
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
                          {"kind", table_entry(one.what.kind).name},
                          {"hits", static_cast<std::int64_t>(one.hits)}};
        entry.is_inline(true);
        list.push_back(std::move(entry));
    }
    std::string text = line_of("faults", list);
    std::ranges::replace(text.begin(), text.end() - 1, '\n', ' ');  // a long list is broken into lines
    return text;
}

}  // namespace

/// Answers `fault = NUMBER` to a start, `hits = COUNT` to a stop, `faults = [...]` to a list, or `error = "..."`.
std::string answer_fault_request(std::string const& line, fault_timeline& timeline, active_faults const& faults,
                                 std::vector<std::string> const& features) {
    fault_request request;
    try {
        request = parse_fault_request(line, features);
    } catch (fault_text_error const& error) {
        return error_line(error.what());
    }
    if (auto const* const start = std::get_if<scheduled_fault>(&request.what)) {
        return line_of("fault", timeline.add(*start, std::chrono::steady_clock::now()));
    }
    if (auto const* const stop = std::get_if<fault_request::stop>(&request.what)) {
        auto const hits = stop->number == 0 ? std::optional(timeline.end_all()) : timeline.end(stop->number);
        return hits ? line_of("hits", *hits)
                    : error_line("there is no fault " + std::to_string(stop->number) + ", or it is over");
    }
    return list_line(faults.list());
}

/// \throws std::runtime_error with a message to act on, when it can't listen there
fault_control::fault_control(std::filesystem::path path, answerer answer)
    : path_(std::move(path)),
      answer_(std::move(answer)),
      listener_(listen_at(path_)),
      wake_(::eventfd(0, EFD_CLOEXEC)) {
    if (!wake_) {
        throw std::system_error(errno, std::generic_category(), "cannot make the control socket's wake-up event");
    }
    thread_ = std::jthread([this](std::stop_token const& stop) { run(stop); });
}

fault_control::~fault_control() {
    thread_.request_stop();
    ::eventfd_write(wake_.get(), 1);
    thread_ = {};
    ::unlink(path_.c_str());
}

void fault_control::run(std::stop_token const& stop) {
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

void fault_control::accept_one() {
    file_descriptor socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (socket) {
        connections_.push_back({std::move(socket)});
    }
}

/// \return whether the connection stays: who asks too long a line, or takes no answer, is served no more
bool fault_control::serve(connection& one) {
    std::array<char, longest_request> part{};
    ssize_t const got = ::recv(one.socket.get(), part.data(), part.size(), 0);
    if (got <= 0) {
        return got < 0 && (errno == EAGAIN || errno == EINTR);
    }
    one.asked.append(part.data(), static_cast<std::size_t>(got));
    for (std::size_t end = one.asked.find('\n'); end != std::string::npos; end = one.asked.find('\n')) {
        std::string const answer = answer_(one.asked.substr(0, end));
        one.asked.erase(0, end + 1);
        if (::send(one.socket.get(), answer.data(), answer.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(answer.size())) {
            return false;
        }
    }
    return one.asked.size() <= longest_request;
}

}  // namespace camsim
