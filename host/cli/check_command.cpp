// SPDX-License-Identifier: MIT
#include "cli/check_command.hpp"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "config/configuration_file.hpp"
#include "config/configuration_json.hpp"
#include "config/configuration_schema.hpp"

namespace mediagrabber {

namespace {

constexpr int comment_column = 48;  ///< behind the longest key with a short value

void print_value(std::ostream& out, std::string const& assignment, std::string const& comment) {
    out << fmt::format("{:<{}} # {}\n", assignment, comment_column, comment);
}

std::string origin_text(loaded_configuration const& loaded, std::string const& path,
                        std::filesystem::path const& file) {
    auto const found = loaded.origins.find(path);
    if (found == loaded.origins.end()) {
        return "default";
    }
    return fmt::format("{}:{}:{}", file.string(), found->second.line, found->second.column);
}

/// Prints a key as TOML; without a value, as a comment.
template <typename target>
void print_key(std::ostream& out, schema_key<target> const& key, std::string const& name, target const& values,
               std::string const& origin) {
    std::string const shown = key.show(values);
    std::string const unit = key.unit.empty() ? "" : ", " + key.unit;
    if (shown.empty()) {
        print_value(out, fmt::format("# {}", name), fmt::format("not configured: {}", key.default_text));
    } else {
        print_value(out, fmt::format("{} = {}", name, shown), origin + unit);
    }
}

using json = nlohmann::ordered_json;

/// Null for a default.
json json_of_origin(loaded_configuration const& loaded, std::string const& path) {
    auto const found = loaded.origins.find(path);
    return found == loaded.origins.end() ? json(nullptr)
                                         : json{{"line", found->second.line}, {"column", found->second.column}};
}

json json_of(loaded_configuration const& loaded, std::filesystem::path const& file) {
    json values;
    for (auto const& key : configuration_schema()) {
        values[key.path] = {{"value", json_of_value(key.show(loaded.values))},
                            {"unit", key.unit},
                            {"origin", json_of_origin(loaded, key.path)}};
    }
    auto lines = json::array();
    for (auto const& line : loaded.values.lines) {
        lines.push_back(json_of_line(line));
    }
    return {{"file", file.string()},
            {"errors", json::array()},
            {"values", std::move(values)},
            {"line", std::move(lines)},
            {"remarks", remarks(loaded)}};
}

json json_of(configuration_error const& error, std::filesystem::path const& file) {
    auto errors = json::array();
    for (auto const& fault : error.faults()) {
        errors.push_back({{"line", fault.where.line}, {"column", fault.where.column}, {"text", fault.what}});
    }
    return {{"file", file.string()}, {"errors", std::move(errors)}};
}

/// Prints a text as comments of at most 100 columns.
void print_comment(std::ostream& out, std::string const& text) {
    constexpr std::size_t max_columns = 100;
    std::istringstream words(text);
    std::string line(1, '#');
    for (std::string word; words >> word;) {
        if (line.size() + 1 + word.size() > max_columns) {
            out << line << '\n';
            line.assign(1, '#');
        }
        line.append(1, ' ').append(word);
    }
    out << line << '\n';
}

/// \param default_value  as TOML; empty: none
template <typename target>
void print_sample(std::ostream& out, schema_key<target> const& key, std::string const& default_value) {
    print_comment(out, key.meaning);
    bool const restarts = key.effect == change_effect::restart;
    print_comment(out, fmt::format("Value: {}{}. Default: {}. A change takes effect {}.{}", key.expects,
                                   key.unit.empty() ? "" : fmt::format(" ({})", key.unit), key.default_text,
                                   restarts ? "when the acquisition restarts" : effect_text(key.effect),
                                   default_value.empty() ? " An example:" : ""));
    out << fmt::format("#{} = {}\n", key.path.substr(key.path.find('.') + 1),
                       default_value.empty() ? key.example : default_value);
}

}  // namespace

exit_status check_command(std::filesystem::path const& file, std::ostream& out) {
    auto const loaded = load_configuration(file);
    for (auto const& key : configuration_schema()) {
        print_key(out, key, key.path, loaded.values, origin_text(loaded, key.path, file));
    }
    for (std::size_t i = 0; i < loaded.values.lines.size(); ++i) {
        out << "[[line]]\n";
        for (auto const& key : io_line_schema()) {
            auto const name = key.path.substr(key.path.find('.') + 1);
            auto const path = fmt::format("line.{}.{}", i, name);
            print_key(out, key, name, loaded.values.lines[i], origin_text(loaded, path, file));
        }
    }
    for (auto const& remark : remarks(loaded)) {
        out << "# " << remark << '\n';
    }
    return exit_status::success;
}

exit_status check_as_json(std::filesystem::path const& file, std::ostream& out) {
    json found;
    auto status = exit_status::success;
    try {
        found = json_of(load_configuration(file), file);
    } catch (configuration_error const& error) {
        found = json_of(error, file);
        status = exit_status::usage;
    }
    out << found.dump(2, ' ', false, json::error_handler_t::replace) << '\n';
    return status;
}

void print_default_configuration(std::ostream& out) {
    print_comment(
        out,
        "Configuration of mediagrabber (TOML). Remove the # in front of a key to set it. Paths are relative to"
        " this file. `mediagrabber check FILE` checks it.");
    std::string table;
    for (auto const& key : configuration_schema()) {
        auto const of_key = key.path.substr(0, key.path.find('.'));
        if (of_key != table) {
            table = of_key;
            out << fmt::format("\n[{}]\n", table);
        } else {
            out << '\n';
        }
        print_sample(out, key, key.show(configuration{}));
    }
    out << "\n# One table for each output of the camera that is configured.\n#[[line]]\n";
    for (auto const& key : io_line_schema()) {
        print_sample(out, key, key.example.empty() ? key.show(io_line{}) : std::string());
    }
}

}  // namespace mediagrabber
