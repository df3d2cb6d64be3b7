// SPDX-License-Identifier: MIT
#include "faults/fault_file.hpp"

#include <toml++/toml.h>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <utility>

namespace camsim {

namespace {

constexpr std::size_t max_file_bytes = 1U << 20U;  // a plan of thousands of faults; rejects files given by mistake
constexpr double max_seconds = 1e9;                // 30 years; nanoseconds of it fit in 64 bits

/// An error and its place in the text.
struct located_error {
    toml::source_position where;
    std::string what;
};

/// All errors, sorted by place, as FILE:LINE:COLUMN: MESSAGE.
std::string listed(std::string const& file, std::vector<located_error> errors) {
    std::ranges::stable_sort(errors, [](located_error const& a, located_error const& b) {
        return std::pair(a.where.line, a.where.column) < std::pair(b.where.line, b.where.column);
    });
    std::string text;
    for (located_error const& one : errors) {
        text += (text.empty() ? "" : "\n") + file + ":" + std::to_string(one.where.line) + ":" +
                std::to_string(one.where.column) + ": " + one.what;
    }
    return text;
}

/// A value as it appears in messages: shortened; tables and lists by their type.
std::string to_text(toml::node const& node) {
    constexpr std::size_t max_length = 60;  // keeps an error on one line
    if (node.is_table() || node.is_array()) {
        return node.is_table() ? "a table" : "a list";
    }
    std::ostringstream text;
    node.visit([&text](auto const& value) { text << value; });
    std::string const whole = text.str();
    return whole.size() <= max_length ? whole : whole.substr(0, max_length) + "...";
}

template <typename name_list>
std::string one_of(name_list const& names) {
    std::string text = "expected one of ";
    bool first = true;
    for (auto const& name : names) {
        text += (first ? "" : ", ") + std::string(name);
        first = false;
    }
    return text;
}

std::vector<std::string_view> kind_names() {
    std::vector<std::string_view> names;
    std::ranges::transform(fault_table(), std::back_inserter(names), &fault_definition::name);
    return names;
}

std::optional<double> number_within(toml::node const& node, double minimum, double maximum) {
    auto const value = node.is_number() ? node.value<double>() : std::nullopt;
    return value && std::isfinite(*value) && *value >= minimum && *value <= maximum ? value : std::nullopt;
}

std::chrono::nanoseconds nanoseconds_of(double seconds) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
}

/// Converts TOML to faults. Collects all errors, so that a user sees them at once.
class fault_reader {
public:
    explicit fault_reader(std::vector<std::string> const& features) : features_(features) {}

    fault_plan read_plan(toml::table const& root);
    scheduled_fault read_fault(toml::table const& table);
    void add_error(toml::node const& node, std::string what) { add_error(node.source(), std::move(what)); }
    void add_error(toml::source_region const& where, std::string what) {
        errors_.push_back({where.begin, std::move(what)});
    }
    std::vector<located_error> const& errors() const { return errors_; }

private:
    fault_definition const* read_kind(toml::table const& table);
    void read_time(std::string_view name, toml::node const& node, scheduled_fault& into);
    std::optional<fault_value> read_value(fault_parameter const& parameter, toml::node const& node) const;
    void add_value_error(std::string const& name, toml::node const& node, std::string const& expected) {
        add_error(node, name + ": " + to_text(node) + " is not valid, " + expected);
    }

