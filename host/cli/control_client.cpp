// SPDX-License-Identifier: MIT
#include "cli/control_client.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <system_error>

#include "base/message_line.hpp"
#include "base/unix_socket.hpp"

namespace mediagrabber {

namespace {

constexpr std::chrono::seconds transport_timeout{5};  ///< for request and answer, beyond the timeout of the change

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

}  // namespace

std::filesystem::path control_socket_of(recording_address const& address) {
    if (!address.socket.empty()) {
        return address.socket;
    }
    if (!address.service.empty()) {
        try {
            return service_control_socket(address.service);
        } catch (std::runtime_error const& error) {
            throw setting_refused(exit_status::no_recording, error.what());
        }
    }
    auto const usual = default_control_socket(address.instance);
    if (!usual) {
        throw setting_refused(exit_status::no_recording,
                              "this user has no runtime directory ($XDG_RUNTIME_DIR), so recordings have no default"
                              " control socket; use --socket");
    }
    return *usual;
}

exit_status send_request(std::filesystem::path const& socket, change_request const& request, std::ostream& out,
                         std::ostream& errors) {
    auto const connection = connect_to(socket, SOCK_STREAM, transport_timeout);
    if (!connection) {
        return not_connected(socket, errno, errors);
    }
    auto const until = std::chrono::steady_clock::now() + transport_timeout +
                       std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                           std::chrono::duration<double>(request.timeout_s));
    write_all(connection, written(request));
    auto const line = read_line(connection, max_message, until);
    if (!line) {
        errors << "mediagrabber: no answer from " << socket.string()
               << "; it answers its own user, root and the members of control.group\n";
        return exit_status::timed_out;
    }
    auto const answer = read_answer(*line);
    for (auto const& text : answer.lines) {
        (answer.status == exit_status::success ? out : errors << "mediagrabber: ") << text << '\n';
    }
    return answer.status;
}

}  // namespace mediagrabber
