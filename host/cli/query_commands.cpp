// SPDX-License-Identifier: MIT
#include "cli/query_commands.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <future>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace mediagrabber {

namespace {

using nlohmann::json;

constexpr std::chrono::seconds patience{1};  ///< twice what a client can delay the others of its recording

std::vector<found_control_socket> all_sockets() {
    auto found = control_sockets_of_services();
    std::ranges::move(control_sockets_of_user(), std::back_inserter(found));
    std::ranges::stable_sort(found, {}, &found_control_socket::path);
    auto const is_same = [](auto const& one, auto const& other) { return one.path == other.path; };
    found.erase(std::unique(found.begin(), found.end(), is_same), found.end());  // the user may be that of a service
    return found;
}

std::string line_of(found_recording const& one) {
    if (!one.error.empty()) {
        return fmt::format("{:<16} {:<10} {}: {}", "?", "?", one.place(), one.error);
    }
    auto const& counts = one.status.at("counts");
    auto const& rate = one.status.at("rates").at("frames_per_s");
    auto const dropped =
        counts.at("dropped_queue_full").get<std::uint64_t>() + counts.at("dropped_write_error").get<std::uint64_t>();
    auto const& reason = one.status.at("waiting_reason");
    return fmt::format("{:<16} {:<10} {}: {} frames saved, {} dropped{}{}", one.status.at("name").get<std::string>(),
                       one.status.at("state").get<std::string>(), one.place(), counts.at("saved").get<std::uint64_t>(),
                       dropped, rate.is_null() ? "" : fmt::format(", {:.2f} frames/s", rate.get<double>()),
                       reason.is_null() ? "" : fmt::format("; {}", reason.get<std::string>()));
}

found_recording examine(found_control_socket const& socket) {
    found_recording found{.socket = socket};
    auto const connection = connect_to(socket.path, SOCK_STREAM, std::chrono::milliseconds(0));
    if (!connection) {
        int const error = errno;
        found.dead = error == ECONNREFUSED || error == ENOENT;
        found.error = error == EAGAIN ? "does not accept connections" : std::generic_category().message(error);
        return found;
    }
    change_request request;
    request.asks_status = true;
    try {
        auto const answer = ask(connection, request, patience);
        found.status = json::parse(answer.result, nullptr, false);
        if (!found.status.is_object()) {
            throw std::runtime_error(answer.lines.empty() ? "invalid answer" : answer.lines.front());
        }
        line_of(found);  // throws if a value is missing, as with another version
    } catch (std::exception const& error) {
        found.error = error.what();
    }
    return found;
}

json json_of(found_recording const& one) {
    json object{{"socket", one.socket.path.string()},
                {"service", one.socket.service.empty() ? json(nullptr) : json(one.socket.service)}};
    if (one.error.empty()) {
        object["status"] = one.status;
    } else {
        object["error"] = one.error;
    }
    return object;
}

}  // namespace

std::vector<found_recording> find_recordings() {
    std::vector<std::future<found_recording>> waiting;
    for (auto const& one : all_sockets()) {
        waiting.push_back(std::async(std::launch::async, [one] { return examine(one); }));
    }
    std::vector<found_recording> all;
    for (auto& one : waiting) {
        if (auto found = one.get(); !found.dead) {
            all.push_back(std::move(found));
        }
    }
    return all;
}

exit_status status_command(query_options const& options, std::ostream& out, std::ostream& errors) {
    change_request request;
    request.asks_status = true;
    return send_request(control_socket_of(options.recording), request, options.json, out, errors);
}

exit_status get_command(query_options const& options, std::ostream& out, std::ostream& errors) {
    change_request request;
    request.keys = options.keys;
    return send_request(control_socket_of(options.recording), request, options.json, out, errors);
}

exit_status list_command(bool as_json, std::ostream& out, std::ostream& errors) {
    auto const found = find_recordings();
    auto list = json::array();
    for (auto const& one : found) {
        list.push_back(json_of(one));
        if (!as_json) {
            out << line_of(one) << '\n';
        }
    }
    if (as_json) {
        out << list.dump(2, ' ', false, json::error_handler_t::replace) << '\n';
    } else if (found.empty()) {
        errors << "mediagrabber: no recording of this user and no service is running\n";
    }
    bool const complete = std::ranges::all_of(found, [](auto const& one) { return one.error.empty(); });
    return complete ? exit_status::success : exit_status::timed_out;
}

}  // namespace mediagrabber
