// SPDX-License-Identifier: MIT
#include "config/configuration_file.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <set>
#include <sstream>
#include <system_error>
#include <utility>

#include "base/bounded_file.hpp"
#include "base/failures.hpp"
#include "base/unix_socket.hpp"
#include "config/broker_address.hpp"
#include "config/broker_credentials.hpp"
#include "config/camera_name.hpp"
#include "config/configuration_schema.hpp"
#include "config/renamed_keys.hpp"
#include "config/toml_value.hpp"
#include "config/topic.hpp"
#include "config/web_address.hpp"
#include "frames/frame_format.hpp"
#include "lut/lookup_table_file.hpp"

namespace mediagrabber {

namespace {

std::string place_of(std::filesystem::path const& file, file_position const& where) {
    if (!where.option.empty()) {
        return where.option;
    }
    return where.line == 0 ? file.string() : fmt::format("{}:{}:{}", file.string(), where.line, where.column);
}

std::string listed(std::filesystem::path const& file, std::vector<configuration_fault> const& faults) {
    std::string text;
    for (auto const& fault : faults) {
        text += text.empty() ? "" : "\n";
        text += fmt::format("{}: {}", place_of(file, fault.where), fault.what);
    }
    return text;
}

file_position position_of(toml::source_region const& region) {
    return {.line = region.begin.line, .column = region.begin.column, .option = {}};
}

/// A value as written in the file, shortened; a table as "a table".
std::string spelled(toml::node const& node) {
    constexpr std::size_t max_shown = 60;  ///< characters; keeps a message on one line of a terminal
    if (node.is_table()) {
        return "a table";
    }
    std::ostringstream text;
    node.visit([&text](auto const& value) { text << value; });
    std::string const shown = text.str();
    return shown.size() <= max_shown ? shown : shown.substr(0, max_shown) + "...";
}

/// Reads a parsed file into a configuration and collects all errors, so that a user sees them at once.
class file_reader {
public:
    /// \param directory  of the configuration file
    /// \param replaced   values that replace those of the file
    file_reader(toml::table root, std::filesystem::path directory, std::vector<setting> const& replaced)
        : directory_(std::move(directory)) {
        replace_values(root, replaced);
        read_root(root);
    }

    loaded_configuration take_result() { return std::move(loaded_); }
    std::vector<configuration_fault> take_faults() { return std::move(faults_); }

private:
    void replace_values(toml::table& root, std::vector<setting> const& replaced);
    file_position position_of_value(std::string const& path, toml::node const& node) const;
    void read_root(toml::table const& root);
    void read_table(std::string const& name, toml::table const& table);
    void read_lines(toml::node const& node);
    void read_line(std::size_t index, toml::table const& table);
    template <typename target>
    bool read_value(schema_key<target> const& key, toml::node const& node, target& into);
    void refuse_unknown(toml::key const& key, std::string const& path, std::set<std::string> const& known);
    void complete_paths();
    void complete_socket(char const* key, std::string& path);
    std::string complete(std::string const& path) const;
    void check_combinations();
    void check_broker();
    void check_web();
    void check_groups();
    void read_files();
    void check_file(char const* key, std::optional<std::string>& name,
                    std::function<void(std::string const&)> const& check);
    void complain(file_position where, std::string what, bool temporary = false) {
        faults_.push_back({.where = std::move(where), .what = std::move(what), .temporary = temporary});
    }

