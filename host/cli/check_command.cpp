// SPDX-License-Identifier: MIT
#include "cli/check_command.hpp"

#include <fmt/format.h>

#include "config/configuration_file.hpp"
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

}  // namespace mediagrabber
