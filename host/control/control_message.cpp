// SPDX-License-Identifier: MIT
#include "control/control_message.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>

namespace mediagrabber {

namespace {

using nlohmann::json;

/// Replaces invalid UTF-8, which JSON does not permit.
std::string line_of(json const& message) {
    return message.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

[[noreturn]] void refuse(std::string const& why) {
    throw setting_refused(exit_status::usage, fmt::format("invalid request: {}", why));
}

change_request read_signal(json const& message) {
    change_request request;
    if (auto const& name = message.at("signal"); name.is_string()) {
        request.signal = name.get<std::string>();
    }
    if (request.signal.empty()) {
        refuse("expected a request in \"signal\"");
    }
    if (message.contains("event")) {
        auto const& event = message["event"];
        if (request.signal != "trigger" || !event.is_string() || !is_event(event.get<std::string>())) {
            refuse(fmt::format("expected a \"trigger\" with {} in \"event\"", event_form));
        }
        request.event = event.get<std::string>();
    }
    return request;
}

change_request read_get(json const& keys) {
    change_request request;
    if (keys.is_array() && std::ranges::all_of(keys, [](json const& key) { return key.is_string(); })) {
        request.keys = keys.get<std::vector<std::string>>();
    }
    if (request.keys.empty()) {
        refuse("expected keys in \"get\"");
    }
    return request;
}

change_request read_status(json const& value) {
    if (value != true) {
        refuse("expected true in \"status\"");
    }
    change_request request;
    request.asks_status = true;
    return request;
}

}  // namespace

bool is_event(std::string const& text) {
    static std::regex const form(R"(\d{4}(0[1-9]|1[0-2])(0[1-9]|[12]\d|3[01])T([01]\d|2[0-3])[0-5]\d([0-5]\d|60))"
                                 R"((\.\d{3})?Z-[A-Za-z0-9][A-Za-z0-9._-]{0,99})");
    constexpr std::size_t max_event = 150;  // std::regex needs stack for each character
    return text.size() <= max_event && std::regex_match(text, form);
}

std::string written(change_request const& request) {
    if (!request.signal.empty()) {
        json message{{"signal", request.signal}};
        if (!request.event.empty()) {
            message["event"] = request.event;
        }
        return line_of(message);
    }
    if (!request.keys.empty()) {
        return line_of({{"get", request.keys}});
    }
    if (request.asks_status) {
        return line_of({{"status", true}});
    }
    auto texts = json::array();
    for (auto const& one : request.settings) {
        texts.push_back(fmt::format("{}={}", one.path, one.value));
    }
    json message{{"set", std::move(texts)}, {"timeout_s", request.timeout_s}};
    if (request.restart) {
        message["restart"] = true;
    }
    return line_of(message);
}

std::string written(change_answer const& answer) {
    json message{{"status", static_cast<int>(answer.status)}, {"lines", answer.lines}};
    if (!answer.result.empty()) {
        message["result"] = json::parse(answer.result);
    }
    return line_of(message);
}

change_request read_request(std::string const& line) {
    auto const message = json::parse(line, nullptr, false);
    if (message.is_object() && message.contains("signal") && message.size() == (message.contains("event") ? 2 : 1)) {
        return read_signal(message);
    }
    if (message.is_object() && message.size() == 1) {
        if (message.contains("get")) {
            return read_get(message["get"]);
        }
        if (message.contains("status")) {
            return read_status(message["status"]);
        }
    }
    if (!message.is_object() || !message.contains("set") || !message["set"].is_array() || message["set"].empty()) {
        refuse(
            "expected {\"set\": [\"KEY=VALUE\", ...]}, {\"get\": [\"KEY\", ...]}, {\"signal\": \"REQUEST\"} or "
            "{\"status\":"
            " true}");
    }
    change_request request;
    for (auto const& text : message["set"]) {
        if (!text.is_string()) {
            refuse("expected strings in \"set\"");
        }
        request.settings.push_back(parse_setting(text.get<std::string>()));
    }
    if (message.contains("timeout_s")) {
        auto const& timeout = message["timeout_s"];
        if (!timeout.is_number() || !(timeout.get<double>() > 0.0 && timeout.get<double>() <= max_timeout_s)) {
            refuse("expected seconds in \"timeout_s\", above 0 and at most 3600");
        }
        request.timeout_s = timeout.get<double>();
    }
    if (message.contains("restart")) {
        if (!message["restart"].is_boolean()) {
            refuse("expected true or false in \"restart\"");
        }
        request.restart = message["restart"].get<bool>();
    }
    return request;
}

change_answer read_answer(std::string const& line) {
    try {
        auto const message = json::parse(line);
        return {.status = static_cast<exit_status>(message.at("status").get<int>()),
                .lines = message.at("lines").get<std::vector<std::string>>(),
                .result = message.contains("result") ? message["result"].dump(2) : std::string()};
    } catch (json::exception const&) {
        throw std::runtime_error("invalid answer; is the process at the socket a mediagrabber?");
    }
}

}  // namespace mediagrabber