    std::filesystem::path const directory_;
    std::set<std::string> replaced_;  ///< paths
    loaded_configuration loaded_;
    std::vector<configuration_fault> faults_;
};

/// The names of all tables.
std::set<std::string> known_tables() {
    std::set<std::string> names{"line"};
    for (auto const& key : configuration_schema()) {
        names.insert(key.path.substr(0, key.path.find('.')));
    }
    return names;
}

template <typename target>
std::set<std::string> known_keys(std::vector<schema_key<target>> const& schema, std::string const& table) {
    std::set<std::string> names;
    for (auto const& key : schema) {
        if (key.path.starts_with(table + ".")) {
            names.insert(key.path.substr(table.size() + 1));
        }
    }
    return names;
}

template <typename target>
schema_key<target> const* find_key(std::vector<schema_key<target>> const& schema, std::string const& path) {
    auto const found = std::find_if(schema.begin(), schema.end(), [&](auto const& key) { return key.path == path; });
    return found == schema.end() ? nullptr : &*found;
}

file_position in_option(std::string const& path) {
    return {.line = 0, .column = 0, .option = "--set " + path};
}

/// A value that is not valid has its error when it is read, like one of the file.
void file_reader::replace_values(toml::table& root, std::vector<setting> const& replaced) {
    for (auto const& one : replaced) {
        bool const is_known = one.path == "line" || find_key(configuration_schema(), one.path) != nullptr;
        if (!is_known || !replaced_.insert(one.path).second) {
            complain(in_option(one.path), is_known ? one.path + ": given twice" : unknown_key(one.path));
            continue;
        }
        auto value = parse_value(one.value);
        toml::table* table = &root;
        std::string name = one.path;
        if (auto const dot = name.find('.'); dot != name.npos) {
            auto const at = root.insert(name.substr(0, dot), toml::table{}).first;
            table = at->second.as_table();
            name = name.substr(dot + 1);
        }
        if (table != nullptr) {
            value.get("value")->visit([&](auto& node) { table->insert_or_assign(name, std::move(node)); });
        }
    }
}

file_position file_reader::position_of_value(std::string const& path, toml::node const& node) const {
    return replaced_.contains(path) ? in_option(path) : position_of(node.source());
}

void file_reader::read_root(toml::table const& root) {
    auto const tables = known_tables();
    for (auto&& [key, node] : root) {
        std::string const name(key.str());
        if (!tables.contains(name)) {
            refuse_unknown(key, name, tables);
        } else if (name == "line") {
            read_lines(node);
        } else if (auto const* const table = node.as_table()) {
            read_table(name, *table);
        } else {
            complain(position_of(node.source()),
                     fmt::format("{}: {} is not a table, expected [{}]", name, spelled(node), name));
        }
    }
    complete_paths();
    check_combinations();
    check_broker();
    check_web();
    check_groups();
    read_files();
}

void file_reader::read_table(std::string const& name, toml::table const& table) {
    for (auto&& [key, node] : table) {
        std::string const path = name + "." + std::string(key.str());
        auto const* const known = find_key(configuration_schema(), path);
        if (known == nullptr) {
            refuse_unknown(key, path, known_keys(configuration_schema(), name));
        } else if (read_value(*known, node, loaded_.values)) {
            loaded_.origins[path] = position_of_value(path, node);
        }
    }
}

void file_reader::read_lines(toml::node const& node) {
    auto const* const tables = node.as_array();
    if (tables == nullptr || !tables->is_array_of_tables()) {
        complain(position_of_value("line", node), "line: expected one [[line]] table per output");
        return;
    }
    for (std::size_t i = 0; i < tables->size(); ++i) {
        read_line(i, *tables->get(i)->as_table());
    }
}

void file_reader::read_line(std::size_t index, toml::table const& table) {
    io_line line;
    for (auto&& [key, node] : table) {
        std::string const name(key.str());
        auto const* const known = find_key(io_line_schema(), "line." + name);
        if (known == nullptr) {
            refuse_unknown(key, "line." + name, known_keys(io_line_schema(), "line"));
        } else if (read_value(*known, node, line)) {
            loaded_.origins[fmt::format("line.{}.{}", index, name)] = position_of_value("line", node);
        }
    }
    auto const where = position_of_value("line", table);
    for (char const* const required : {"pin", "source"}) {
        if (!table.contains(required)) {
            complain(where, fmt::format("line.{}: missing, expected {}", required,
                                        find_key(io_line_schema(), fmt::format("line.{}", required))->expects));
        }
    }
    auto const& lines = loaded_.values.lines;
    if (line.pin != 0 && std::any_of(lines.begin(), lines.end(), [&](io_line const& l) { return l.pin == line.pin; })) {
        complain(where, "line.pin: this output already has a [[line]] table, expected one per output");
    }
    loaded_.values.lines.push_back(line);
}

template <typename target>
bool file_reader::read_value(schema_key<target> const& key, toml::node const& node, target& into) {
    if (key.read(node, into)) {
        return true;
    }
    auto const text = node.value_exact<std::string>();
    auto const renaming = text ? renaming_of_value(key.path, *text) : std::nullopt;
    auto const path = key.path.starts_with("line.") ? std::string("line") : key.path;
    complain(position_of_value(path, node), renaming.value_or(invalid_value(key, spelled(node))));
    return false;
}

void file_reader::refuse_unknown(toml::key const& key, std::string const& path, std::set<std::string> const& known) {
    bool const is_replaced = path.starts_with("line.") && replaced_.contains("line");
    complain(is_replaced ? in_option("line") : position_of(key.source()),
             renaming_of_key(path).value_or(
                 fmt::format("{}: unknown key, expected one of {}", path, fmt::join(known, ", "))));
}

/// Values that are valid on their own and not together.
void file_reader::check_combinations() {
    auto const& values = loaded_.values;
    if (values.camera.serial && !values.camera.model) {
        complain(loaded_.origins["camera.serial"],
                 "camera.serial: a serial number alone does not select a camera, camera.model is required");
    }
    if (!values.camera.model && values.camera.effective_mask() == 0) {
        complain(loaded_.origins["camera.active_mask"],
                 "camera.active_mask: 0 does not select a camera, set a bit or camera.model");
    }
    auto const has_no_colours = [](auto code) {
        auto const* const format = frame_format_of_code(code);
        return format == nullptr || format->cfa == colour_filter::none;
    };
    if (!has_no_colours(values.image.convert_to) && has_no_colours(values.image.format)) {
        complain(loaded_.origins["image.convert_to"],
                 "image.convert_to: a monochrome image.format cannot be converted to \"BayerRG8\", expected a"
                 " monochrome format");
    }
}

/// The default directory is not the file's but the working directory, which a user can write. The files that are read
/// here become absolute when they are.
void file_reader::complete_paths() {
    auto& values = loaded_.values;
    bool const is_configured = loaded_.origins.contains("output.directory");
    values.output.directory =
        is_configured ? complete(values.output.directory) : std::filesystem::absolute(values.output.directory).string();
    if (values.control.socket && values.control.socket != "none") {
        complete_socket("control.socket", *values.control.socket);
    }
    if (values.ring.socket) {
        complete_socket("ring.socket", *values.ring.socket);
    }
    if (values.web.token_file) {
        values.web.token_file = complete(*values.web.token_file);
    }
}

/// The schema limits the path as it is written.
void file_reader::complete_socket(char const* key, std::string& path) {
    constexpr std::size_t max_bytes = sizeof(sockaddr_un::sun_path) - 1;
    path = complete(path);
    if (path.size() > max_bytes) {
        complain(loaded_.origins[key],
                 fmt::format("{}: with the directory of the file, the path has {} bytes, expected at most {}", key,
                             path.size(), max_bytes));
    }
}

std::string file_reader::complete(std::string const& path) const {
    return std::filesystem::absolute(directory_ / path).lexically_normal().string();
}

/// Checks only the syntax of the address: the command line may replace it and add a token.
void file_reader::check_web() {
    auto const& values = loaded_.values;
    auto const check = [this](char const* path, auto const& checked) {
        try {
            checked();
        } catch (std::runtime_error const& error) {
            complain(loaded_.origins[path], fmt::format("{}: {}", path, error.what()));
        }
    };
    if (values.web.address) {
        check("web.address", [&] { parse_web_address(*values.web.address); });
    }
    if (values.web.public_origin) {
        check("web.public_origin", [&] { parse_public_origin(*values.web.public_origin); });
    }
}

/// A group may be created later, as by a package or a directory service.
void file_reader::check_groups() {
    auto const check = [this](char const* path, std::optional<std::string> const& name) {
        if (name && !group_number(*name)) {
            complain(loaded_.origins[path], fmt::format("{}: there is no group \"{}\"", path, *name), true);
        }
    };
    check("control.group", loaded_.values.control.group);
    check("ring.group", loaded_.values.ring.group);
}

void file_reader::check_broker() {
    auto const& values = loaded_.values;
    auto const check = [this](char const* path, auto const& checked) {
        try {
            checked();
        } catch (std::invalid_argument const& error) {
            complain(loaded_.origins[path], fmt::format("{}: {}", path, error.what()));
        }
    };
    if (values.mqtt.broker) {
        check("mqtt.broker", [&] { parse_broker_address(*values.mqtt.broker); });
    }
    check("mqtt.topic", [&] { check_topic(topic_of(values.mqtt, name_of(values))); });
    if (values.mqtt.topic.find("{instance}") != std::string::npos) {
        complain(loaded_.origins["mqtt.topic"],
                 "mqtt.topic: {instance} was renamed to {name}, which is replaced by camera.name");
    }
    if (values.mqtt.password_file && !values.mqtt.username) {
        complain(loaded_.origins["mqtt.password_file"], "mqtt.password_file: mqtt.username is required");
    }
    if (values.mqtt.certificate_file.has_value() != values.mqtt.key_file.has_value()) {
        char const* const path = values.mqtt.key_file ? "mqtt.key_file" : "mqtt.certificate_file";
        complain(loaded_.origins[path],
                 fmt::format("{}: mqtt.certificate_file and mqtt.key_file require each other", path));
    }
}

/// Makes a path absolute and checks the file.
void file_reader::check_file(char const* key, std::optional<std::string>& name,
                             std::function<void(std::string const&)> const& check) {
    if (!name) {
        return;
    }
    name = complete(*name);
    try {
        check(*name);
    } catch (std::system_error const& error) {
        complain(loaded_.origins[key], fmt::format("{}: {}: {}", key, *name, error.what()), true);
    } catch (std::exception const& error) {
        complain(loaded_.origins[key], fmt::format("{}: {}: {}", key, *name, error.what()));
    }
}

void file_reader::read_files() {
    auto& values = loaded_.values;
    check_file("mqtt.password_file", values.mqtt.password_file, [](auto const& file) { read_password(file); });
    check_file("mqtt.ca_file", values.mqtt.ca_file, [](auto const& file) { check_pem(file); });
    check_file("mqtt.certificate_file", values.mqtt.certificate_file, [](auto const& file) { check_pem(file); });
    check_file("mqtt.key_file", values.mqtt.key_file, [](auto const& file) { check_key(file); });
    try {
        read_named_files(loaded_.values, directory_);
    } catch (unavailable_error const& error) {
        complain(loaded_.origins["tone.lut"], std::string("tone.lut: ") + error.what(), true);
    } catch (std::runtime_error const& error) {
        complain(loaded_.origins["tone.lut"], std::string("tone.lut: ") + error.what());
    }
}

}  // namespace

configuration_error::configuration_error(std::filesystem::path const& file, std::vector<configuration_fault> faults)
    : std::runtime_error(listed(file, faults)), faults_(std::move(faults)) {}

bool configuration_error::temporary() const {
    return std::ranges::all_of(faults_, &configuration_fault::temporary);
}

namespace {

/// Whether an error in opening a file is a state of the machine rather than a wrong name or missing permissions.
bool is_temporary(std::error_code const& code) {
    for (auto const permanent :
         {std::errc::no_such_file_or_directory, std::errc::not_a_directory, std::errc::permission_denied,
          std::errc::too_many_symbolic_link_levels, std::errc::filename_too_long}) {
        if (code == permanent) {
            return false;
        }
    }
    return true;
}

}  // namespace

loaded_configuration load_configuration(std::filesystem::path const& file, std::vector<setting> const& replaced) {
    std::string text;
    try {
        text = read_bounded_file(file, max_configuration_file);
    } catch (std::system_error const& error) {
        throw configuration_error(file, {{.where = {}, .what = error.what(), .temporary = is_temporary(error.code())}});
    } catch (std::exception const& error) {
        throw configuration_error(file, {{.where = {}, .what = error.what(), .temporary = false}});
    }
    return parse_configuration(text, file, replaced);
}

loaded_configuration parse_configuration(std::string const& text, std::filesystem::path const& file,
                                         std::vector<setting> const& replaced) {
    toml::table root;
    try {
        root = toml::parse(text, file.string());
    } catch (toml::parse_error const& error) {
        throw configuration_error(
            file,
            {{.where = position_of(error.source()), .what = std::string(error.description()), .temporary = false}});
    }
    file_reader reader(std::move(root), file.parent_path(), replaced);
    auto faults = reader.take_faults();
    if (!faults.empty()) {
        std::stable_sort(faults.begin(), faults.end(), [](auto const& a, auto const& b) {
            return std::pair(a.where.line, a.where.column) < std::pair(b.where.line, b.where.column);
        });
        throw configuration_error(file, std::move(faults));
    }
    auto loaded = reader.take_result();
    loaded.values.file_text = text;
    return loaded;
}

void read_named_files(configuration& values, std::filesystem::path const& directory) {
    values.tone.lut = nullptr;
    if (!values.tone.has_lut_file()) {
        return;
    }
    auto const file = std::filesystem::absolute(directory / *values.tone.lut_file).lexically_normal();
    values.tone.lut_file = file.string();
    try {
        values.tone.lut = interned_lut(scaled_lut(read_lut_file(file), values.tone.lut_bits));
    } catch (std::system_error const& error) {
        throw unavailable_error(file.string() + ": " + error.what());
    } catch (std::exception const& error) {
        throw std::runtime_error(file.string() + ": " + error.what());
    }
}

std::vector<std::string> unused_values(loaded_configuration const& loaded) {
    auto const& values = loaded.values;
    bool const any_automatic =
        values.exposure.automatic == auto_mode::continuous || values.gain.automatic == auto_mode::continuous;
    std::vector<std::string> remarks;
    auto const remark = [&](char const* path, bool used, char const* condition) {
        if (loaded.origins.contains(path) && !used) {
            remarks.push_back(fmt::format("{} has no effect: it requires {}", path, condition));
        }
    };
    remark("exposure.time_us", values.exposure.automatic == auto_mode::off, "exposure.auto = \"Off\"");
    remark("exposure.limits_us", values.exposure.automatic == auto_mode::continuous, "exposure.auto = \"Continuous\"");
    remark("gain.db", values.gain.automatic == auto_mode::off, "gain.auto = \"Off\"");
    remark("gain.limits_db", values.gain.automatic == auto_mode::continuous, "gain.auto = \"Continuous\"");
    remark("auto.brightness", any_automatic, "exposure.auto or gain.auto = \"Continuous\"");
    bool const in_12_bits = frame_format_of_code(values.image.format)->significant_bits > 8;
    remark("tone.gamma", values.tone.enable, "tone.enable = true");
    remark("tone.gamma", !values.tone.has_lut_file(), "a configuration without tone.lut");
    remark("tone.lut", values.tone.enable, "tone.enable = true");
    remark("tone.lut", !in_12_bits, "an image.format with 8 bits");
    bool const in_tiff = values.output.format == output_format::tiff || values.output.format == output_format::bigtiff;
    remark("output.compression", in_tiff, "output.format = \"tiff\" or \"bigtiff\"");
    remark("pretrigger.trigger_on_loss", values.pretrigger.seconds > 0.0, "pretrigger.seconds above 0");
    remark("control.group", values.control.socket != "none", "a control.socket");
    remark("ring.group", values.ring.socket.has_value(), "ring.socket");
    remark("web.token_file", values.web.address.has_value(), "web.address");
    remark("web.public_origin", values.web.address.has_value(), "web.address");
    remark("tone.lut_bits", values.tone.has_lut_file(), "tone.lut");
    for (char const* const path :
         {"mqtt.topic", "mqtt.frames", "mqtt.health_interval_s", "mqtt.username", "mqtt.password_file", "mqtt.ca_file",
          "mqtt.certificate_file", "mqtt.key_file", "mqtt.queue_frames"}) {
        remark(path, values.mqtt.broker.has_value(), "mqtt.broker");
    }
    remark("mqtt.queue_frames", values.mqtt.frames, "mqtt.frames = true");
    bool const encrypted = values.mqtt.broker && values.mqtt.broker->starts_with("mqtts:");
    for (char const* const path : {"mqtt.ca_file", "mqtt.certificate_file", "mqtt.key_file"}) {
        remark(path, encrypted || !values.mqtt.broker, "an mqtts:// broker");
    }
    return remarks;
}

std::vector<std::string> remarks(loaded_configuration const& loaded) {
    constexpr unsigned dark = (1U << lut_value_bits) / 8;  ///< a LUT of 8-bit values read as 12 bits stays below
    auto all = unused_values(loaded);
    auto const* const table = loaded.values.tone.lut;
    if (table != nullptr && *std::max_element(table->begin(), table->end()) < dark) {
        all.emplace_back("tone.lut makes every image nearly black: does tone.lut_bits match the integers in the file?");
    }
    if (loaded.values.mqtt.password_file && loaded.values.mqtt.broker.value_or("").starts_with("mqtt:")) {
        all.emplace_back("mqtt.broker is not encrypted: the password is sent in plain text, use mqtts://");
    }
    return all;
}

}  // namespace mediagrabber
