// SPDX-License-Identifier: MIT
#include "main/command_line.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <CLI/CLI.hpp>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "device/sensor.hpp"
#include "faults/fault_file.hpp"
#include "features/camera_features.hpp"

namespace camsim {

namespace {

constexpr std::uint32_t max_sensor_side = 16384;  // a frame of Mono12 then has 512 MiB

/// Options as text, before interpret() converts each to a field of camera_options.
struct raw_options {
    std::string address = "127.0.0.1";
    std::string interface;
    std::string mac;
    std::string sensor = "2464x2056";
    std::string scene = "chart";
    std::string images;
    std::string pacing = "spread:0.5";
    std::string delay = "0";
    bool delay_acks = false;
    std::vector<std::string> missing_entries;
    std::string faults;
};

std::optional<std::uint32_t> parse_side(std::string_view text, std::uint32_t step) {
    std::uint32_t value = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    bool const number = error == std::errc{} && end == text.data() + text.size();
    bool const valid = number && value >= sensor::min_side && value <= max_sensor_side && value % step == 0;
    return valid ? std::optional(value) : std::nullopt;
}

void read_sensor_size(std::string const& text, scene_settings& scene) {
    std::size_t const cross = text.find('x');
    auto const width = parse_side(std::string_view(text).substr(0, cross), sensor::width_step);
    auto const height = cross == std::string::npos
                            ? std::nullopt
                            : parse_side(std::string_view(text).substr(cross + 1), sensor::height_step);
    if (!width || !height) {
        throw CLI::ValidationError("--sensor",
                                   "\"" + text +
                                       "\" is not a valid sensor size: use WIDTHxHEIGHT, 16 to 16384 each, width"
                                       " a multiple of 8, height a multiple of 2");
    }
    scene.sensor_width = *width;
    scene.sensor_height = *height;
}

void read_images(CLI::App const& app, raw_options const& raw, scene_settings& scene) {
    try {
        scene.images = image_set::read(raw.images);
    } catch (std::runtime_error const& error) {
        throw CLI::ValidationError("--images", error.what());
    }
    scene.sensor_width = scene.images->width() / sensor::width_step * sensor::width_step;
    scene.sensor_height = scene.images->height() / sensor::height_step * sensor::height_step;
    if (scene.sensor_width < sensor::min_side || scene.sensor_height < sensor::min_side) {
        throw CLI::ValidationError("--images", raw.images + ": the images are smaller than 16 x 16 pixels");
    }
    if (app.count("--noise") == 0) {
        scene.noise = 0.0;
    }
    if (app.count("--black-level") == 0) {
        scene.black_level = 0;
    }
}

std::uint64_t read_mac(std::string const& text) {
    std::uint64_t mac = 0;
    bool well_formed = text.size() == 17;
    for (std::size_t at = 0; well_formed && at < text.size(); at += 3) {
        unsigned byte = 0;
        auto const [end, error] = std::from_chars(text.data() + at, text.data() + at + 2, byte, 16);
        bool const separated = at + 2 == text.size() || text[at + 2] == ':';
        well_formed = error == std::errc{} && end == text.data() + at + 2 && separated;
        mac = mac << 8U | byte;
    }
    if (!well_formed) {
        throw CLI::ValidationError(
            "--mac", "\"" + text + "\" is not a valid MAC address: use six bytes as in 00:0c:df:12:34:56");
    }
    return mac;
}

ipv4_address read_address(raw_options const& raw) {
    if (!raw.interface.empty()) {
        auto const found = interface_named(raw.interface);
        if (!found) {
            throw CLI::ValidationError("--interface",
                                       "this host has no network interface " + raw.interface + " with an IPv4 address");
        }
        return found->address;
    }
    auto const address = parse_ipv4(raw.address);
    if (!address) {
        throw CLI::ValidationError("--address", "\"" + raw.address + "\" is not a valid IPv4 address");
    }
    return *address;
}

reduced_feature_set::entry read_missing_entry(std::string const& text) {
    std::size_t const equals = text.find('=');
    if (equals == std::string::npos) {
        throw CLI::ValidationError("--missing-entry", "\"" + text + "\" is not a valid entry: use FEATURE=ENTRY");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

/// \return the names of the camera's features, reduced by the options
/// \throws CLI::ValidationError if the options name a feature that the camera does not have
std::vector<std::string> names_of_features(camera_options const& options) {
    try {
        camera_state state(options, {}, {});
        return feature_names(camera_features(state));
    } catch (std::invalid_argument const& error) {
        throw CLI::ValidationError(error.what());
    }
}

fault_plan read_faults(std::string const& file, std::vector<std::string> const& features) {
    try {
        return read_fault_file(file, features);
    } catch (fault_text_error const& error) {
        throw CLI::ValidationError("--faults", error.what());
    }
}

void interpret(CLI::App const& app, raw_options const& raw, camera_options& options) {
    options.address = read_address(raw);
    read_sensor_size(raw.sensor, options.scene);
    options.scene.kind = raw.scene == "dim" ? scene_kind::dim : scene_kind::chart;
    if (!raw.images.empty()) {
        read_images(app, raw, options.scene);
    }
    if (!raw.mac.empty()) {
        options.mac = read_mac(raw.mac);
    }
    auto const pacing = parse_pacing(raw.pacing);
    if (!pacing) {
        throw CLI::ValidationError("--pacing",
                                   "\"" + raw.pacing +
                                       "\" is not a valid pacing: use burst, a rate in megabytes per second, or"
                                       " spread:FRACTION of the frame period, above 0 and up to 1");
    }
    options.pacing = *pacing;
    auto const delay = parse_network_delay(raw.delay);
    if (!delay) {
        throw CLI::ValidationError("--network-delay", "\"" + raw.delay +
                                                          "\" is not a valid delay: use MEAN or MEAN:DEVIATION in"
                                                          " milliseconds, 0 to 10000 each; a deviation needs a mean");
    }
    options.delay = *delay;
    options.delay.delay_acks = raw.delay_acks;
    std::ranges::transform(raw.missing_entries, std::back_inserter(options.feature_set.missing_entries),
                           read_missing_entry);
    auto const features = names_of_features(options);
    if (!raw.faults.empty()) {
        options.faults = read_faults(raw.faults, features);
    }
}

/// Adds an option with a fixed set of values.
template <typename enumeration>
void add_choice(CLI::App& app, char const* name, enumeration& target, char const* what,
                std::map<std::string, enumeration> const& values) {
    auto const chosen = std::ranges::find(values, target, &std::pair<std::string const, enumeration>::second);
    app.add_option(name, target, what)->transform(CLI::CheckedTransformer(values))->default_str(chosen->first);
}

void add_identity_options(CLI::App& app, camera_options& options, raw_options& raw) {
    app.add_option("--address", raw.address, "IPv4 address to listen on; must be one of this host")
        ->capture_default_str();
    app.add_option("--interface", raw.interface, "Network interface whose address to listen on")->excludes("--address");
    auto const up_to = [](std::size_t characters) {
        return CLI::Validator(
            [characters](std::string const& text) {
                return text.size() <= characters ? ""
                                                 : "must have at most " + std::to_string(characters) + " characters";
            },
            "");
    };
    app.add_option("--vendor", options.vendor, "Manufacturer name")->capture_default_str()->check(up_to(32));
    app.add_option("--model", options.model, "Model name")->capture_default_str()->check(up_to(32));
    app.add_option("--serial", options.serial, "Serial number")->capture_default_str()->check(up_to(16));
    app.add_option("--user-name", options.user_name, "User-defined name")->check(up_to(16));
    app.add_option("--mac", raw.mac, "MAC address; derived from the serial number by default");
}

void add_image_options(CLI::App& app, camera_options& options, raw_options& raw) {
    scene_settings& scene = options.scene;
    app.add_option("--sensor", raw.sensor, "Sensor size, WIDTHxHEIGHT")->capture_default_str();
    add_choice(
        app, "--limits", options.dependent_limits,
        "Limits of size and offset, and of frame rate and exposure time: dependent on each other, or independent:"
        " then AcquisitionStart checks the region, and a long exposure reduces the frame rate",
        {{"dependent", true}, {"independent", false}});
    app.add_option("--lut-max", options.max_lut_value,
                   "Maximum of LUTValue; cameras that accept 4096 have it for tables converted from a wider scale")
        ->capture_default_str()
        ->check(CLI::Range(1, 65'535));
    app.add_flag("--lut-locked-while-grabbing", options.lut_locked_while_acquiring,
                 "Lock look-up table, gamma and JAILUTMode during an acquisition");
    app.add_option("--images", raw.images,
                   "Expose the TIFF and PNG files of this directory in a loop, instead of a scene. The sensor has their"
                   " size; without --noise and --black-level, both are 0")
        ->excludes("--sensor");
    app.add_option("--scene", raw.scene, "Scene: a test chart, or a dark one with little contrast")
        ->excludes("--images")
        ->capture_default_str()
        ->check(CLI::IsMember({"chart", "dim"}));
    app.add_option("--seed", scene.seed, "Seed for image noise, network delay and faults")->capture_default_str();
    app.add_option("--black-level", scene.black_level, "12-bit value of a black pixel")
        ->capture_default_str()
        ->check(CLI::Range(0, 1023));
    app.add_option("--noise", scene.noise, "Standard deviation of the image noise at gain 1, in 12-bit values")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 256.0));
    app.add_option("--illumination", scene.illumination, "Brightness factor of the scene")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 1000.0));
}

void add_feature_set_options(CLI::App& app, camera_options& options, raw_options& raw) {
    auto const add = [&](char const* name, std::vector<std::string>& names, char const* what, char const* type) {
        app.add_option(name, names, what)->type_name(type)->allow_extra_args(false);
    };
    add("--missing-feature", options.feature_set.missing_features, "Feature that the camera lacks; may be repeated",
        "FEATURE");
    add("--missing-entry", raw.missing_entries, "Entry that an enumeration lacks; may be repeated", "FEATURE=ENTRY");
    app.add_flag("--xml-zip", options.xml_zip, "Offer the GenICam XML as a ZIP archive");
    app.add_flag("--xml-second-url", options.xml_second_url,
                 "Offer the GenICam XML at the second URL; the first names a file that does not exist");
    add("--refuse-write", options.feature_set.refused_writes,
        "Feature whose writes fail although it is described as writable; may be repeated", "FEATURE");
}

void add_fault_options(CLI::App& app, camera_options& options, raw_options& raw) {
    app.add_option("--faults", raw.faults, "TOML file with faults and their times; --print-faults lists the kinds");
    app.add_option("--control", options.control_socket,
                   "Path of a Unix socket (mode 0600) to create, over which faults are started and stopped, and"
                   " the input line is set");
}

void add_time_options(CLI::App& app, camera_options& options) {
    app.add_option("--tick-frequency", options.tick_frequency, "Timestamp ticks per second")
        ->capture_default_str()
        ->check(CLI::Range(std::uint64_t{1000}, std::uint64_t{10'000'000'000}));
    app.add_option("--clock-drift-ppm", options.clock_drift_ppm,
                   "Drift of the camera clock against the host clock, in parts per million; positive: faster")
        ->capture_default_str()
        ->check(CLI::Range(-100'000.0, 100'000.0));
    app.add_option("--first-tick", options.first_tick, "Timestamp counter value at power-up")->capture_default_str();
    app.add_flag(
           "--ptp", options.ptp,
           "Support IEEE 1588: while PtpEnable is on, timestamps are the time of this host's clock, nanoseconds since"
           " 1970 (UTC)")
        ->excludes("--tick-frequency");
    add_choice(app, "--timestamp", options.timestamp_value,
               "GevTimestampValue: the value latched last, or the running counter",
               {{"latched", timestamp_value::latched}, {"running", timestamp_value::running}});
}

void add_stream_options(CLI::App& app, camera_options& options, raw_options& raw) {
    app.add_option("--pacing", raw.pacing,
                   "How fast the packets of a frame follow each other: burst, a rate in megabytes per second, or"
                   " spread:FRACTION of the frame period")
        ->capture_default_str();
    app.add_option("--network-delay", raw.delay,
                   "Delay of frames in milliseconds, MEAN or MEAN:DEVIATION (gamma distribution); does not change the"
                   " frame rate")
        ->capture_default_str();
    app.add_flag("--network-delay-acks", raw.delay_acks, "Delay the ACKs on the control channel too");
    app.add_option("--stream-channels", options.stream_channels,
                   "Number of stream channels; images are sent on the first one")
        ->capture_default_str()
        ->check(CLI::Range(1, 4));
    add_choice(app, "--chunk-payload", options.chunk_payload,
               "Blocks with chunks: chunk data, or extended chunk data if that is enabled (standard); deprecated"
               " extended chunk data of GigE Vision 1.2; or as standard, enabled at power-up (extended)",
               {{"standard", chunk_payload::standard},
                {"deprecated", chunk_payload::deprecated},
                {"extended", chunk_payload::extended}});
    app.add_option("--resend-blocks", options.resend_blocks, "Number of recent blocks whose packets can be resent")
        ->capture_default_str()
        ->check(CLI::Range(0, 1024));
    app.add_option("--frame-buffers", options.frame_buffers,
                   "Number of frame periods, at least 40 ms, by which sending may be late before frames are dropped")
        ->capture_default_str()
        ->check(CLI::Range(1, 100'000));
    app.add_option("--write-time", "Duration of a register write in milliseconds (PENDING_ACK)")
        ->check(CLI::Range(0, 60'000))
        ->each(
            [&options](std::string const& text) { options.write_time = std::chrono::milliseconds(std::stoi(text)); });
    app.add_option("--line-trace", options.line_trace_file,
                   "Write the levels of the output lines to this file, a value change dump (VCD)");
    app.add_option("--truth", options.truth_file, "Write what was sent to this file, one JSON object per line");
}

/// Rejects options of earlier versions with an error that names the new ones. They do not appear in the help.
void add_renamed_options(CLI::App& app) {
    constexpr std::array<std::pair<char const*, char const*>, 5> renamed{{
        {"--without", "--missing-feature"},
        {"--refuse", "--missing-entry"},
        {"--network-delay-answers", "--network-delay-acks"},
        {"--print-description", "--print-xml"},
        {"--dependent-roi-limits", "--limits dependent, which is the default"},
    }};
    for (auto const& [old_name, new_name] : renamed) {
        CLI::callback_t const reject = [old_name = old_name, new_name = new_name](CLI::results_t const&) -> bool {
            throw CLI::ValidationError(old_name, std::string("renamed, use ") + new_name);
        };
        app.add_option(old_name, reject)->group("")->expected(0, 1);
    }
}

/// Adds to the number at the end of a serial number, which keeps its length if the digits suffice.
std::string counted_up(std::string serial, std::uint32_t by) {
    for (auto digit = serial.rbegin(); by > 0 && digit != serial.rend() && *digit >= '0' && *digit <= '9'; ++digit) {
        std::uint32_t const sum = static_cast<std::uint32_t>(*digit - '0') + by;
        *digit = static_cast<char>('0' + sum % 10);
        by = sum / 10;
    }
    if (by > 0) {
        throw std::runtime_error("--serial must end with a number that can count up for --count, for example CS000001");
    }
    return serial;
}

}  // namespace

std::vector<camera_options> cameras_of(command_line const& request) {
    std::vector<camera_options> cameras;
    for (std::uint32_t index = 0; index < request.count; ++index) {
        camera_options one = request.options;
        one.address += index;
        one.serial = counted_up(one.serial, index);
        if (request.count > 1) {
            for (std::string* const file : {&one.control_socket, &one.truth_file, &one.line_trace_file}) {
                if (!file->empty()) {
                    *file += "." + to_string(one.address);
                }
            }
        }
        cameras.push_back(std::move(one));
    }
    return cameras;
}

parsed_command_line parse_command_line(int argc, char const* const* argv) {
    command_line request;
    raw_options raw;
    CLI::App app("camsim: a simulated GigE Vision 2.0 camera. It runs until SIGINT or SIGTERM.", "camsim");
    add_identity_options(app, request.options, raw);
    add_image_options(app, request.options, raw);
    add_feature_set_options(app, request.options, raw);
    add_fault_options(app, request.options, raw);
    add_time_options(app, request.options);
    add_stream_options(app, request.options, raw);
    add_renamed_options(app);
    app.add_option("--count", request.count,
                   "Number of cameras, at this address and the following ones; with several, the first has 127.0.0.2 by"
                   " default. Serial numbers count up, and names of files end with the address")
        ->capture_default_str()
        ->check(CLI::Range(1, 64))
        ->excludes("--mac")
        ->excludes("--interface");
    app.add_flag("--print-xml", request.print_xml, "Print the GenICam XML and exit");
    app.add_flag("--print-faults", request.print_faults,
                 "Print the table of fault kinds and their parameters, and exit");
    try {
        app.parse(argc, argv);
        if (request.count > 1 && app.count("--address") == 0) {
            raw.address = "127.0.0.2";
        }
        interpret(app, raw, request.options);
    } catch (CLI::ParseError const& error) {
        return {std::nullopt, app.exit(error)};
    }
    return {std::move(request), 0};
}

}  // namespace camsim
