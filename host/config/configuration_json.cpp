// SPDX-License-Identifier: MIT
#include "config/configuration_json.hpp"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "config/configuration_schema.hpp"

namespace mediagrabber {

namespace {

using json = nlohmann::ordered_json;

std::string table_of(std::string const& path) {
    return path.substr(0, path.find('.'));
}

std::string name_in_table(std::string const& path) {
    return path.substr(path.find('.') + 1);
}

/// \param default_value  as TOML; empty: none
template <typename target>
json schema_of(schema_key<target> const& key, std::string const& default_value) {
    json schema{{"description", key.unit.empty() ? key.meaning : fmt::format("{} Unit: {}.", key.meaning, key.unit)}};
    schema.update(json::parse(key.json_schema));
    if (!default_value.empty()) {
        schema["default"] = json_of_value(default_value);
    }
    return schema;
}

json empty_table() {
    return {{"type", "object"}, {"properties", json::object()}, {"additionalProperties", false}};
}

json schema_of_lines() {
    auto table = empty_table();
    for (auto const& key : io_line_schema()) {
        bool const is_required = key.path == "line.pin" || key.path == "line.source";
        table["properties"][name_in_table(key.path)] = schema_of(key, is_required ? "" : key.show(io_line{}));
    }
    table["required"] = {"pin", "source"};
    return {{"description", "One table for each output that is configured."}, {"type", "array"}, {"items", table}};
}

}  // namespace

json json_of_value(std::string const& shown) {
    if (shown.empty()) {
        return nullptr;
    }
    std::ostringstream text;
    text << toml::json_formatter(toml::parse("value = " + shown));
    return json::parse(text.str())["value"];
}

json json_of_line(io_line const& line) {
    json table;
    for (auto const& key : io_line_schema()) {
        table[name_in_table(key.path)] = json_of_value(key.show(line));
    }
    return table;
}

std::string configuration_json_schema() {
    json root{{"$schema", "https://json-schema.org/draft/2020-12/schema"},
              {"title", "Configuration of mediagrabber"},
              {"type", "object"},
              {"properties", json::object()},
              {"additionalProperties", false}};
    for (auto const& key : configuration_schema()) {
        auto& tables = root["properties"];
        auto& table = tables.emplace(table_of(key.path), empty_table()).first.value();
        table["properties"][name_in_table(key.path)] = schema_of(key, key.show(configuration{}));
    }
    root["properties"]["camera"]["dependentRequired"] = {{"serial", {"model"}}};
    root["properties"]["line"] = schema_of_lines();
    return root.dump(2) + "\n";
}

}  // namespace mediagrabber