    std::vector<std::string> const& features_;
    std::vector<located_error> errors_;
};

fault_plan fault_reader::read_plan(toml::table const& root) {
    fault_plan plan;
    for (auto&& [key, node] : root) {
        if (key.str() == "seed") {
            auto const seed = node.value_exact<std::int64_t>();
            if (seed && *seed >= 0) {
                plan.seed = static_cast<std::uint64_t>(*seed);
            } else {
                add_value_error("seed", node, "expected an integer of 0 or more");
            }
        } else if (key.str() != "fault") {
            add_error(key.source(), std::string(key.str()) + ": unknown, expected seed or [[fault]] tables");
        } else if (auto const* const faults = node.as_array(); faults != nullptr && faults->is_array_of_tables()) {
            for (toml::node const& one : *faults) {
                plan.faults.push_back(read_fault(*one.as_table()));
            }
        } else {
            add_error(node, "fault: expected a [[fault]] table for each fault");
        }
    }
    return plan;
}

/// \return the fault, as far as it could be read
scheduled_fault fault_reader::read_fault(toml::table const& table) {
    scheduled_fault read;
    fault_definition const* const kind = read_kind(table);
    if (kind == nullptr) {
        return read;
    }
    read.what = default_fault(kind->kind);
    for (auto&& [key, node] : table) {
        std::string_view const name = key.str();
        auto const parameter = std::ranges::find(kind->parameters, name, &fault_parameter::name);
        if (name == "at_s" || name == "for_s") {
            read_time(name, node, read);
        } else if (parameter != kind->parameters.end()) {
            if (auto const value = read_value(*parameter, node)) {
                read.what.values[parameter->name] = *value;
            } else {
                bool const feature = parameter->type == fault_parameter::value_type::feature;
                add_value_error(std::string(kind->name) + "." + std::string(name), node,
                                "expected " + parameter->expected() + (feature ? "; the features are: " : "") +
                                    (feature ? one_of(features_).substr(std::strlen("expected one of ")) : ""));
            }
        } else if (name != "kind") {
            std::vector<std::string_view> known{"kind", "at_s", "for_s"};
            std::ranges::transform(kind->parameters, std::back_inserter(known), &fault_parameter::name);
            auto const new_name = renamed_fault_parameter(*kind, name);
            add_error(key.source(),
                      std::string(kind->name) + "." + std::string(name) +
                          (new_name ? ": renamed, use " + std::string(*new_name) : ": unknown, " + one_of(known)));
        }
    }
    return read;
}

fault_definition const* fault_reader::read_kind(toml::table const& table) {
    toml::node const* const node = table.get("kind");
    if (node == nullptr) {
        add_error(table, "kind: missing, " + one_of(kind_names()));
        return nullptr;
    }
    auto const name = node->value_exact<std::string>();
    auto const& all = fault_table();
    auto const found = name ? std::ranges::find(all, std::string_view(*name), &fault_definition::name) : all.end();
    if (found != all.end()) {
        return &*found;
    }
    auto const new_name = name ? renamed_fault_kind(*name) : std::nullopt;
    if (new_name) {
        add_error(*node, "kind: " + to_text(*node) + " was renamed, use '" + std::string(*new_name) + "'");
    } else {
        add_value_error("kind", *node, one_of(kind_names()));
    }
    return nullptr;
}

void fault_reader::read_time(std::string_view name, toml::node const& node, scheduled_fault& into) {
    bool const duration = name == "for_s";
    auto const seconds = number_within(node, 0.0, max_seconds);
    if (!seconds || (duration && *seconds == 0.0)) {
        add_value_error(std::string(name), node,
                        std::string("expected a number of seconds, ") + (duration ? "above 0" : "0 or more"));
    } else if (duration) {
        into.duration = nanoseconds_of(*seconds);
    } else {
        into.at = nanoseconds_of(*seconds);
    }
}

std::optional<fault_value> fault_reader::read_value(fault_parameter const& parameter, toml::node const& node) const {
    using value_type = fault_parameter::value_type;
    auto const word = node.value_exact<std::string>();
    switch (parameter.type) {
        case value_type::boolean:
            if (auto const yes = node.value_exact<bool>()) {
                return *yes;
            }
            return std::nullopt;
        case value_type::number:
        case value_type::integer:
            if (parameter.type == value_type::integer && !node.is_integer()) {
                return std::nullopt;
            }
            if (auto const number = number_within(node, parameter.minimum, parameter.maximum)) {
                return *number;
            }
            return std::nullopt;
        case value_type::choice:
        case value_type::feature: {
            bool const known =
                word && std::ranges::find(parameter.choices, std::string_view(*word)) != parameter.choices.end();
            bool const feature =
                word && parameter.type == value_type::feature && std::ranges::find(features_, *word) != features_.end();
            return known || feature ? std::optional<fault_value>(*word) : std::nullopt;
        }
    }
    return std::nullopt;
}

/// Parses TOML and converts it with `read(reader, root)`. Throws fault_text_error if there is any error.
template <typename converter>
auto read_text(std::string const& text, std::string const& file, std::vector<std::string> const& features,
               converter read) {
    toml::table root;
    try {
        root = toml::parse(std::string_view(text), file);
    } catch (toml::parse_error const& error) {
        throw fault_text_error(listed(file, {{error.source().begin, std::string(error.description())}}));
    }
    fault_reader reader(features);
    auto result = read(reader, root);
    if (!reader.errors().empty()) {
        throw fault_text_error(listed(file, reader.errors()));
    }
    return result;
}

std::string contents_of(std::filesystem::path const& file) {
    std::ifstream in(file, std::ios::binary);
    std::string text(max_file_bytes + 1, '\0');
    if (!in || std::filesystem::is_directory(file)) {
        throw fault_text_error(
            file.string() + ": cannot be read: " + std::strerror(std::filesystem::is_directory(file) ? EISDIR : errno));
    }
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    if (text.size() > max_file_bytes) {
        throw fault_text_error(file.string() + ": the file is larger than the limit of 1 MiB");
    }
    return text;
}

control_request read_request(fault_reader& reader, toml::table const& root) {
    control_request request{.what = control_request::list{}};
    std::string const expected =
        "expected start = { kind = \"...\", ... }, stop = NUMBER, stop = \"all\", list = true or line1 = BOOLEAN";
    if (root.size() != 1) {
        reader.add_error(root, "a request has exactly one key, " + expected);
    } else if (auto const* const started = root.get_as<toml::table>("start")) {
        request.what = reader.read_fault(*started);
    } else if (root["stop"].value_exact<std::string>() == "all") {
        request.what = control_request::stop{};
    } else if (auto const number = root["stop"].value_exact<std::int64_t>();
               number && *number > 0 && *number <= UINT32_MAX) {
        request.what = control_request::stop{static_cast<std::uint32_t>(*number)};
    } else if (auto const high = root["line1"].value_exact<bool>()) {
        request.what = control_request::input_line{*high};
    } else if (root["list"].value_exact<bool>() != true) {
        reader.add_error(root.begin()->first.source(), "unknown request, " + expected);
    }
    return request;
}

}  // namespace

fault_plan read_fault_file(std::filesystem::path const& file, std::vector<std::string> const& features) {
    return parse_faults(contents_of(file), file.string(), features);
}

fault_plan parse_faults(std::string const& text, std::string const& file, std::vector<std::string> const& features) {
    return read_text(text, file, features,
                     [](fault_reader& reader, toml::table const& root) { return reader.read_plan(root); });
}

control_request parse_control_request(std::string const& line, std::vector<std::string> const& features) {
    return read_text(line, "request", features, read_request);
}

}  // namespace camsim
