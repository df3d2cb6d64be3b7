#include "fault_file.hpp"

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

constexpr std::size_t largest_file = 1U << 20U;
constexpr double longest_s = 1e9;

struct mistake {
    toml::source_position where;
    std::string what;
};

/// Every mistake as FILE:LINE:COLUMN: TEXT, by place.
std::string listed(std::string const& file, std::vector<mistake> mistakes) {
    std::ranges::stable_sort(mistakes, [](mistake const& a, mistake const& b) {
        return std::pair(a.where.line, a.where.column) < std::pair(b.where.line, b.where.column);
    });
    std::string text;
    for (mistake const& one : mistakes) {
        text += (text.empty() ? "" : "\n") + file + ":" + std::to_string(one.where.line) + ":" +
                std::to_string(one.where.column) + ": " + one.what;
    }
    return text;
}

/// A value as the text spells it, shortened; tables and lists by their kind.
std::string spelled(toml::node const& node) {
    constexpr std::size_t longest = 60;
    if (node.is_table() || node.is_array()) {
        return node.is_table() ? "a table" : "a list";
    }
    std::ostringstream text;
    node.visit([&text](auto const& value) { text << value; });
    std::string const whole = text.str();
    return whole.size() <= longest ? whole : whole.substr(0, longest) + "...";
}

template <typename Names>
std::string one_of(Names const& names) {
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
    std::ranges::transform(fault_table(), std::back_inserter(names), &fault_description::name);
    return names;
}

std::optional<double> number_within(toml::node const& node, double least, double most) {
    auto const value = node.is_number() ? node.value<double>() : std::nullopt;
    return value && std::isfinite(*value) && *value >= least && *value <= most ? value : std::nullopt;
}

std::chrono::nanoseconds nanoseconds_of(double seconds) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
}

/// Takes over what is right and collects what is not.
class fault_reader {
public:
    explicit fault_reader(std::vector<std::string> const& features) : features_(features) {}

    fault_plan read_plan(toml::table const& root);
    scheduled_fault read_fault(toml::table const& table);
    void complain(toml::node const& node, std::string what) { complain(node.source(), std::move(what)); }
    void complain(toml::source_region const& where, std::string what) {
        mistakes_.push_back({where.begin, std::move(what)});
    }
    std::vector<mistake> const& mistakes() const { return mistakes_; }

private:
    fault_description const* read_kind(toml::table const& table);
    void read_time(std::string_view name, toml::node const& node, scheduled_fault& into);
    std::optional<fault_value> read_value(fault_parameter const& parameter, toml::node const& node) const;
    void refuse(std::string const& name, toml::node const& node, std::string const& expected) {
        complain(node, name + ": " + spelled(node) + " is refused, " + expected);
    }

    std::vector<std::string> const& features_;
    std::vector<mistake> mistakes_;
};

fault_plan fault_reader::read_plan(toml::table const& root) {
    fault_plan plan;
    for (auto&& [key, node] : root) {
        if (key.str() == "seed") {
            auto const seed = node.value_exact<std::int64_t>();
            if (seed && *seed >= 0) {
                plan.seed = static_cast<std::uint64_t>(*seed);
            } else {
                refuse("seed", node, "expected an integer of 0 or more");
            }
        } else if (key.str() != "fault") {
            complain(key.source(), std::string(key.str()) + ": unknown, expected seed or [[fault]] tables");
        } else if (auto const* const faults = node.as_array(); faults != nullptr && faults->is_array_of_tables()) {
            for (toml::node const& one : *faults) {
                plan.faults.push_back(read_fault(*one.as_table()));
            }
        } else {
            complain(node, "fault: expected a [[fault]] table for each fault");
        }
    }
    return plan;
}

/// \return something of the right kind, whatever was complained of
scheduled_fault fault_reader::read_fault(toml::table const& table) {
    scheduled_fault read;
    fault_description const* const kind = read_kind(table);
    if (kind == nullptr) {
        return read;
    }
    read.what = standard_fault(kind->kind);
    for (auto&& [key, node] : table) {
        std::string_view const name = key.str();
        auto const parameter = std::ranges::find(kind->parameters, name, &fault_parameter::name);
        if (name == "at_s" || name == "for_s") {
            read_time(name, node, read);
        } else if (parameter != kind->parameters.end()) {
            if (auto const value = read_value(*parameter, node)) {
                read.what.values[parameter->name] = *value;
            } else {
                bool const feature = parameter->of == fault_parameter::domain::feature;
                refuse(std::string(kind->name) + "." + std::string(name), node,
                       "expected " + parameter->expects() + (feature ? "; the features are: " : "") +
                           (feature ? one_of(features_).substr(std::strlen("expected one of ")) : ""));
            }
        } else if (name != "kind") {
            std::vector<std::string_view> known{"kind", "at_s", "for_s"};
            std::ranges::transform(kind->parameters, std::back_inserter(known), &fault_parameter::name);
            complain(key.source(), std::string(kind->name) + "." + std::string(name) + ": unknown, " + one_of(known));
        }
    }
    return read;
}

