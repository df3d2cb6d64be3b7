// SPDX-License-Identifier: MIT
#include "control/control_client.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <system_error>
#include <vector>

#include "base/message_line.hpp"
#include "base/unix_socket.hpp"

namespace mediagrabber {

namespace {

constexpr std::chrono::seconds transport_timeout{5};  ///< for request and answer, beyond the timeout of the change
constexpr char no_runtime_directory[] =
    "this user has no runtime directory ($XDG_RUNTIME_DIR), so recordings have no default control socket; use --socket"
    " or --service";

exit_status not_connected(std::filesystem::path const& path, int error, std::ostream& errors) {
    if (error == EAGAIN) {
        errors << fmt::format("mediagrabber: the process at {} does not accept connections\n", path.string());
        return exit_status::timed_out;
    }
    errors << fmt::format(
        "mediagrabber: no mediagrabber listens at {} ({}); a recording logs its control socket at start\n",
        path.string(), std::generic_category().message(error));
    return exit_status::no_recording;
}

[[noreturn]] void not_found(std::string const& why) {
    throw setting_refused(exit_status::no_recording, why);
}

/// Whether a process listens, also if its queue is full at present.
bool is_alive(found_control_socket const& one) {
    return connect_to(one.path, SOCK_STREAM, std::chrono::milliseconds(0)) || errno == EAGAIN;
}

std::filesystem::path only_recording() {
    std::vector<std::string> alive;
    for (auto const& one : control_sockets_of_user()) {
        if (is_alive(one)) {
            alive.push_back(one.path.string());
        }
    }
    if (alive.empty()) {
        not_found(
            "no recording of this user is running; --service NAME or --socket PATH names another one, `mediagrabber"
            " list` lists all");
    }
    if (alive.size() > 1) {
        not_found(fmt::format("{} recordings of this user are running: choose one with --socket or --name: {}",
                              alive.size(), fmt::join(alive, ", ")));
    }
    return alive.front();
}

}  // namespace

std::filesystem::path control_socket_of(recording_address const& address) {
    if (!address.socket.empty()) {
        return address.socket;
    }
    if (!address.service.empty()) {
        try {
            return service_control_socket(address.service);
        } catch (std::runtime_error const& error) {
            not_found(error.what());
        }
    }
    auto const usual = default_control_socket(address.name);
    if (!usual) {
        not_found(no_runtime_directory);
    }
    return address.name.empty() ? only_recording() : *usual;
}

change_answer ask(file_handle const& connection, change_request const& request, std::chrono::milliseconds patience) {
    auto const change = std::chrono::duration<double>(request.is_change() ? request.timeout_s : 0.0);
    auto const until = std::chrono::steady_clock::now() + patience +
                       std::chrono::duration_cast<std::chrono::steady_clock::duration>(change);
    write_all(connection, written(request));
    auto const line = read_line(connection, max_message, until);
    if (!line) {
        throw setting_refused(exit_status::timed_out,
                              "no answer; a recording answers its own user, root and the members of control.group");
    }
    return read_answer(*line);
}

exit_status send_request(std::filesystem::path const& socket, change_request const& request, bool json,
                         std::ostream& out, std::ostream& errors) {
    auto const connection = connect_to(socket, SOCK_STREAM, transport_timeout);
    if (!connection) {
        return not_connected(socket, errno, errors);
    }
    change_answer answer;
    try {
        answer = ask(connection, request, transport_timeout);
    } catch (setting_refused const& refused) {
        errors << fmt::format("mediagrabber: {}: {}\n", socket.string(), refused.what());
        return refused.status();
    }
    if (answer.status == exit_status::success && json) {
        out << answer.result << '\n';
        return answer.status;
    }
    for (auto const& text : answer.lines) {
        (answer.status == exit_status::success ? out : errors << "mediagrabber: ") << text << '\n';
    }
    return answer.status;
}

}  // namespace mediagrabber
