#include "configuration_file.hpp"

#include <algorithm>
#include <functional>
#include <set>
#include <sstream>
#include <utility>

#include "bounded_file.hpp"
#include "configuration_schema.hpp"
#include "lookup_table_file.hpp"
#include "telemetry/broker_address.hpp"
#include "telemetry/broker_login.hpp"
#include "telemetry/topic.hpp"
#include "web/web_address.hpp"

namespace mediagrabber {

namespace {

std::string listed(std::filesystem::path const& file, std::vector<configuration_fault> const& faults) {
    std::string text;
    for (auto const& fault : faults) {
        text += text.empty() ? "" : "\n";
        text += file.string() + ":";
        if (fault.where.line != 0) {
            text += std::to_string(fault.where.line) + ":" + std::to_string(fault.where.column) + ":";
        }
        text += " " + fault.what;
    }
    return text;
}

file_position position_of(toml::source_region const& region) {
    return {.line = region.begin.line, .column = region.begin.column};
}

/// A value as the file spells it, shortened; tables and lists by their kind.
std::string spelled(toml::node const& node) {
    constexpr std::size_t longest = 60;
    if (node.is_table()) {
        return "a table";
    }
    std::ostringstream text;
    node.visit([&text](auto const& value) { text << value; });
    std::string const whole = text.str();
    return whole.size() <= longest ? whole : whole.substr(0, longest) + "...";
}

/// Goes through a parsed file and takes every value over that is as it should be; collects what is not.
class file_reader {
public:
    /// \param directory  of the configuration file
    file_reader(toml::table const& root, std::filesystem::path directory) : directory_(std::move(directory)) {
        read_root(root);
    }

    loaded_configuration take_result() { return std::move(loaded_); }
    std::vector<configuration_fault> take_faults() { return std::move(faults_); }

private:
    void read_root(toml::table const& root);
    void read_table(std::string const& name, toml::table const& table);
    void read_lines(toml::node const& node);
    void read_line(std::size_t index, toml::table const& table);
    template <typename target>
    bool read_value(schema_key<target> const& key, toml::node const& node, target& into);
    void refuse_unknown(toml::key const& key, std::string const& path, std::set<std::string> const& known);
    void check_together();
    void check_broker();
    void check_web();
    void read_files();
    void check_file(char const* key, std::optional<std::string>& name,
                    std::function<void(std::string const&)> const& check);
    void complain(file_position where, std::string what) { faults_.push_back({where, std::move(what)}); }

    std::filesystem::path const directory_;
    loaded_configuration loaded_;
    std::vector<configuration_fault> faults_;
};

/// The names of the tables that the schema has keys in.
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
            std::ostringstream text;
            text << name << ": " << spelled(node) << " is no table, expected [" << name << ']';
            complain(position_of(node.source()), text.str());
        }
    }
    check_together();
    check_broker();
    check_web();
    read_files();
}

void file_reader::read_table(std::string const& name, toml::table const& table) {
    for (auto&& [key, node] : table) {
        std::string const path = name + "." + std::string(key.str());
        auto const* const known = find_key(configuration_schema(), path);
        if (known == nullptr) {
            refuse_unknown(key, path, known_keys(configuration_schema(), name));
        } else if (read_value(*known, node, loaded_.values)) {
            loaded_.origins[path] = position_of(node.source());
        }
    }
}

void file_reader::read_lines(toml::node const& node) {
    auto const* const tables = node.as_array();
    if (tables == nullptr || !tables->is_array_of_tables()) {
        complain(position_of(node.source()), "line: expected one [[line]] table for each output");
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
            loaded_.origins["line." + std::to_string(index) + "." + name] = position_of(node.source());
        }
    }
    auto const where = position_of(table.source());
    for (char const* const required : {"pin", "source"}) {
        if (!table.contains(required)) {
            complain(where, std::string("line.") + required + ": missing, expected " +
                                find_key(io_line_schema(), std::string("line.") + required)->expects);
        }
    }
    auto const& lines = loaded_.values.lines;
    if (line.pin != 0 && std::any_of(lines.begin(), lines.end(), [&](io_line const& l) { return l.pin == line.pin; })) {
        complain(where, "line.pin: this output has a [[line]] table already, expected each at most once");
    }
    loaded_.values.lines.push_back(line);
}

template <typename target>
bool file_reader::read_value(schema_key<target> const& key, toml::node const& node, target& into) {
    if (key.read(node, into)) {
        return true;
    }
    complain(position_of(node.source()), key.path + ": " + spelled(node) + " is refused, expected " + key.expects +
                                             (key.unit.empty() ? "" : " (" + key.unit + ")"));
    return false;
}

