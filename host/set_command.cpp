#include "set_command.hpp"

#include <cerrno>
#include <chrono>
#include <system_error>

#include "control_address.hpp"
#include "control_message.hpp"
#include "message_line.hpp"

namespace mediagrabber {

namespace {

constexpr std::chrono::seconds longest_transport{5};  ///< of the answer, beside what it takes to apply the change

change_request request_of(set_options const& options) {
    change_request request{.settings = {}, .timeout_s = options.timeout_s, .another_run = options.another_run};
    for (auto const& text : options.settings) {
        request.settings.push_back(parse_setting(text));
    }
    return request;
}

exit_status nobody_there(std::filesystem::path const& path, std::ostream& complaints) {
    complaints << "mediagrabber: no mediagrabber listens at " << path.string() << " ("
               << std::generic_category().message(errno) << "); a recording tells at its start where it listens\n";
    return exit_status::nobody_there;
}

}  // namespace

exit_status set_command(set_options const& options, std::ostream& out, std::ostream& complaints) {
    auto const request = request_of(options);
    auto const path = options.socket.empty() ? default_control_socket(options.instance) : options.socket;
    auto const connection = connect_to(path);
    if (!connection) {
        return nobody_there(path, complaints);
    }
    if (!is_of_this_user(connection)) {
        complaints << "mediagrabber: " << path.string() << " belongs to another user\n";
        return exit_status::usage;
    }
    auto const until = std::chrono::steady_clock::now() + longest_transport +
                       std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                           std::chrono::duration<double>(request.timeout_s));
    write_all(connection, written(request));
    auto const line = read_line(connection, longest_message, until);
    if (!line) {
        complaints << "mediagrabber: no answer from " << path.string() << "\n";
        return exit_status::timed_out;
    }
    auto const answer = read_answer(*line);
    for (auto const& text : answer.lines) {
        (answer.status == exit_status::success ? out : complaints << "mediagrabber: ") << text << '\n';
    }
    return answer.status;
}

}  // namespace mediagrabber
