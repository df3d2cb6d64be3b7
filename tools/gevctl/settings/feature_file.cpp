// SPDX-License-Identifier: MIT
#include "settings/feature_file.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <ostream>
#include <sstream>

#include <toml++/toml.h>

#include "report/failure.hpp"

namespace gevctl {

namespace {

/// Thousands of settings; rejects files given by mistake.
constexpr std::size_t max_file_bytes = 1U << 20U;

std::string not_a_table(std::string const& selector, std::string_view key) {
    return "[" + selector + "]: a table is named after a selector and its value, as in [" + selector + ".VALUE]; \"" +
           std::string(key) + "\" is not a table";
}

/// Flattens the tables of a file. Collects all errors, so that a user sees them at once.
class file_reader {
public:
    explicit file_reader(std::string const& name) : name_(name) {}

    feature_file read(toml::table const& root) {
        read_table(root, {});
        if (!errors_.empty()) {
            std::ranges::stable_sort(errors_);
            std::string text;
            for (auto const& [position, message] : errors_) {
                text += (text.empty() ? "" : "\n") + message;
            }
            throw failure(exit_status::usage, text);
        }
        std::ranges::stable_sort(settings_, {}, &located::position);
        for (located& each : settings_) {
            file_.settings.push_back(std::move(each.setting));
        }
        return std::move(file_);
    }

private:
    using position = std::pair<toml::source_index, toml::source_index>;  ///< line and column
    struct located {
        gevctl::file_reader::position position;
        feature_setting setting;
    };

    static position position_of(toml::source_region const& source) { return {source.begin.line, source.begin.column}; }

    std::string place(position const& where) const { return name_ + ":" + std::to_string(where.first); }

    void read_table(toml::table const& table, selection const& selectors) {
        for (auto const& [key, node] : table) {
            position const where = position_of(key.source());
            std::string const name(key.str());
            if (toml::table const* const inner = node.as_table()) {
                read_selector(name, *inner, selectors, where);
            } else if (selectors.empty() && name == "camera") {
                auto const camera = node.value<std::string>();
                camera ? void(file_.camera = *camera) : fail(where, "camera: the value must be a text");
            } else if (auto const value = value_of(node)) {
                settings_.push_back({where, {selectors, name, *value, place(where)}});
            } else {
                fail(where, name + ": the value must be a number, a text, true or false");
            }
        }
    }

    void read_selector(std::string const& name, toml::table const& values, selection const& selectors,
                       position const& where) {
        for (auto const& [key, node] : values) {
            toml::table const* const features = node.as_table();
            if (features == nullptr) {
                fail(where, not_a_table(name, key.str()));
                continue;
            }
            selection inner = selectors;
            inner.emplace_back(name, std::string(key.str()));
            read_table(*features, inner);
        }
    }

    static std::optional<feature_value> value_of(toml::node const& node) {
        if (auto const* const truth = node.as_boolean()) {
            return truth->get();
        }
        if (auto const* const integer = node.as_integer()) {
            return integer->get();
        }
        if (auto const* const real = node.as_floating_point()) {
            return real->get();
        }
        auto const* const text = node.as_string();
        return text != nullptr ? std::optional<feature_value>(text->get()) : std::nullopt;
    }

    void fail(position const& where, std::string const& what) {
        errors_.emplace_back(where, place(where) + ": " + what);
    }

    std::string const& name_;
    feature_file file_;
    std::vector<located> settings_;
    std::vector<std::pair<position, std::string>> errors_;
};

std::string quoted(std::string const& text) {
    std::ostringstream made;
    made << toml::value(text);
    return made.str();
}

std::string key_of(std::string const& name) {
    bool const bare = !name.empty() && std::ranges::all_of(name, [](unsigned char each) {
        return std::isalnum(each) != 0 || each == '_' || each == '-';
    });
    return bare ? name : quoted(name);
}

std::string in_toml(feature_value const& value) {
    if (auto const* const text = std::get_if<std::string>(&value)) {
        return quoted(*text);
    }
    std::string text = to_text(value);
    bool const lacks_point = std::holds_alternative<double>(value) && text.find_first_of(".en") == std::string::npos;
    return lacks_point ? text + ".0" : text;
}

}  // namespace

std::string to_text(selection const& selectors, std::string const& name) {
    std::string text;
    for (auto const& [selector, value] : selectors) {
        text.append(text.empty() ? "" : ",").append(selector).append("=").append(value);
    }
    return text.empty() ? name : name + "[" + text + "]";
}

std::string to_text(feature_setting const& one) {
    return to_text(one.selectors, one.name);
}

feature_file parse_feature_file(std::string const& text, std::string const& name) {
    try {
        return file_reader(name).read(toml::parse(text, name));
    } catch (toml::parse_error const& error) {
        throw failure(exit_status::usage, name + ":" + std::to_string(error.source().begin.line) + ":" +
                                              std::to_string(error.source().begin.column) + ": " +
                                              std::string(error.description()));
    }
}

feature_file read_feature_file(std::filesystem::path const& path) {
    bool const is_input = path == "-";
    std::ifstream file(is_input ? "/dev/stdin" : path);
    std::string text(max_file_bytes + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (!file.is_open() || file.bad() || std::filesystem::is_directory(path)) {
        throw failure(exit_status::usage,
                      "the feature file " + path.string() + " cannot be read: " +
                          (std::filesystem::is_directory(path) ? "it is a directory" : std::strerror(errno)));
    }
    if (text.size() > max_file_bytes) {
        throw failure(exit_status::usage, path.string() + " is not a feature file: it is larger than 1 MiB");
    }
    return parse_feature_file(text, is_input ? "standard input" : path.string());
}

void write_feature_file(std::ostream& out, std::vector<std::string> const& header,
                        std::vector<feature_setting> const& settings) {
    for (std::string const& line : header) {
        out << "# " << line << '\n';
    }
    std::vector<selection> tables;  // in the order of their first setting
    for (feature_setting const& each : settings) {
        if (each.selectors.empty()) {
            out << key_of(each.name) << " = " << in_toml(each.value) << '\n';
        } else if (std::ranges::find(tables, each.selectors) == tables.end()) {
            tables.push_back(each.selectors);
        }
    }
    for (selection const& selectors : tables) {
        std::string path;
        for (auto const& [selector, value] : selectors) {
            path += (path.empty() ? "" : ".") + key_of(selector) + "." + key_of(value);
        }
        out << "\n[" << path << "]\n";
        for (feature_setting const& each : settings) {
            if (each.selectors == selectors) {
                out << key_of(each.name) << " = " << in_toml(each.value) << '\n';
            }
        }
    }
}

}  // namespace gevctl
