// SPDX-License-Identifier: MIT
#include "control/value_query.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "config/configuration_json.hpp"
#include "config/configuration_schema.hpp"
#include "config/renamed_keys.hpp"

namespace mediagrabber {

namespace {

using json = nlohmann::ordered_json;

std::optional<double> actual_value(std::string const& path, known_values const& camera) {
    if (path == "gain.db") {
        return camera.latest.gain_db;
    }
    if (path == "exposure.time_us") {
        return camera.latest.exposure_us;
    }
    auto const found = std::ranges::find(camera.delivery, path, &delivered_value::key);
    return found == camera.delivery.end() ? std::nullopt : found->actual;
}

/// "gain.db = 6    # the camera has 5.98"
std::string line_of(configuration_key const& key, std::string const& shown, std::optional<double> actual) {
    std::string const assignment = shown.empty() ? fmt::format("# {} is not configured: {}", key.path, key.default_text)
                                                 : fmt::format("{} = {}", key.path, shown);
    return actual ? fmt::format("{}{} the camera has {:.6g}", assignment, shown.empty() ? ";" : "  #", *actual)
                  : assignment;
}

void add_lines(change_answer& answer, json& result, configuration const& active) {
    auto tables = json::array();
    for (auto const& line : active.lines) {
        tables.push_back(json_of_line(line));
        std::string text;
        for (auto const& key : io_line_schema()) {
            text += fmt::format("{}{} = {}", text.empty() ? "" : ", ", key.path.substr(key.path.find('.') + 1),
                                key.show(line));
        }
        answer.lines.push_back(fmt::format("line = {{{}}}", text));
    }
    if (active.lines.empty()) {
        answer.lines.emplace_back("# line is not configured");
    }
    result["line"] = {{"configured", std::move(tables)}};
}

}  // namespace

change_answer read_values(std::vector<std::string> const& keys, configuration const& active,
                          known_values const& camera) {
    change_answer answer;
    auto result = json::object();
    for (auto const& path : keys) {
        if (path == "line") {
            add_lines(answer, result, active);
            continue;
        }
        auto const& schema = configuration_schema();
        auto const key = std::ranges::find(schema, path, &configuration_key::path);
        if (key == schema.end()) {
            throw setting_refused(exit_status::usage, unknown_key(path));
        }
        auto const shown = key->show(active);
        auto const actual = actual_value(path, camera);
        answer.lines.push_back(line_of(*key, shown, actual));
        result[path] = {{"configured", json_of_value(shown)}};
        if (actual) {
            result[path]["actual"] = *actual;
        }
    }
    answer.result = result.dump(-1, ' ', false, json::error_handler_t::replace);
    return answer;
}

}  // namespace mediagrabber
