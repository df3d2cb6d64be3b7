#include "check_command.hpp"

#include <iomanip>

#include "configuration_file.hpp"
#include "configuration_schema.hpp"

namespace mediagrabber {

namespace {

constexpr int comment_column = 48;

void print_value(std::ostream& out, std::string const& assignment, std::string const& comment) {
    out << std::left << std::setw(comment_column) << assignment << " # " << comment << '\n';
}

std::string origin_text(loaded_configuration const& loaded, std::string const& path,
                        std::filesystem::path const& file) {
    auto const found = loaded.origins.find(path);
    if (found == loaded.origins.end()) {
        return "default";
    }
    return file.string() + ":" + std::to_string(found->second.line) + ":" + std::to_string(found->second.column);
}

/// As TOML: what is not configured becomes a comment.
template <typename target>
void print_key(std::ostream& out, schema_key<target> const& key, std::string const& name, target const& values,
               std::string const& origin) {
    std::string const shown = key.show(values);
    std::string const unit = key.unit.empty() ? "" : ", " + key.unit;
    if (shown.empty()) {
        print_value(out, "# " + name, "not configured: " + key.default_text);
    } else {
        print_value(out, name + " = " + shown, origin + unit);
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
            auto const path = "line." + std::to_string(i) + "." + name;
            print_key(out, key, name, loaded.values.lines[i], origin_text(loaded, path, file));
        }
    }
    for (auto const& remark : remarks(loaded)) {
        out << "# " << remark << '\n';
    }
    return exit_status::success;
}

}  // namespace mediagrabber