fault_description const* fault_reader::read_kind(toml::table const& table) {
    toml::node const* const node = table.get("kind");
    if (node == nullptr) {
        complain(table, "kind: missing, " + one_of(kind_names()));
        return nullptr;
    }
    auto const name = node->value_exact<std::string>();
    auto const& all = fault_table();
    auto const found = name ? std::ranges::find(all, std::string_view(*name), &fault_description::name) : all.end();
    if (found == all.end()) {
        refuse("kind", *node, one_of(kind_names()));
        return nullptr;
    }
    return &*found;
}

void fault_reader::read_time(std::string_view name, toml::node const& node, scheduled_fault& into) {
    bool const duration = name == "for_s";
    auto const seconds = number_within(node, 0.0, longest_s);
    if (!seconds || (duration && *seconds == 0.0)) {
        refuse(std::string(name), node,
               std::string("expected a number of seconds, ") + (duration ? "above 0" : "0 or more"));
    } else if (duration) {
        into.lasts = nanoseconds_of(*seconds);
    } else {
        into.at = nanoseconds_of(*seconds);
    }
}

std::optional<fault_value> fault_reader::read_value(fault_parameter const& parameter, toml::node const& node) const {
    using domain = fault_parameter::domain;
    auto const word = node.value_exact<std::string>();
    switch (parameter.of) {
        case domain::yes_or_no:
            if (auto const yes = node.value_exact<bool>()) {
                return *yes;
            }
            return std::nullopt;
        case domain::number:
        case domain::integer:
            if (parameter.of == domain::integer && !node.is_integer()) {
                return std::nullopt;
            }
            if (auto const number = number_within(node, parameter.least, parameter.most)) {
                return *number;
            }
            return std::nullopt;
        case domain::word:
        case domain::feature: {
            bool const known =
                word && std::ranges::find(parameter.words, std::string_view(*word)) != parameter.words.end();
            bool const feature =
                word && parameter.of == domain::feature && std::ranges::find(features_, *word) != features_.end();
            return known || feature ? std::optional<fault_value>(*word) : std::nullopt;
        }
    }
    return std::nullopt;
}

/// Reads with `read(reader, root)`, and refuses the whole when anything is wrong with it.
template <typename Read>
auto read_text(std::string const& text, std::string const& file, std::vector<std::string> const& features, Read read) {
    toml::table root;
    try {
        root = toml::parse(std::string_view(text), file);
    } catch (toml::parse_error const& error) {
        throw fault_text_error(listed(file, {{error.source().begin, std::string(error.description())}}));
    }
    fault_reader reader(features);
    auto result = read(reader, root);
    if (!reader.mistakes().empty()) {
        throw fault_text_error(listed(file, reader.mistakes()));
    }
    return result;
}

std::string contents_of(std::filesystem::path const& file) {
    std::ifstream in(file, std::ios::binary);
    std::string text(largest_file + 1, '\0');
    if (!in || std::filesystem::is_directory(file)) {
        throw fault_text_error(
            file.string() + ": can't be read: " + std::strerror(std::filesystem::is_directory(file) ? EISDIR : errno));
    }
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    if (text.size() > largest_file) {
        throw fault_text_error(file.string() + ": is larger than 1 MiB, the most that such a file may be");
    }
    return text;
}

fault_request read_request(fault_reader& reader, toml::table const& root) {
    fault_request request{.what = fault_request::list{}};
    std::string const expected =
        "expected start = { kind = \"...\", ... }, stop = NUMBER, stop = \"all\" or list = true";
    if (root.size() != 1) {
        reader.complain(root, "a request is one thing, " + expected);
    } else if (auto const* const started = root.get_as<toml::table>("start")) {
        request.what = reader.read_fault(*started);
    } else if (root["stop"].value_exact<std::string>() == "all") {
        request.what = fault_request::stop{};
    } else if (auto const number = root["stop"].value_exact<std::int64_t>();
               number && *number > 0 && *number <= UINT32_MAX) {
        request.what = fault_request::stop{static_cast<std::uint32_t>(*number)};
    } else if (root["list"].value_exact<bool>() != true) {
        reader.complain(root.begin()->first.source(), "this is no request, " + expected);
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

fault_request parse_fault_request(std::string const& line, std::vector<std::string> const& features) {
    return read_text(line, "request", features, read_request);
}

}  // namespace camsim