void file_reader::refuse_unknown(toml::key const& key, std::string const& path, std::set<std::string> const& known) {
    std::string text = path + ": unknown, expected one of";
    for (auto const& name : known) {
        text += (name == *known.begin() ? " " : ", ") + name;
    }
    complain(position_of(key.source()), text);
}

/// Values that are right each for itself and not together.
void file_reader::check_together() {
    auto const& values = loaded_.values;
    if (values.serial && !values.model) {
        complain(loaded_.origins["camera.serial"],
                 "camera.serial: a serial number alone selects no camera, expected camera.model beside it");
    }
    if (!values.model && values.effective_mask() == 0) {
        complain(loaded_.origins["camera.active_mask"],
                 "camera.active_mask: 0 selects no camera, expected a bit that is set, or camera.model");
    }
    constexpr std::uint8_t bayer = 9;
    if (values.convert_to == bayer && values.format != bayer) {
        complain(loaded_.origins["image.convert_to"],
                 "image.convert_to: a monochrome picture has no colours to make \"bayer_rg8\" of, expected a"
                 " monochrome format");
    }
}

/// A command line may still give what is missing, so only the address is looked at.
void file_reader::check_web() {
    auto& values = loaded_.values;
    if (values.web_token_file) {
        values.web_token_file = std::filesystem::absolute(directory_ / *values.web_token_file).lexically_normal();
    }
    try {
        if (values.web_address) {
            parse_web_address(*values.web_address);
        }
    } catch (std::runtime_error const& error) {
        complain(loaded_.origins["web.address"], std::string("web.address: ") + error.what());
    }
}

void file_reader::check_broker() {
    auto const& values = loaded_.values;
    auto const check = [this](char const* path, auto const& checked) {
        try {
            checked();
        } catch (std::invalid_argument const& error) {
            complain(loaded_.origins[path], std::string(path) + ": " + error.what());
        }
    };
    if (values.mqtt_broker) {
        check("mqtt.broker", [&] { parse_broker_address(*values.mqtt_broker); });
    }
    check("mqtt.topic", [&] { check_topic(topic_of(values)); });
    if (values.mqtt_password_file && !values.mqtt_username) {
        complain(loaded_.origins["mqtt.password_file"],
                 "mqtt.password_file: a password alone is nobody's, expected mqtt.username beside it");
    }
    if (values.mqtt_certificate_file.has_value() != values.mqtt_key_file.has_value()) {
        char const* const path = values.mqtt_key_file ? "mqtt.key_file" : "mqtt.certificate_file";
        complain(loaded_.origins[path],
                 std::string(path) + ": expected mqtt.certificate_file and mqtt.key_file beside each other");
    }
}

/// Makes a name whole, and looks into the file.
void file_reader::check_file(char const* key, std::optional<std::string>& name,
                             std::function<void(std::string const&)> const& check) {
    if (!name) {
        return;
    }
    name = std::filesystem::absolute(directory_ / *name).lexically_normal().string();
    try {
        check(*name);
    } catch (std::exception const& error) {
        complain(loaded_.origins[key], std::string(key) + ": " + *name + ": " + error.what());
    }
}

void file_reader::read_files() {
    auto& values = loaded_.values;
    check_file("mqtt.password_file", values.mqtt_password_file, [](auto const& file) { read_password(file); });
    check_file("mqtt.ca_file", values.mqtt_ca_file, [](auto const& file) { check_pem(file); });
    check_file("mqtt.certificate_file", values.mqtt_certificate_file, [](auto const& file) { check_pem(file); });
    check_file("mqtt.key_file", values.mqtt_key_file, [](auto const& file) { check_key(file); });
    try {
        read_named_files(loaded_.values, directory_);
    } catch (std::runtime_error const& error) {
        complain(loaded_.origins["tone.lut"], std::string("tone.lut: ") + error.what());
    }
}

}  // namespace

configuration_error::configuration_error(std::filesystem::path const& file, std::vector<configuration_fault> faults)
    : std::runtime_error(listed(file, faults)), faults_(std::move(faults)) {}

loaded_configuration load_configuration(std::filesystem::path const& file) {
    std::string text;
    try {
        text = read_bounded_file(file, largest_configuration_file);
    } catch (std::exception const& error) {
        throw configuration_error(file, {{{}, error.what()}});
    }
    return parse_configuration(text, file);
}

