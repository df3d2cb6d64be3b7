#include "control_message.hpp"

#include <nlohmann/json.hpp>

namespace mediagrabber {

namespace {

using nlohmann::json;

/// A line without a text that is no UTF-8, which nobody could read.
std::string line_of(json const& message) {
    return message.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

[[noreturn]] void refuse(std::string const& why) {
    throw setting_refused(exit_status::usage, "the request is not understood: " + why);
}

}  // namespace

std::string written(change_request const& request) {
    auto texts = json::array();
    for (auto const& one : request.settings) {
        texts.push_back(one.path + "=" + one.value);
    }
    json message{{"set", std::move(texts)}, {"timeout_s", request.timeout_s}};
    if (request.another_run) {
        message["another_run"] = true;
    }
    return line_of(message);
}

std::string written(change_answer const& answer) {
    return line_of({{"status", static_cast<int>(answer.status)}, {"lines", answer.lines}});
}

change_request read_request(std::string const& line) {
    auto const message = json::parse(line, nullptr, false);
    if (!message.is_object() || !message.contains("set") || !message["set"].is_array() || message["set"].empty()) {
        refuse("expected {\"set\": [\"KEY=VALUE\", ...]}");
    }
    change_request request;
    for (auto const& text : message["set"]) {
        if (!text.is_string()) {
            refuse("expected texts in \"set\"");
        }
        request.settings.push_back(parse_setting(text.get<std::string>()));
    }
    if (message.contains("timeout_s")) {
        auto const& timeout = message["timeout_s"];
        if (!timeout.is_number() || !(timeout.get<double>() > 0.0 && timeout.get<double>() <= longest_timeout_s)) {
            refuse("expected seconds in \"timeout_s\", above 0 and at most 3600");
        }
        request.timeout_s = timeout.get<double>();
    }
    if (message.contains("another_run")) {
        if (!message["another_run"].is_boolean()) {
            refuse("expected true or false in \"another_run\"");
        }
        request.another_run = message["another_run"].get<bool>();
    }
    return request;
}

change_answer read_answer(std::string const& line) {
    try {
        auto const message = json::parse(line);
        return {.status = static_cast<exit_status>(message.at("status").get<int>()),
                .lines = message.at("lines").get<std::vector<std::string>>()};
    } catch (json::exception const&) {
        throw std::runtime_error("the answer is not understood; is it a mediagrabber that listens there?");
    }
}

}  // namespace mediagrabber
