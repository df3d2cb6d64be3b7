// SPDX-License-Identifier: MIT
#include "config/configuration_schema.hpp"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <utility>

#include "config/camera_name.hpp"
#include "frames/frame_format.hpp"

namespace mediagrabber {

namespace {

using nlohmann::json;

constexpr std::size_t max_path = 4096;  ///< PATH_MAX of Linux
constexpr std::size_t max_group = 32;   ///< what useradd accepts

/// The type of a field's value, without std::optional.
template <typename field>
struct value_of {
    using type = field;
};
template <typename value>
struct value_of<std::optional<value>> {
    using type = value;
};

/// The shortest decimal text without an exponent that reads back as the same number.
template <typename number>
std::string spell(number value) {
    std::array<char, 512> text{};
    char* const first = text.data();
    char* const last = first + text.size();
    if constexpr (std::is_floating_point_v<number>) {
        return {first, std::to_chars(first, last, value, std::chars_format::fixed).ptr};
    } else {
        return {first, std::to_chars(first, last, value).ptr};
    }
}

/// A string as TOML, with control characters escaped.
std::string quoted(std::string const& text) {
    constexpr unsigned delete_character = 0x7F;
    std::string spelled = "\"";
    for (char const c : text) {
        auto const code = static_cast<unsigned char>(c);
        if (code < ' ' || code == delete_character) {
            spelled += fmt::format("\\u{:04X}", code);
        } else {
            spelled += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
        }
    }
    return spelled + '"';
}

template <typename field>
std::string show_field(field const& value, auto const& spelling) {
    if constexpr (std::is_same_v<field, typename value_of<field>::type>) {
        return spelling(value);
    } else {
        return value ? spelling(*value) : std::string();
    }
}

/// What the manual states about a key, beside its type.
struct description {
    char const* path;
    char const* unit;
    char const* default_text;
    char const* getter;
    change_effect effect;
    char const* meaning;
    char const* example = "";  ///< as TOML; only of keys without a default value
};

template <typename target>
schema_key<target> described(description const& text, std::string const& expects, json const& schema) {
    return {.path = text.path,
            .expects = expects,
            .json_schema = schema.dump(),
            .unit = text.unit,
            .default_text = text.default_text,
            .meaning = text.meaning,
            .example = text.example,
            .getter = text.getter,
            .effect = text.effect,
            .read = {},
            .show = {},
            .differs = {}};
}

template <typename target, typename field>
schema_key<target> integer_key(description const& text, field target::*member, std::int64_t low, std::int64_t high) {
    using number = typename value_of<field>::type;
    auto key = described<target>(text, fmt::format("an integer from {} to {}", low, high),
                                 {{"type", "integer"}, {"minimum", low}, {"maximum", high}});
    key.read = [member, low, high](toml::node const& node, target& into) {
        auto const value = node.value_exact<std::int64_t>();
        if (!value || *value < low || *value > high) {
            return false;
        }
        into.*member = static_cast<number>(*value);
        return true;
    };
    key.show = [member](target const& from) { return show_field(from.*member, spell<number>); };
    return key;
}

json number_schema(double low, double high) {
    return {{"type", "number"}, {"minimum", low}, {"maximum", high}};
}

/// JSON counts characters, of which no more than bytes fit.
json text_schema(std::size_t max_bytes) {
    return {{"type", "string"}, {"minLength", 1}, {"maxLength", max_bytes}};
}

json camera_name_schema() {
    auto schema = text_schema(max_camera_name);
    schema["pattern"] =
        R"(^[^ ./+#{}$\u0000-\u001f\u007f-\u009f]([^/+#{}\u0000-\u001f\u007f-\u009f]*[^ /+#{}\u0000-\u001f\u007f-\u009f])?$)";
    return schema;
}

/// A finite number within limits, as an integer or a float of TOML.
std::optional<double> number_within(toml::node const& node, double low, double high) {
    if (!node.is_number()) {
        return std::nullopt;
    }
    auto const value = node.value<double>();
    return value && std::isfinite(*value) && *value >= low && *value <= high ? value : std::nullopt;
}

template <typename target, typename field>
schema_key<target> number_key(description const& text, field target::*member, double low, double high) {
    using number = typename value_of<field>::type;
    auto key = described<target>(text, fmt::format("a number from {} to {}", spell(low), spell(high)),
                                 number_schema(low, high));
    key.read = [member, low, high](toml::node const& node, target& into) {
        auto const value = number_within(node, low, high);
        if (value) {
            into.*member = static_cast<number>(*value);
        }
        return value.has_value();
    };
    key.show = [member](target const& from) { return show_field(from.*member, spell<number>); };
    return key;
}

template <typename target, typename field>
schema_key<target> limits_key(description const& text, field target::*member, double low, double high) {
    auto key = described<target>(
        text, fmt::format("[low, high], two numbers from {} to {} with low < high", spell(low), spell(high)),
        {{"type", "array"}, {"items", number_schema(low, high)}, {"minItems", 2}, {"maxItems", 2}});
    key.read = [member, low, high](toml::node const& node, target& into) {
        auto const* const pair = node.as_array();
        if (pair == nullptr || pair->size() != 2) {
            return false;
        }
        auto const first = number_within(*pair->get(0), low, high);
        auto const second = number_within(*pair->get(1), low, high);
        if (!first || !second) {
            return false;
        }
        limits const found{.low = static_cast<float>(*first), .high = static_cast<float>(*second)};
        bool const rising = found.low < found.high;
        if (rising) {
            into.*member = found;
        }
        return rising;
    };
    key.show = [member](target const& from) {
        return show_field(from.*member, [](limits const& pair) {
            return fmt::format("[{}, {}]", spell(pair.low), spell(pair.high));
        });
    };
    return key;
}

template <typename target>
schema_key<target> clock_reference_key(description const& text, std::optional<measured_clock> target::*member) {
    auto key = described<target>(
        text, "[ticks, time_us, uncertainty_us], three integers from 0",
        {{"type", "array"}, {"items", {{"type", "integer"}, {"minimum", 0}}}, {"minItems", 3}, {"maxItems", 3}});
    key.read = [member](toml::node const& node, target& into) {
        auto const* const all = node.as_array();
        if (all == nullptr || all->size() != 3) {
            return false;
        }
        std::array<std::uint64_t, 3> values{};
        for (std::size_t i = 0; i < values.size(); ++i) {
            auto const one = all->get(i)->value_exact<std::int64_t>();
            if (!one || *one < 0) {
                return false;
            }
            values[i] = static_cast<std::uint64_t>(*one);
        }
        into.*member = measured_clock{.ticks = values[0], .time_us = values[1], .uncertainty_us = values[2]};
        return true;
    };
    key.show = [member](target const& from) {
        return show_field(from.*member, [](measured_clock const& one) {
            return fmt::format("[{}, {}, {}]", one.ticks, one.time_us, one.uncertainty_us);
        });
    };
    return key;
}

template <typename target>
schema_key<target> switch_key(description const& text, bool target::*member) {
    auto key = described<target>(text, "true or false", {{"type", "boolean"}});
    key.read = [member](toml::node const& node, target& into) {
        auto const value = node.value_exact<bool>();
        into.*member = value.value_or(into.*member);
        return value.has_value();
    };
    key.show = [member](target const& from) { return std::string(from.*member ? "true" : "false"); };
    return key;
}

template <typename target, typename field>
schema_key<target> text_key(description const& text, field target::*member, std::size_t max_bytes) {
    auto key = described<target>(text, fmt::format("a string of 1 to {} bytes", max_bytes), text_schema(max_bytes));
    key.read = [member, max_bytes](toml::node const& node, target& into) {
        auto const value = node.value_exact<std::string>();
        bool const fits = value && !value->empty() && value->size() <= max_bytes && value->find('\0') == value->npos;
        if (fits) {
            into.*member = *value;
        }
        return fits;
    };
    key.show = [member](target const& from) { return show_field(from.*member, quoted); };
    return key;
}

template <typename target>
schema_key<target> name_key(description const& text, std::optional<std::string> target::*member) {
    auto key = described<target>(text, expected_camera_name(), camera_name_schema());
    key.read = [member](toml::node const& node, target& into) {
        auto const value = node.value_exact<std::string>();
        bool const valid = value && is_camera_name(*value);
        if (valid) {
            into.*member = *value;
        }
        return valid;
    };
    key.show = [member](target const& from) { return show_field(from.*member, quoted); };
    return key;
}

template <typename value>
using named_values = std::vector<std::pair<std::string, value>>;

template <typename value>
std::string one_of(named_values<value> const& choices) {
    std::string text = "one of";
    for (std::size_t i = 0; i < choices.size(); ++i) {
        text += (i == 0 ? " " : ", ") + quoted(choices[i].first);
    }
    return text;
}

template <typename value>
json names_of(named_values<value> const& choices) {
    auto names = json::array();
    for (auto const& [name, meant] : choices) {
        names.push_back(name);
    }
    return names;
}

template <typename value>
value const* find_named(named_values<value> const& choices, toml::node const& node) {
    auto const name = node.value_exact<std::string>();
    for (auto const& [known, meant] : choices) {
        if (name && *name == known) {
            return &meant;
        }
    }
    return nullptr;
}

template <typename target, typename field>
schema_key<target> choice_key(description const& text, field target::*member, named_values<field> const& choices) {
    auto key = described<target>(text, one_of(choices), {{"enum", names_of(choices)}});
    key.read = [member, choices](toml::node const& node, target& into) {
        auto const* const chosen = find_named(choices, node);
        if (chosen != nullptr) {
            into.*member = *chosen;
        }
        return chosen != nullptr;
    };
    key.show = [member, choices](target const& from) {
        for (auto const& [name, meant] : choices) {
            if (meant == from.*member) {
                return quoted(name);
            }
        }
        return std::string();
    };
    return key;
}

/// An integer, or a word that means "no number".
template <typename target, typename number>
schema_key<target> integer_or_word_key(description const& text, std::optional<number> target::*member, std::int64_t low,
                                       std::int64_t high, std::string const& word) {
    auto key = integer_key(text, member, low, high);
    key.expects += " or " + quoted(word);
    key.json_schema = json{{"anyOf", {json::parse(key.json_schema), {{"const", word}}}}}.dump();
    key.read = [member, word, integer = key.read](toml::node const& node, target& into) {
        if (node.value_exact<std::string>() == word) {
            into.*member = std::nullopt;
            return true;
        }
        return integer(node, into);
    };
    key.show = [member, word](target const& from) { return from.*member ? spell(*(from.*member)) : quoted(word); };
    return key;
}

/// The group of a Unix socket.
template <typename target>
schema_key<target> group_key(char const* path, std::optional<std::string> target::*member) {
    return text_key<target>(
        {path, "", "none", "", change_effect::next_start,
         "Name or number of a group whose members may connect, too; the socket then has mode 0660. The user of the"
         " recording must be a member or root.",
         R"("video")"},
        member, max_group);
}

/// The LUT file. The key only stores the path; read_named_files reads the file, because the path is relative to the
/// configuration file. A file with changed contents is a change.
schema_key<tone_configuration> lut_key(description const& text) {
    auto key = text_key(text, &tone_configuration::lut_file, max_path);
    key.differs = [](tone_configuration const& before, tone_configuration const& after) {
        return before.lut_file != after.lut_file || before.lut != after.lut;
    };
    return key;
}

schema_key<image_configuration> rotation_key(description const& text) {
    auto key = described<image_configuration>(text, "0 or 180", {{"enum", {0, 180}}});
    key.read = [](toml::node const& node, image_configuration& into) {
        auto const value = node.value_exact<std::int64_t>();
        std::int64_t const degrees = value.value_or(-1);
        bool const known = degrees == 0 || degrees == 180;
        into.rotation_deg = known ? static_cast<std::int32_t>(degrees) : into.rotation_deg;
        return known;
    };
    key.show = [](image_configuration const& from) { return spell(from.rotation_deg); };
    return key;
}

/// A set of the plug-in's log sinks; an empty list selects none.
schema_key<log_configuration> sinks_key(description const& text) {
    static named_values<std::uint32_t> const sinks{{"stdout", log_sink_stdout}, {"syslog", log_sink_syslog}};
    auto key = described<log_configuration>(text, "a list of strings, each " + one_of(sinks),
                                            {{"type", "array"}, {"items", {{"enum", names_of(sinks)}}}});
    key.read = [](toml::node const& node, log_configuration& into) {
        auto const* const list = node.as_array();
        if (list == nullptr) {
            return false;
        }
        std::uint32_t chosen = 0;
        for (toml::node const& element : *list) {
            auto const* const sink = find_named(sinks, element);
            if (sink == nullptr) {
                return false;
            }
            chosen |= *sink;
        }
        into.sinks = chosen;
        return true;
    };
    key.show = [](log_configuration const& from) {
        std::string list;
        for (auto const& [name, bit] : sinks) {
            if ((from.sinks & bit) != 0) {
                list += (list.empty() ? "" : ", ") + quoted(name);
            }
        }
        return "[" + list + "]";
    };
    return key;
}

named_values<format_code> format_choices() {
    named_values<format_code> choices;
    for (frame_format const& format : frame_formats) {
        choices.emplace_back(format.name, format.code);
    }
    return choices;
}

named_values<format_code> conversion_choices() {
    auto choices = format_choices();
    choices.insert(choices.begin(), {"none", format_code::none});
    return choices;
}

named_values<auto_mode> const& mode_choices() {
    static named_values<auto_mode> const choices{
        {"unchanged", auto_mode::unchanged}, {"Off", auto_mode::off}, {"Continuous", auto_mode::continuous}};
    return choices;
}

// ---- Tables of the configuration file, with their keys -------------------------------------------

using keys = std::vector<configuration_key>;
using enum change_effect;

/// Makes the key of a part a key of the configuration that contains the part.
template <typename part>
configuration_key key_of(part configuration::*member, schema_key<part> const& key) {
    configuration_key lifted{
        .path = key.path,
        .expects = key.expects,
        .json_schema = key.json_schema,
        .unit = key.unit,
        .default_text = key.default_text,
        .meaning = key.meaning,
        .example = key.example,
        .getter = key.getter,
        .effect = key.effect,
        .read = [member, read = key.read](toml::node const& node,
                                          configuration& into) { return read(node, into.*member); },
        .show = [member, show = key.show](configuration const& from) { return show(from.*member); },
        .differs = {}};
    if (key.differs) {
        lifted.differs = [member, differs = key.differs](configuration const& before, configuration const& after) {
            return differs(before.*member, after.*member);
        };
    }
    return lifted;
}

template <typename part>
keys keys_of(part configuration::*member, std::vector<schema_key<part>> const& table) {
    keys lifted;
    for (auto const& key : table) {
        lifted.push_back(key_of(member, key));
    }
    return lifted;
}

constexpr char camera_value[] = "as set in the camera";
constexpr std::int64_t max_side = 65'535;
constexpr std::int64_t max_frames = 4'294'967'294;  ///< one below 2^32 - 1, because the plug-in receives one more
constexpr std::int64_t max_buffers = 512;           ///< what openpv queues at most, GetQueuedBufferMaximum()
constexpr double max_exposure_us = 1e8;             ///< 100 s; the camera applies its own limits
constexpr double max_gain_db = 60.0;                ///< the camera applies its own limits
constexpr double max_wait_s = 86'400.0;             ///< a day
constexpr double max_segment_s = 86'400.0;          ///< a day, so that a segment does not span two dates
constexpr double max_keep_days = 36'500.0;          ///< a hundred years
constexpr double max_bytes = 1e15;
constexpr std::size_t max_camera_text = 255;  ///< GigE Vision limits both strings to less
constexpr std::size_t max_socket_path = 107;  ///< sockaddr_un::sun_path without its terminating zero
constexpr std::size_t max_address = 300;      ///< a host name of 253 characters, scheme, brackets and port
constexpr std::size_t max_topic = 1024;       ///< MQTT allows 65,535 bytes
constexpr std::size_t max_username = 1024;
constexpr std::int64_t max_queued_messages = 65'536;

keys camera_keys() {
    using part = camera_configuration;
    return keys_of<part>(
        &configuration::camera,
        {name_key({"camera.name", "", "of a service its instance's name, otherwise log.instance", "", next_start,
                   "Name of the recording. It replaces {name} in output.directory and mqtt.topic, and identifies the"
                   " recording in metrics, messages, the page, the log and the path of the control socket.",
                   R"("left")"},
                  &part::name),
         text_key({"camera.model", "", "any", "MgGiMainCtx__GetModelStr", restart,
                   "Model name of the camera to use, exactly as the camera reports it.", R"("GO-5100M-PGE")"},
                  &part::model, max_camera_text),
         text_key({"camera.serial", "", "any", "MgGiMainCtx__GetIdStr", restart,
                   "Serial number of the camera to use. Requires camera.model.", R"("U500001")"},
                  &part::serial, max_camera_text),
         integer_key(
             {"camera.active_mask", "", "1 without camera.model, otherwise 0", "MgGiMainCtx__GetActiveCamMask", restart,
              "Bit i selects the camera at index i of the list that `mediagrabber cameras` prints.", "1"},
             &part::active_mask, 0, 4'294'967'295)});
}

keys image_keys() {
    using part = image_configuration;
    return keys_of<part>(
        &configuration::image,
        {integer_key({"image.width", "pixels", camera_value, "MgGiMainCtx__GetWidth", restart,
                      "Width of the region of interest.", "1280"},
                     &part::width, 1, max_side),
         integer_key({"image.height", "pixels", camera_value, "MgGiMainCtx__GetHeight", restart,
                      "Height of the region of interest.", "1024"},
                     &part::height, 1, max_side),
         integer_key({"image.offset_x", "pixels", camera_value, "MgGiMainCtx__GetOffsetX", restart,
                      "Left edge of the region of interest.", "0"},
                     &part::offset_x, 0, max_side),
         integer_key({"image.offset_y", "pixels", camera_value, "MgGiMainCtx__GetOffsetY", restart,
                      "Upper edge of the region of interest.", "0"},
                     &part::offset_y, 0, max_side),
         choice_key({"image.format", "", "\"Mono8\"", "MgGiMainCtx__GetFormat", restart,
                     "Pixel format of the camera, as GenICam's PixelFormat names it. Mono12Packed is GigE Vision's"
                     " packing, two pixels in three bytes."},
                    &part::format, format_choices()),
         choice_key({"image.convert_to", "", "\"none\"", "MgGiMainCtx__GetCformat", restart,
                     "Pixel format that frames are converted to. The converted frames are saved."},
                    &part::convert_to, conversion_choices()),
         rotation_key({"image.rotation_deg", "degrees", "0", "MgGiMainCtx__GetRotate", reconfiguration,
                       "Rotation of the frames."})});
}

keys transport_keys() {
    using part = transport_configuration;
    return keys_of<part>(
        &configuration::transport,
        {integer_or_word_key({"transport.packet_size_bytes", "bytes", "\"auto\"", "MgGiMainCtx__GetDatachunk", restart,
                              "GigE Vision packet size including IP, UDP and GVSP headers. \"auto\" negotiates the"
                              " size with the camera."},
                             &part::packet_size_bytes, 576, 9000, "auto")});
}

keys timing_keys() {
    using part = timing_configuration;
    return keys_of<part>(
        &configuration::timing,
        {number_key({"timing.frame_rate_hz", "frames/s", camera_value, "MgGiMainCtx__GetFps", reconfiguration,
                     "Frame rate.", "25"},
                    &part::frame_rate_hz, 0.01, 100'000.0),
         integer_key({"timing.clock_correction_ppb", "ns/s", "0", "MgGiMainCtx__GetTsadjns", live_update,
                      "How much slower the camera clock runs than the host clock; `mediagrabber calibrate` measures it."
                      " With a value other than 0, timestamps come from the camera clock, corrected by this value; with"
                      " 0 they come from the host clock."},
                     &part::clock_correction_ppb, -100'000'000, 100'000'000),
         number_key({"timing.tick_frequency_hz", "Hz", "found from the frames", "", restart,
                     "Frequency of the camera's timestamp, for `time_us` of the frames. The drift of the camera"
                     " clock is known only with this value or if the frequency is a round number.",
                     "66666667"},
                    &part::tick_frequency_hz, 1.0, 1e12),
         clock_reference_key({"timing.clock_reference", "ticks, us since 1970, us", "none", "", live_update,
                              "What the camera clock showed at a time of this machine, and the uncertainty of that, as"
                              " `gevctl clock --reference` prints it. With it, `time_us` of the frames does not contain"
                              " the constant part of the delay. Valid until either clock is set or the camera is"
                              " switched off.",
                              "[5000000000, 1790000000000000, 40]"},
                             &part::clock_reference)});
}

keys exposure_keys() {
    using part = exposure_configuration;
    return keys_of<part>(
        &configuration::exposure,
        {choice_key({"exposure.auto", "", "\"unchanged\"", "MgGiMainCtx__GetSweepEtimeMod", live_update,
                     "Exposure mode: \"Off\" sets exposure.time_us, \"Continuous\" enables automatic exposure,"
                     " \"unchanged\" leaves the camera's mode."},
                    &part::automatic, mode_choices()),
         number_key({"exposure.time_us", "us", camera_value, "MgGiMainCtx__GetExptMan", live_update,
                     "Exposure time. Requires exposure.auto = \"Off\".", "1000"},
                    &part::time_us, 0.1, max_exposure_us),
         limits_key(
             {"exposure.limits_us", "us", camera_value, "MgGiMainCtx__GetEtlimsLow, MgGiMainCtx__GetEtlimsHigh",
              live_update, "Limits of automatic exposure. Requires exposure.auto = \"Continuous\".", "[100, 10000]"},
             &part::limits_us, 1.0, max_exposure_us)});
}

keys gain_keys() {
    using part = gain_configuration;
    return keys_of<part>(
        &configuration::gain,
        {choice_key({"gain.auto", "", "\"unchanged\"", "MgGiMainCtx__GetSweepGainMod", live_update,
                     "Gain mode: \"Off\" sets gain.db, \"Continuous\" enables automatic gain, \"unchanged\" leaves the"
                     " camera's mode."},
                    &part::automatic, mode_choices()),
         number_key({"gain.db", "dB", camera_value, "MgGiMainCtx__GetGainMan", live_update,
                     "Gain. Requires gain.auto = \"Off\".", "6"},
                    &part::db, -max_gain_db, max_gain_db),
         limits_key({"gain.limits_db", "dB", camera_value, "MgGiMainCtx__GetGainlimsLow, MgGiMainCtx__GetGainlimsHigh",
                     live_update, "Limits of automatic gain. Requires gain.auto = \"Continuous\".", "[0, 12]"},
                    &part::limits_db, -max_gain_db, max_gain_db)});
}

keys automatic_keys() {
    using part = automatic_configuration;
    return keys_of<part>(
        &configuration::automatic,
        {number_key({"auto.brightness", "fraction of full scale", camera_value, "MgGiMainCtx__GetAtbright", live_update,
                     "Target brightness of automatic exposure and gain. Requires exposure.auto or gain.auto ="
                     " \"Continuous\".",
                     "0.5"},
                    &part::brightness, 0.0, 1.0),
         switch_key({"auto.area", "", "false", "MgGiMainCtx__GetSweepProf", live_update,
                     "Whether automatic exposure and gain measure in the area that is set in the camera instead of the"
                     " entire image."},
                    &part::area)});
}

keys tone_keys() {
    using part = tone_configuration;
    return keys_of<part>(
        &configuration::tone,
        {switch_key({"tone.enable", "", "false", "MgGiMainCtx__GetSweepLutMod", live_update,
                     "Whether the LUT and the gamma of the camera are configured."},
                    &part::enable),
         number_key(
             {"tone.gamma", "", camera_value, "MgGiMainCtx__GetGamma", live_update,
              "Gamma; 1 disables it. Requires tone.enable, and has no effect while tone.lut names a file.", "0.45"},
             &part::gamma, 0.01, 10.0),
         lut_key({"tone.lut", "", "as set in the camera", "MgGiMainCtx__GetLutDataU16, MgGiMainCtx__GetLutArrCount",
                  live_update,
                  "File with a LUT for the camera (.csv, .txt, .tif, .tiff or .npy), relative to the configuration"
                  " file and loaded together with it; \"none\" switches off any LUT that the camera has, also a"
                  " calculated one. Requires tone.enable.",
                  R"("lut.csv")"}),
         integer_key({"tone.lut_bits", "bits", "from the type of the file's values", "MgGiMainCtx__GetLutBitSize",
                      live_update, "Full scale of the integers in tone.lut, for example 12 where 4095 is white.", "12"},
                     &part::lut_bits, 8, 16),
         number_key({"tone.contrast_limit", "", "4", "", live_update,
                     "Maximum slope of a histogram-equalised LUT, as a multiple of the slope of the identity."},
                    &part::contrast_limit, 1.0, 1000.0),
         limits_key({"tone.percentiles", "% of the pixels", "[0, 100]", "", live_update,
                     "Percentiles of the pixel values that a histogram-equalised LUT maps to black and to white."},
                    &part::percentiles, 0.0, 100.0)});
}

keys memory_keys() {
    using part = memory_configuration;
    return keys_of<part>(
        &configuration::memory,
        {integer_key({"memory.buffers", "frames", "16", "MgGiMainCtx__GetBnum", restart,
                      "Frame buffers that the camera stream fills in turn."},
                     &part::buffers, 2, max_buffers),
         integer_key({"memory.export_buffers", "frames", "16", "", next_start,
                      "Capacity of the export queue. A frame that finds the queue full is dropped and counted."},
                     &part::export_buffers, 1, max_buffers)});
}

keys run_keys() {
    using part = run_configuration;
    return keys_of<part>(
        &configuration::run,
        {integer_key({"run.frames", "frames", "0", "MgGiMainCtx__GetFnum", next_start,
                      "Number of frames to record; 0: no limit."},
                     &part::frames, 0, max_frames),
         number_key({"run.grace_time_s", "s", "5", "", next_start,
                     "If the plug-in does not stop within this time after a stop request, or after the last frame that"
                     " arrived since, mediagrabber exits without it."},
                    &part::grace_time_s, 0.1, max_wait_s),
         number_key({"run.retry_interval_s", "s", "2", "", next_start,
                     "Delay before acquisition is restarted after a failure."},
                    &part::retry_interval_s, 0.0, max_wait_s),
         integer_or_word_key({"run.give_up_after", "attempts", "0", "", next_start,
                              "Number of consecutive restarts without a frame after which mediagrabber exits."},
                             &part::give_up_after, 0, 1'000'000, "never")});
}

keys output_keys() {
    using part = output_configuration;
    return keys_of<part>(
        &configuration::output,
        {text_key({"output.directory", "", "\"recording\" in the working directory", "", next_start,
                   "Directory for the frame index (frames.jsonl) and the frames; created if missing. {time} is replaced"
                   " by the start time of the recording or segment (UTC), for example 20261121T173318Z, {date} by its"
                   " date, 20261121, and {name} by camera.name."},
                  &part::directory, max_path),
         choice_key(
             {"output.format", "", "\"tiff\"", "", next_start,
              "How frames are saved beside the frame index: \"tiff\" one TIFF file per frame, \"bigtiff\" one page"
              " per frame in frames.tif (BigTIFF), \"hdf5\" frames and their metadata in frames.h5 (NeXus), \"raw\" "
              "pixels"
              " only, in frames.raw, \"none\" not at all."},
             &part::format,
             named_values<output_format>{{"tiff", output_format::tiff},
                                         {"bigtiff", output_format::bigtiff},
                                         {"hdf5", output_format::hdf5},
                                         {"raw", output_format::raw},
                                         {"none", output_format::none}}),
         choice_key({"output.compression", "", "\"none\"", "", next_start,
                     "Lossless compression of \"tiff\" and \"bigtiff\"."},
                    &part::compression,
                    named_values<tiff_compression>{{"none", tiff_compression::none},
                                                   {"lzw", tiff_compression::lzw},
                                                   {"deflate", tiff_compression::deflate}}),
         number_key({"output.segment_s", "s", "0", "", next_start,
                     "Maximum duration of a segment: the recording goes on in a new directory whenever the time of day"
                     " (UTC) is a multiple of this. 0: no limit. Requires {time} in the last part of"
                     " output.directory."},
                    &part::segment_s, 0.0, max_segment_s),
         integer_key({"output.segment_frames", "frames", "0", "", next_start,
                      "Maximum number of frames of a segment. 0: no limit. Requires {time}, too."},
                     &part::segment_frames, 0, max_frames),
         number_key({"output.keep_days", "days", "0", "", next_start,
                     "Age at which finished recordings and segments in output.directory are deleted, by the time of"
                     " their last frame. 0: never. Requires {time}, too."},
                    &part::keep_days, 0.0, max_keep_days),
         number_key({"output.keep_bytes", "bytes", "0", "", next_start,
                     "Size of all finished recordings and segments in output.directory above which the oldest are"
                     " deleted. 0: no limit. Requires {time}, too."},
                    &part::keep_bytes, 0.0, max_bytes),
         number_key({"output.min_free_bytes", "bytes", "0", "", next_start,
                     "Space on the file system below which the oldest finished recordings and segments in"
                     " output.directory are deleted. 0: none are. Requires {time}, too."},
                    &part::min_free_bytes, 0.0, max_bytes),
         switch_key({"output.delete_pretrigger", "", "false", "", next_start,
                     "Whether recordings of the pre-trigger buffer are deleted, too."},
                    &part::delete_pretrigger),
         text_key({"output.pipeline", "", "none", "", next_start,
                   "GStreamer pipeline that also receives every frame, in the syntax of gst-launch-1.0, without the"
                   " source. {directory} is replaced by the directory of the recording, {n} by the number of times that"
                   " the pipeline has been started, counted from 1.",
                   R"("videoconvert ! x264enc ! matroskamux ! filesink location={directory}/{n}.mkv")"},
                  &part::pipeline, max_path)});
}

keys pretrigger_keys() {
    using part = pretrigger_configuration;
    return keys_of<part>(
        &configuration::pretrigger,
        {number_key({"pretrigger.seconds", "s", "0", "", next_start,
                     "Duration of the pre-trigger buffer: frames stay in memory and are saved only on `mediagrabber"
                     " signal PID trigger`. 0 saves every frame as it arrives."},
                    &part::seconds, 0.0, 3600.0),
         switch_key({"pretrigger.trigger_on_loss", "", "false", "", next_start,
                     "Whether a lost frame triggers, too. Requires pretrigger.seconds."},
                    &part::trigger_on_loss)});
}

keys control_keys() {
    using part = control_configuration;
    return keys_of<part>(
        &configuration::control,
        {text_key({"control.socket", "", "by user and camera.name", "", next_start,
                   "Unix socket that `mediagrabber set`, `get`, `status` and `signal` connect to, mode 0600; \"none\""
                   " disables it.",
                   R"("none")"},
                  &part::socket, max_socket_path),
         group_key("control.group", &part::group)});
}

keys web_keys() {
    using part = web_configuration;
    return keys_of<part>(
        &configuration::web,
        {text_key({"web.address", "", "none, no page", "", next_start,
                   "Address and port of the live page, for example \"127.0.0.1:8080\".", R"("127.0.0.1:8080")"},
                  &part::address, max_address),
         text_key({"web.token_file", "", "none", "", next_start,
                   "File with the access token of the live page. Required if other machines can reach the address.",
                   R"("page-token")"},
                  &part::token_file, max_path),
         text_key(
             {"web.public_origin", "", "none", "", next_start,
              "Origin at which a reverse proxy serves the page, for example \"https://camera.example\". Requests for"
              " it are accepted, and cookies are Secure with https. Requires web.token_file.",
              R"("https://camera.example")"},
             &part::public_origin, max_address)});
}

keys ring_keys() {
    using part = ring_configuration;
    return keys_of<part>(
        &configuration::ring,
        {text_key({"ring.socket", "", "none", "", next_start,
                   "Unix socket through which other programs of this user map the frames in shared memory, mode 0600.",
                   R"("frames.sock")"},
                  &part::socket, max_socket_path),
         group_key("ring.group", &part::group)});
}

keys mqtt_keys() {
    using part = mqtt_configuration;
    return keys_of<part>(
        &configuration::mqtt,
        {text_key({"mqtt.broker", "", "none, no messages", "", next_start,
                   "MQTT broker, \"mqtt://HOST:1883\", with TLS \"mqtts://HOST:8883\".", R"("mqtts://broker.example")"},
                  &part::broker, max_address),
         text_key({"mqtt.topic", "", "\"mediagrabber/{name}\"", "", next_start,
                   "Prefix of all topics of this recording. {name} is replaced by camera.name."},
                  &part::topic, max_topic),
         switch_key({"mqtt.frames", "", "false", "", next_start,
                     "Whether a message is published for each frame, with the same content as its line in the frame"
                     " index."},
                    &part::frames),
         number_key({"mqtt.health_interval_s", "s", "10", "", next_start, "Interval of the health messages."},
                    &part::health_interval_s, 0.1, max_wait_s),
         text_key({"mqtt.username", "", "none", "", next_start, "User name for the broker.", R"("cell-1")"},
                  &part::username, max_username),
         text_key({"mqtt.password_file", "", "none", "", next_start,
                   "File with the password in its first line, not accessible to other users. Requires mqtt.username."
                   "",
                   R"("broker-password")"},
                  &part::password_file, max_path),
         text_key({"mqtt.ca_file", "", "the system's certificate authorities", "", next_start,
                   "Certificates (PEM) of the authorities that may have signed the broker's certificate. Requires an"
                   " mqtts:// broker.",
                   R"("authority.pem")"},
                  &part::ca_file, max_path),
         text_key({"mqtt.certificate_file", "", "none", "", next_start,
                   "Client certificate (PEM). Requires an mqtts:// broker and mqtt.key_file.", R"("client.pem")"},
                  &part::certificate_file, max_path),
         text_key({"mqtt.key_file", "", "none", "", next_start,
                   "Private key (PEM, without a passphrase) of mqtt.certificate_file, not accessible to other users.",
                   R"("client.key")"},
                  &part::key_file, max_path),
         integer_key(
             {"mqtt.queue_frames", "frames", "1024", "", next_start,
              "Maximum number of frame messages that wait for the broker. If more arrive, the oldest are dropped"
              " and counted."},
             &part::queue_frames, 1, max_queued_messages)});
}

keys log_keys() {
    using part = log_configuration;
    return keys_of<part>(
        &configuration::log,
        {choice_key(
             {"log.level", "", "\"warning\"", "", live_update, "Log level of the plug-in."}, &part::level,
             named_values<std::uint32_t>{{"nothing", 0}, {"error", 1}, {"warning", 2}, {"info", 3}, {"debug", 4}}),
         sinks_key({"log.sinks", "", "[\"stdout\"], as a service [\"syslog\"]", "", live_update,
                    "Where the plug-in logs to. A service is a mediagrabber whose standard output goes to the systemd"
                    " journal."}),
         integer_key(
             {"log.instance", "", "0", "", next_start,
              "Number for the plug-in, which it appends to its syslog ident: \"mediagrabber.0\". camera.name is the"
              " name for everything else."},
             &part::instance, 0, 4'294'967'295)});
}

std::vector<configuration_key> all_keys() {
    std::vector<configuration_key> all;
    for (auto const table : {camera_keys, image_keys, transport_keys, timing_keys, exposure_keys, gain_keys,
                             automatic_keys, tone_keys, memory_keys, run_keys, output_keys, pretrigger_keys,
                             control_keys, web_keys, ring_keys, mqtt_keys, log_keys}) {
        auto some = table();
        std::move(some.begin(), some.end(), std::back_inserter(all));
    }
    return all;
}

template <typename target>
std::string reference_row(schema_key<target> const& key) {
    return fmt::format("| `{}` | {} | {} | {} | {} | {} |\n", key.path, key.expects, key.unit, key.default_text,
                       effect_text(key.effect), key.meaning);
}

std::string show_lines(std::vector<io_line> const& lines) {
    std::string shown;
    for (io_line const& line : lines) {
        for (io_line_key const& key : io_line_schema()) {
            shown += key.show(line) + ",";
        }
    }
    return shown;
}

}  // namespace

std::vector<configuration_key> const& configuration_schema() {
    static std::vector<configuration_key> const schema = all_keys();
    return schema;
}

std::vector<io_line_key> const& io_line_schema() {
    static std::vector<io_line_key> const schema{
        choice_key({"line.pin", "", "none, required", "MgGiMainCtx__GetIoboxNum, MgGiMainCtx__GetIoboxPin", live_update,
                    "Output that a [[line]] table configures. Each output may have one table.", R"("Out1")"},
                   &io_line::pin, named_values<std::uint32_t>{{"Out1", 5}, {"Out2", 6}}),
        choice_key(
            {"line.source", "", "none, required", "MgGiMainCtx__GetIoboxSrc", live_update,
             "Signal of the output, as GenICam's LineSource names it: constantly low, or active during exposure.",
             R"("ExposureActive")"},
            &io_line::source,
            named_values<line_source>{{"Low", line_source::low}, {"ExposureActive", line_source::exposure_active}}),
        switch_key(
            {"line.inverted", "", "false", "MgGiMainCtx__GetIoboxInv", live_update, "Whether the output is inverted."},
            &io_line::inverted),
    };
    return schema;
}

std::string_view effect_text(change_effect effect) {
    switch (effect) {
        case live_update:
        case reconfiguration:
            return "while running";
        case restart:
            return "acquisition restarts";
        case next_start:
            return "at the next start";
    }
    return {};
}

std::string configuration_reference() {
    std::string table =
        "| Key | Value | Unit | Default | A change takes effect | Description |\n"
        "|---|---|---|---|---|---|\n";
    for (auto const& key : configuration_schema()) {
        table += reference_row(key);
    }
    for (auto const& key : io_line_schema()) {
        table += reference_row(key);
    }
    return table;
}

std::vector<std::string> changed_keys(configuration const& before, configuration const& after, change_effect effect) {
    std::vector<std::string> changed;
    for (auto const& key : configuration_schema()) {
        if (key.effect == effect && key.changed(before, after)) {
            changed.push_back(key.path);
        }
    }
    if (effect == live_update && show_lines(before.lines) != show_lines(after.lines)) {
        changed.emplace_back("line");
    }
    return changed;
}

}  // namespace mediagrabber