loaded_configuration parse_configuration(std::string const& text, std::filesystem::path const& file) {
    toml::table root;
    try {
        root = toml::parse(text, file.string());
    } catch (toml::parse_error const& error) {
        throw configuration_error(file, {{position_of(error.source()), std::string(error.description())}});
    }
    file_reader reader(root, file.parent_path());
    auto faults = reader.take_faults();
    if (!faults.empty()) {
        std::stable_sort(faults.begin(), faults.end(), [](auto const& a, auto const& b) {
            return std::pair(a.where.line, a.where.column) < std::pair(b.where.line, b.where.column);
        });
        throw configuration_error(file, std::move(faults));
    }
    return reader.take_result();
}

void read_named_files(configuration& values, std::filesystem::path const& directory) {
    values.lut = nullptr;
    if (!values.lut_file) {
        return;
    }
    auto const file = std::filesystem::absolute(directory / *values.lut_file).lexically_normal();
    values.lut_file = file.string();
    try {
        values.lut = kept_table(finished_table(read_table_file(file), values.lut_bits));
    } catch (std::exception const& error) {
        throw std::runtime_error(file.string() + ": " + error.what());
    }
}

std::vector<std::string> unused_values(loaded_configuration const& loaded) {
    auto const& values = loaded.values;
    bool const any_automatic =
        values.exposure_mode == control_mode::automatic || values.gain_mode == control_mode::automatic;
    std::vector<std::string> remarks;
    auto const remark = [&](char const* path, bool used, char const* condition) {
        if (loaded.origins.contains(path) && !used) {
            remarks.push_back(std::string(path) + " has no effect: it needs " + condition);
        }
    };
    remark("exposure.time_us", values.exposure_mode == control_mode::manual, "exposure.mode = \"manual\"");
    remark("exposure.limits_us", values.exposure_mode == control_mode::automatic, "exposure.mode = \"auto\"");
    remark("gain.db", values.gain_mode == control_mode::manual, "gain.mode = \"manual\"");
    remark("gain.limits_db", values.gain_mode == control_mode::automatic, "gain.mode = \"auto\"");
    remark("auto.brightness", any_automatic, "exposure.mode or gain.mode = \"auto\"");
    bool const in_twelve_bits = values.format == 2 || values.format == 3;
    remark("tone.gamma", values.tone_enabled, "tone.enable = true");
    remark("tone.gamma", !values.lut_file, "a configuration without tone.lut");
    remark("tone.lut", values.tone_enabled, "tone.enable = true");
    remark("tone.lut", !in_twelve_bits, "an image.format of 8 bits");
    bool const in_tiff = values.output == output_format::tiff || values.output == output_format::bigtiff;
    remark("output.compression", in_tiff, "output.format = \"tiff\" or \"bigtiff\"");
    remark("output.keep_when_lost", values.keep_s > 0.0, "output.keep_s above 0");
    remark("web.token_file", values.web_address.has_value(), "web.address");
    remark("tone.lut_bits", values.lut_file.has_value(), "tone.lut");
    for (char const* const path :
         {"mqtt.topic", "mqtt.frames", "mqtt.health_interval_s", "mqtt.username", "mqtt.password_file", "mqtt.ca_file",
          "mqtt.certificate_file", "mqtt.key_file", "mqtt.queue"}) {
        remark(path, values.mqtt_broker.has_value(), "mqtt.broker");
    }
    remark("mqtt.queue", values.mqtt_frames, "mqtt.frames = true");
    bool const encrypted = values.mqtt_broker && values.mqtt_broker->starts_with("mqtts:");
    for (char const* const path : {"mqtt.ca_file", "mqtt.certificate_file", "mqtt.key_file"}) {
        remark(path, encrypted || !values.mqtt_broker, "an mqtt.broker that begins with mqtts://");
    }
    return remarks;
}

std::vector<std::string> remarks(loaded_configuration const& loaded) {
    constexpr unsigned dark = (1U << table_value_bits) / 8;
    auto all = unused_values(loaded);
    auto const* const table = loaded.values.lut;
    if (table != nullptr && *std::max_element(table->begin(), table->end()) < dark) {
        all.emplace_back("tone.lut makes everything nearly black: is tone.lut_bits what the file's integers have?");
    }
    if (loaded.values.mqtt_password_file && loaded.values.mqtt_broker.value_or("").starts_with("mqtt:")) {
        all.emplace_back("mqtt.broker is not encrypted: the password can be read on the network, mqtts:// hides it");
    }
    return all;
}

}  // namespace mediagrabber
