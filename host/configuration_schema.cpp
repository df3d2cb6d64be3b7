#include "configuration_schema.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "pixel_format.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t longest_path = 4096;

/// The value behind a field, which may be optional.
template <typename field>
struct value_of {
    using type = field;
};
template <typename value>
struct value_of<std::optional<value>> {
    using type = value;
};

/// The shortest spelling without an exponent that reads back as the same number.
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

/// A text as TOML; control characters as their numbers.
std::string quoted(std::string const& text) {
    constexpr char digits[] = "0123456789ABCDEF";
    constexpr unsigned delete_character = 0x7F;
    std::string spelled = "\"";
    for (char const c : text) {
        auto const code = static_cast<unsigned char>(c);
        if (code < ' ' || code == delete_character) {
            spelled += std::string("\\u00") + digits[code >> 4U] + digits[code & 0xFU];
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

/// What documentation says of a key, beside its type.
struct description {
    char const* path;
    char const* unit;
    char const* default_text;
    char const* getter;
    change_effect effect;
    char const* meaning;
};

template <typename target>
schema_key<target> described(description const& text, std::string const& expects) {
    return {.path = text.path,
            .expects = expects,
            .unit = text.unit,
            .default_text = text.default_text,
            .meaning = text.meaning,
            .getter = text.getter,
            .effect = text.effect,
            .read = {},
            .show = {},
            .differs = {}};
}

template <typename target, typename field>
schema_key<target> integer_key(description const& text, field target::*member, std::int64_t low, std::int64_t high) {
    using number = typename value_of<field>::type;
    auto key = described<target>(text, "an integer from " + spell(low) + " to " + spell(high));
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

/// A finite number within limits; TOML's integers are numbers, too.
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
    auto key = described<target>(text, "a number from " + spell(low) + " to " + spell(high));
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

template <typename field>
configuration_key limits_key(description const& text, field configuration::*member, double low, double high) {
    auto key = described<configuration>(text, "[low, high], two numbers from " + spell(low) + " to " + spell(high) +
                                                  ", the low one below the high one");
    key.read = [member, low, high](toml::node const& node, configuration& into) {
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
    key.show = [member](configuration const& from) {
        return show_field(from.*member,
                          [](limits const& pair) { return "[" + spell(pair.low) + ", " + spell(pair.high) + "]"; });
    };
    return key;
}

template <typename target>
schema_key<target> switch_key(description const& text, bool target::*member) {
    auto key = described<target>(text, "true or false");
    key.read = [member](toml::node const& node, target& into) {
        auto const value = node.value_exact<bool>();
        into.*member = value.value_or(into.*member);
        return value.has_value();
    };
    key.show = [member](target const& from) { return std::string(from.*member ? "true" : "false"); };
    return key;
}

template <typename field>
configuration_key text_key(description const& text, field configuration::*member, std::size_t longest) {
    auto key = described<configuration>(text, "a text of 1 to " + spell(longest) + " bytes");
    key.read = [member, longest](toml::node const& node, configuration& into) {
        auto const value = node.value_exact<std::string>();
        bool const fits = value && !value->empty() && value->size() <= longest && value->find('\0') == value->npos;
        if (fits) {
            into.*member = *value;
        }
        return fits;
    };
    key.show = [member](configuration const& from) { return show_field(from.*member, quoted); };
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
    auto key = described<target>(text, one_of(choices));
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

/// An integer, or a word that stands for "no number".
template <typename number>
configuration_key integer_or_word_key(description const& text, std::optional<number> configuration::*member,
                                      std::int64_t low, std::int64_t high, std::string const& word) {
    auto key = integer_key(text, member, low, high);
    key.expects += " or " + quoted(word);
    key.read = [member, word, integer = key.read](toml::node const& node, configuration& into) {
        if (node.value_exact<std::string>() == word) {
            into.*member = std::nullopt;
            return true;
        }
        return integer(node, into);
    };
    key.show = [member, word](configuration const& from) {
        return from.*member ? spell(*(from.*member)) : quoted(word);
    };
    return key;
}

/// The file of a table. Reading it is left to who knows what its name is relative to; a table that has become another
/// one under the same name is a change.
configuration_key table_key(description const& text) {
    auto key = text_key(text, &configuration::lut_file, longest_path);
    key.differs = [](configuration const& before, configuration const& after) {
        return before.lut_file != after.lut_file || before.lut != after.lut;
    };
    return key;
}

configuration_key rotation_key(description const& text) {
    auto key = described<configuration>(text, "0 or 180");
    key.read = [](toml::node const& node, configuration& into) {
        auto const value = node.value_exact<std::int64_t>();
        std::int64_t const degrees = value.value_or(-1);
        bool const known = degrees == 0 || degrees == 180;
        into.rotate = known ? static_cast<std::int32_t>(degrees) : into.rotate;
        return known;
    };
    key.show = [](configuration const& from) { return spell(from.rotate); };
    return key;
}

/// Any of the plug-in's log sinks; none of them with an empty list.
configuration_key sinks_key(description const& text) {
    static named_values<std::uint32_t> const sinks{{"stdout", 1}, {"syslog", 2}};
    auto key = described<configuration>(text, "a list of texts, each " + one_of(sinks));
    key.read = [](toml::node const& node, configuration& into) {
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
        into.log_sinks = chosen;
        return true;
    };
    key.show = [](configuration const& from) {
        std::string list;
        for (auto const& [name, bit] : sinks) {
            if ((from.log_sinks & bit) != 0) {
                list += (list.empty() ? "" : ", ") + quoted(name);
            }
        }
        return "[" + list + "]";
    };
    return key;
}

named_values<std::uint8_t> format_choices() {
    named_values<std::uint8_t> choices;
    for (pixel_format const& format : pixel_formats) {
        choices.emplace_back(format.key, format.code);
    }
    return choices;
}

named_values<std::uint8_t> conversion_choices() {
    auto choices = format_choices();
    choices.insert(choices.begin(), {"none", std::uint8_t{0}});
    return choices;
}

named_values<control_mode> const& mode_choices() {
    static named_values<control_mode> const choices{
        {"untouched", control_mode::untouched}, {"manual", control_mode::manual}, {"auto", control_mode::automatic}};
    return choices;
}

// ---- The tables of a configuration file, each as the keys that it may hold ----------------------

using keys = std::vector<configuration_key>;
using enum change_effect;

constexpr char as_in_camera[] = "as the camera has it";
constexpr std::int64_t largest_side = 65'535;
constexpr std::int64_t largest_count = 4'294'967'294;  ///< one below 2^32 - 1: the plug-in is asked for one frame more
constexpr std::int64_t most_buffers = 512;             ///< what the layer below queues at most
constexpr double longest_exposure_us = 1e8;
constexpr double highest_gain_db = 60.0;
constexpr double longest_wait_s = 86'400.0;
constexpr std::size_t longest_socket_path = 107;  ///< what a Unix address has room for
constexpr std::size_t longest_web_address = 300;
constexpr std::size_t longest_broker_address = 300;
constexpr std::size_t longest_topic = 1024;
constexpr std::size_t longest_username = 1024;
constexpr std::int64_t most_queued_messages = 65'536;

keys camera_keys() {
    return {
        text_key({"camera.model", "", "any", "MgGiMainCtx__GetModelStr", new_run,
                  "Model name of the camera to grab from, exactly as the camera reports it."},
                 &configuration::model, 255),
        text_key({"camera.serial", "", "any", "MgGiMainCtx__GetIdStr", new_run,
                  "Serial number of the camera; needs camera.model."},
                 &configuration::serial, 255),
        integer_key({"camera.active_mask", "", "1 without camera.model, else 0", "MgGiMainCtx__GetActiveCamMask",
                     new_run, "Bit i selects the camera at index i of the list that `mediagrabber cameras` prints."},
                    &configuration::active_mask, 0, 4'294'967'295),
    };
}

keys image_keys() {
    return {
        integer_key({"image.width", "pixels", as_in_camera, "MgGiMainCtx__GetWidth", new_run, "Width of the region."},
                    &configuration::width, 1, largest_side),
        integer_key(
            {"image.height", "pixels", as_in_camera, "MgGiMainCtx__GetHeight", new_run, "Height of the region."},
            &configuration::height, 1, largest_side),
        integer_key(
            {"image.offset_x", "pixels", as_in_camera, "MgGiMainCtx__GetOffsetX", new_run, "Left edge of the region."},
            &configuration::offset_x, 0, largest_side),
        integer_key(
            {"image.offset_y", "pixels", as_in_camera, "MgGiMainCtx__GetOffsetY", new_run, "Upper edge of the region."},
            &configuration::offset_y, 0, largest_side),
        choice_key({"image.format", "", "\"mono8\"", "MgGiMainCtx__GetFormat", new_run,
                    "Pixel format of the camera: Mono8, Mono12Packed, Mono12 or BayerRG8."},
                   &configuration::format, format_choices()),
        choice_key({"image.convert_to", "", "\"none\"", "MgGiMainCtx__GetCformat", new_run,
                    "Format that frames are converted to; files then hold the converted frames."},
                   &configuration::convert_to, conversion_choices()),
        rotation_key(
            {"image.rotate", "degrees", "0", "MgGiMainCtx__GetRotate", reconfiguration, "How far frames are turned."}),
    };
}

keys transport_and_timing_keys() {
    return {
        integer_or_word_key({"transport.packet_size", "bytes", "\"auto\"", "MgGiMainCtx__GetDatachunk", new_run,
                             "GigE Vision packet size, headers included; \"auto\" negotiates it with the camera."},
                            &configuration::packet_size, 576, 9000, "auto"),
        number_key(
            {"timing.frame_rate", "frames/s", as_in_camera, "MgGiMainCtx__GetFps", reconfiguration, "Frame rate."},
            &configuration::frame_rate, 0.01, 100'000.0),
        integer_key({"timing.clock_correction", "ns/s", "0", "MgGiMainCtx__GetTsadjns", small_change,
                     "How much slower the camera's clock runs than the host's. Other than 0, frames are stamped by the"
                     " camera's clock, corrected by it; 0 stamps them with host time."},
                    &configuration::clock_correction, -100'000'000, 100'000'000),
    };
}

keys exposure_and_gain_keys() {
    return {
        choice_key({"exposure.mode", "", "\"untouched\"", "MgGiMainCtx__GetSweepEtimeMod", small_change,
                    "Who sets the exposure time: this file, the camera's automatic, or nobody."},
                   &configuration::exposure_mode, mode_choices()),
        number_key({"exposure.time_us", "us", as_in_camera, "MgGiMainCtx__GetExptMan", small_change,
                    "Exposure time; used with exposure.mode \"manual\"."},
                   &configuration::exposure_time_us, 0.1, longest_exposure_us),
        limits_key({"exposure.limits_us", "us", as_in_camera, "MgGiMainCtx__GetEtlimsLow, MgGiMainCtx__GetEtlimsHigh",
                    small_change, "Limits of the automatic exposure; used with exposure.mode \"auto\"."},
                   &configuration::exposure_limits_us, 1.0, longest_exposure_us),
        choice_key({"gain.mode", "", "\"untouched\"", "MgGiMainCtx__GetSweepGainMod", small_change,
                    "Who sets the gain: this file, the camera's automatic, or nobody."},
                   &configuration::gain_mode, mode_choices()),
        number_key({"gain.db", "dB", as_in_camera, "MgGiMainCtx__GetGainMan", small_change,
                    "Gain; used with gain.mode \"manual\"."},
                   &configuration::gain_db, -highest_gain_db, highest_gain_db),
        limits_key({"gain.limits_db", "dB", as_in_camera, "MgGiMainCtx__GetGainlimsLow, MgGiMainCtx__GetGainlimsHigh",
                    small_change, "Limits of the automatic gain; used with gain.mode \"auto\"."},
                   &configuration::gain_limits_db, -highest_gain_db, highest_gain_db),
        number_key({"auto.brightness", "fraction of full scale", as_in_camera, "MgGiMainCtx__GetAtbright", small_change,
                    "Brightness that the automatic functions aim at; used with a mode \"auto\"."},
                   &configuration::brightness, 0.0, 1.0),
        switch_key({"auto.area", "", "false", "MgGiMainCtx__GetSweepProf", small_change,
                    "Whether the automatic functions measure in the camera's own area instead of the whole picture."},
                   &configuration::auto_area),
        switch_key({"tone.enable", "", "false", "MgGiMainCtx__GetSweepLutMod", small_change,
                    "Whether the camera's look-up table and gamma are configured at all."},
                   &configuration::tone_enabled),
        number_key({"tone.gamma", "", as_in_camera, "MgGiMainCtx__GetGamma", small_change,
                    "Gamma, 1 switches it off; used with tone.enable, and without tone.lut."},
                   &configuration::gamma, 0.01, 10.0),
        table_key({"tone.lut", "", "none", "MgGiMainCtx__GetLutDataU16, MgGiMainCtx__GetLutArrCount", small_change,
                   "File of a look-up table for the camera (.csv, .txt, .tif, .tiff or .npy), read with this file and"
                   " relative to it; used with tone.enable."}),
        integer_key({"tone.lut_bits", "bits", "those of the file's type", "MgGiMainCtx__GetLutBitSize", small_change,
                     "Full scale of the integers in tone.lut: 12 where 4095 is white."},
                    &configuration::lut_bits, 8, 16),
        number_key({"tone.contrast_limit", "", "4", "", small_change,
                    "Of a look-up table calculated from the picture: its steepest slope, as a multiple of the straight"
                    " line's."},
                   &configuration::contrast_limit, 1.0, 1000.0),
        limits_key({"tone.percentiles", "% of the pixels", "[0, 100]", "", small_change,
                    "Of a look-up table calculated from the picture: pixels below and above become black and white."},
                   &configuration::percentiles, 0.0, 100.0),
    };
}

keys memory_and_run_keys() {
    return {
        integer_key({"memory.buffers", "frames", "16", "MgGiMainCtx__GetBnum", new_run,
                     "Frame buffers that the camera writes to in turn."},
                    &configuration::buffers, 2, most_buffers),
        integer_key({"memory.export_buffers", "frames", "16", "", next_start,
                     "Frames that may wait for the disk. One that finds this many waiting is lost, and counted."},
                    &configuration::export_buffers, 1, most_buffers),
        integer_key(
            {"run.frames", "frames", "0", "MgGiMainCtx__GetFnum", next_start, "Frames to record, 0 for no limit."},
            &configuration::frames, 0, largest_count),
        number_key({"run.grace_time_s", "s", "5", "", next_start,
                    "How long after a request to stop, or after the last frame that came since, mediagrabber ends"
                    " without the plug-in."},
                   &configuration::grace_time_s, 0.1, longest_wait_s),
        number_key({"run.retry_interval_s", "s", "2", "", next_start,
                    "Pause before the plug-in is called again after it failed."},
                   &configuration::retry_interval_s, 0.0, longest_wait_s),
        integer_or_word_key({"run.give_up_after", "attempts", "0", "", next_start,
                             "Attempts to go on after a failure, in a row without a frame, before mediagrabber ends."},
                            &configuration::give_up_after, 0, 1'000'000, "never"),
    };
}

keys output_and_control_keys() {
    return {
        text_key(
            {"output.directory", "", "\"recording\"", "", next_start,
             "Where frames.jsonl and the frames are written; created when missing. {time} in it is when the recording"
             " begins, as 20261121T173318Z."},
            &configuration::directory, longest_path),
        choice_key({"output.format", "", "\"tiff\"", "", next_start,
                    "What is written of a frame beside its line in frames.jsonl: a TIFF file, a page of frames.tif"
                    " (BigTIFF), its pixels to frames.raw, or nothing."},
                   &configuration::output,
                   named_values<output_format>{{"tiff", output_format::tiff},
                                               {"bigtiff", output_format::bigtiff},
                                               {"raw", output_format::raw},
                                               {"none", output_format::none}}),
        choice_key(
            {"output.compression", "", "\"none\"", "", next_start, "Lossless compression of \"tiff\" and \"bigtiff\"."},
            &configuration::compression,
            named_values<tiff_compression>{{"none", tiff_compression::none},
                                           {"lzw", tiff_compression::lzw},
                                           {"deflate", tiff_compression::deflate}}),
        text_key({"output.pipeline", "", "none", "", next_start,
                  "GStreamer pipeline that gets every frame, too, as gst-launch-1.0 takes it, beginning behind the"
                  " source. In it {directory} is that of the recording, and {n} counts how often the pipeline has"
                  " begun, from 1."},
                 &configuration::pipeline, longest_path),
        number_key({"output.keep_s", "s", "0", "", next_start,
                    "How long frames are held in memory, to be written only on `mediagrabber signal PID keep`; 0 writes"
                    " them as they come."},
                   &configuration::keep_s, 0.0, 3600.0),
        switch_key({"output.keep_when_lost", "", "false", "", next_start,
                    "With output.keep_s: whether frames are written when one was lost, too."},
                   &configuration::keep_when_lost),
        text_key({"control.socket", "", "by user and instance", "", next_start,
                  "Unix socket that `mediagrabber set` speaks to, mode 0600; \"none\": none."},
                 &configuration::control_socket, longest_socket_path),
        text_key({"web.address", "", "none, no page", "", next_start,
                  "Address and port of the live page, \"127.0.0.1:8080\"."},
                 &configuration::web_address, longest_web_address),
        text_key({"web.token_file", "", "none", "", next_start,
                  "File with the token that the page asks for; needed for an address that other machines reach."},
                 &configuration::web_token_file, longest_path),
        text_key({"ring.socket", "", "none", "", next_start,
                  "Unix socket at which other programs of this user get to read frames from memory, mode 0600."},
                 &configuration::ring_socket, longest_socket_path),
    };
}

keys mqtt_keys() {
    return {
        text_key({"mqtt.broker", "", "none, no messages", "", next_start,
                  "Broker that messages go to, \"mqtt://HOST:1883\", encrypted \"mqtts://HOST:8883\"."},
                 &configuration::mqtt_broker, longest_broker_address),
        text_key({"mqtt.topic", "", "\"mediagrabber/{instance}\"", "", next_start,
                  "What the topics of this recording begin with; {instance} in it is log.instance."},
                 &configuration::mqtt_topic, longest_topic),
        switch_key({"mqtt.frames", "", "false", "", next_start,
                    "Whether a message tells of each frame, as its line in frames.jsonl does."},
                   &configuration::mqtt_frames),
        number_key(
            {"mqtt.health_interval_s", "s", "10", "", next_start, "How often a message tells how the recording goes."},
            &configuration::mqtt_health_interval_s, 0.1, longest_wait_s),
        text_key({"mqtt.username", "", "none", "", next_start, "Name that the broker knows this program by."},
                 &configuration::mqtt_username, longest_username),
        text_key({"mqtt.password_file", "", "none", "", next_start,
                  "File whose first line is the password, not accessible to other users; needs mqtt.username. Relative"
                  " to this file, as the three below."},
                 &configuration::mqtt_password_file, longest_path),
        text_key({"mqtt.ca_file", "", "the system's authorities", "", next_start,
                  "Certificates (PEM) of the authorities that the broker's certificate may come from; used with"
                  " mqtts."},
                 &configuration::mqtt_ca_file, longest_path),
        text_key({"mqtt.certificate_file", "", "none", "", next_start,
                  "Certificate (PEM) that this program shows the broker; used with mqtts, needs mqtt.key_file."},
                 &configuration::mqtt_certificate_file, longest_path),
        text_key({"mqtt.key_file", "", "none", "", next_start,
                  "Key (PEM, without a passphrase) of mqtt.certificate_file, not accessible to other users."},
                 &configuration::mqtt_key_file, longest_path),
        integer_key({"mqtt.queue", "frames", "1024", "", next_start,
                     "Frames whose messages wait for the broker at most; then the oldest are given up, and counted."},
                    &configuration::mqtt_queue, 1, most_queued_messages),
    };
}

keys log_keys() {
    return {
        choice_key(
            {"log.level", "", "\"warning\"", "", small_change, "What the plug-in logs."}, &configuration::log_level,
            named_values<std::uint32_t>{{"nothing", 0}, {"error", 1}, {"warning", 2}, {"info", 3}, {"debug", 4}}),
        sinks_key({"log.sinks", "", "[\"stdout\"]", "", small_change,
                   "Where the plug-in logs to. As a service, whose output"
                   " goes to the journal, to the system log unless this is given."}),
        integer_key({"log.instance", "", "0", "", next_start, "Number in the system log's ident, \"mediagrabber.0\"."},
                    &configuration::log_instance, 0, 4'294'967'295),
    };
}

std::vector<configuration_key> all_keys() {
    std::vector<configuration_key> all;
    for (auto const table : {camera_keys, image_keys, transport_and_timing_keys, exposure_and_gain_keys,
                             memory_and_run_keys, output_and_control_keys, mqtt_keys, log_keys}) {
        auto some = table();
        std::move(some.begin(), some.end(), std::back_inserter(all));
    }
    return all;
}

std::string effect_text(change_effect effect) {
    switch (effect) {
        case small_change:
        case reconfiguration:
            return "while grabbing";
        case new_run:
            return "with a new run";
        case next_start:
            return "at the next start";
    }
    return {};
}

template <typename target>
std::string reference_row(schema_key<target> const& key) {
    return "| `" + key.path + "` | " + key.expects + " | " + key.unit + " | " + key.default_text + " | " +
           effect_text(key.effect) + " | " + key.meaning + " |\n";
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
        choice_key({"line.pin", "", "none, it has to be given", "MgGiMainCtx__GetIoboxNum, MgGiMainCtx__GetIoboxPin",
                    small_change, "The output that a [[line]] table is about; each at most once."},
                   &io_line::pin, named_values<std::uint32_t>{{"Out1", 5}, {"Out2", 6}}),
        choice_key(
            {"line.source", "", "none, it has to be given", "MgGiMainCtx__GetIoboxSrc", small_change,
             "What the output shows: nothing, or whether the sensor is exposed."},
            &io_line::source,
            named_values<line_source>{{"low", line_source::low}, {"exposure_active", line_source::exposure_active}}),
        switch_key(
            {"line.inverted", "", "false", "MgGiMainCtx__GetIoboxInv", small_change, "Whether the output is inverted."},
            &io_line::inverted),
    };
    return schema;
}

std::string configuration_reference() {
    std::string table =
        "| key | value | unit | default | a reload changes it | meaning |\n"
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
    if (effect == small_change && show_lines(before.lines) != show_lines(after.lines)) {
        changed.emplace_back("line");
    }
    return changed;
}

}  // namespace mediagrabber
