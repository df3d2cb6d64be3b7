// SPDX-License-Identifier: MIT
#include "cli/overview_command.hpp"

#include <csignal>
#include <nlohmann/json.hpp>

#include "base/failures.hpp"
#include "base/host_log.hpp"
#include "cli/query_commands.hpp"
#include "control/control_client.hpp"
#include "overview/overview.hpp"
#include "web/access_token.hpp"
#include "web/web_server.hpp"

namespace mediagrabber {

namespace {

using nlohmann::json;

constexpr std::chrono::seconds patience{1};  ///< for the values of one recording

std::vector<watched_page> pages_of(overview_options const& options) {
    std::vector<watched_page> pages;
    if (!options.machines.empty()) {
        pages = read_machine_list(options.machines);
    }
    for (auto const& one : options.pages) {
        pages.push_back(parse_page(one));
    }
    check_machines(pages);
    return pages;
}

web_configuration web_of(overview_options const& options) {
    web_configuration values;
    values.address = options.web;
    if (!options.web_token.empty()) {
        values.token_file = options.web_token.string();
    }
    try {
        check_web_values(values);
    } catch (std::runtime_error const& error) {
        throw usage_error(std::string("--web ") + error.what());
    }
    return values;
}

/// The configured values of a recording that has a page: its token file and where browsers find it.
void ask_values(local_recording& into, std::filesystem::path const& socket) {
    change_request request;
    request.keys = {"web.token_file", "web.public_origin"};
    auto const values =
        json::parse(ask(connect_to(socket, SOCK_STREAM, std::chrono::milliseconds(0)), request, patience).result);
    auto const& file = values.at("web.token_file").at("configured");
    auto const& origin = values.at("web.public_origin").at("configured");
    if (file.is_string()) {
        into.token_file = file.get<std::string>();
    }
    if (origin.is_string()) {
        into.link = parse_page(origin.get<std::string>()).url;
    }
}

local_recording local(found_recording const& found) {
    local_recording one{.place = found.place(), .error = found.error};
    if (!one.error.empty()) {
        return one;
    }
    try {
        one.status = found.status.dump(-1, ' ', false, json::error_handler_t::replace);
        if (auto const page = found.status.find("page"); page != found.status.end() && page->is_string()) {
            one.page = parse_page(page->get<std::string>()).url;
            ask_values(one, found.socket.path);
        }
    } catch (std::exception const& error) {
        one.error = error.what();
    }
    return one;
}

std::vector<local_recording> find_local() {
    std::vector<local_recording> all;
    for (auto const& one : find_recordings()) {
        all.push_back(local(one));
    }
    return all;
}

}  // namespace

exit_status overview_command(overview_options const& options) {
    auto const pages = pages_of(options);
    auto const values = web_of(options);
    sigset_t ends{};
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);  // before the first thread, which inherits it
    log_opened const log;
    try {
        overview shown(pages, find_local);
        web_server server(values, shown.pages());
        server.open({});
        int number = 0;
        sigwait(&ends, &number);
        server.close();
    } catch (std::exception const& error) {
        throw unavailable_error(error.what());
    }
    return exit_status::success;
}

}  // namespace mediagrabber
