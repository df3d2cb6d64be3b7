#include "command_line.hpp"

#include <algorithm>
#include <charconv>
#include <CLI/CLI.hpp>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "camera_features.hpp"
#include "fault_file.hpp"
#include "sensor.hpp"

namespace camsim {

namespace {

constexpr std::uint32_t largest_sensor_side = 16384;

/// Options as text, before they are understood; each is turned into a field of camera_options.
struct raw_options {
    std::string address = "127.0.0.1";
    std::string interface;
    std::string mac;
    std::string sensor = "2464x2056";
    std::string scene = "chart";
    std::string pacing = "spread:0.5";
    std::string delay = "0";
    bool delayed_answers = false;
    std::vector<std::string> refused_entries;
    std::string faults;
};

std::optional<std::uint32_t> parse_side(std::string_view text, std::uint32_t step) {
    std::uint32_t value = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    bool const number = error == std::errc{} && end == text.data() + text.size();
    bool const sensible = number && value >= sensor::smallest_side && value <= largest_sensor_side && value % step == 0;
    return sensible ? std::optional(value) : std::nullopt;
}

void read_sensor_size(std::string const& text, scene_settings& scene) {
    std::size_t const cross = text.find('x');
    auto const width = parse_side(std::string_view(text).substr(0, cross), sensor::width_step);
    auto const height = cross == std::string::npos
                            ? std::nullopt
                            : parse_side(std::string_view(text).substr(cross + 1), sensor::height_step);
    if (!width || !height) {
        throw CLI::ValidationError("--sensor", "\"" + text +
                                                   "\" is no sensor size: give WIDTHxHEIGHT, 16 to 16384 each, width a"
                                                   " multiple of 8, height of 2");
    }
    scene.sensor_width = *width;
    scene.sensor_height = *height;
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
        throw CLI::ValidationError("--mac",
                                   "\"" + text + "\" is no MAC address: give six bytes as in 00:0c:df:12:34:56");
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
        throw CLI::ValidationError("--address", "\"" + raw.address + "\" is no IPv4 address");
    }
    return *address;
}

feature_refusals::entry read_refused_entry(std::string const& text) {
    std::size_t const equals = text.find('=');
    if (equals == std::string::npos) {
        throw CLI::ValidationError("--refuse", "\"" + text + "\" is no entry: give FEATURE=ENTRY");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

/// The names of the features that the camera will have; refusals of others are mistakes.
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

void interpret(raw_options const& raw, camera_options& options) {
    options.address = read_address(raw);
    read_sensor_size(raw.sensor, options.scene);
    options.scene.kind = raw.scene == "dim" ? scene_kind::dim : scene_kind::chart;
    if (!raw.mac.empty()) {
        options.mac = read_mac(raw.mac);
    }
    auto const pacing = parse_pacing(raw.pacing);
    if (!pacing) {
        throw CLI::ValidationError("--pacing", "\"" + raw.pacing +
                                                   "\" is no pacing: give burst, a rate in megabytes a second, or"
                                                   " spread:SHARE with a share of the frame period above 0, up to 1");
    }
    options.pacing = *pacing;
    auto const delay = parse_network_delay(raw.delay);
    if (!delay) {
        throw CLI::ValidationError("--network-delay", "\"" + raw.delay +
                                                          "\" is no delay: give MEAN or MEAN:DEVIATION in milliseconds,"
                                                          " 0 to 10000 each, a deviation only with a mean");
    }
    options.delay = *delay;
    options.delay.of_answers = raw.delayed_answers;
    std::ranges::transform(raw.refused_entries, std::back_inserter(options.refusals.entries), read_refused_entry);
    auto const features = names_of_features(options);
    if (!raw.faults.empty()) {
        options.faults = read_faults(raw.faults, features);
    }
}

void add_identity_options(CLI::App& app, camera_options& options, raw_options& raw) {
    app.add_option("--address", raw.address, "IPv4 address to listen on, one of this host")->capture_default_str();
    app.add_option("--interface", raw.interface, "Network interface whose address to listen on")->excludes("--address");
    auto const up_to = [](std::size_t letters) {
        return CLI::Validator(
            [letters](std::string const& text) {
                return text.size() <= letters ? "" : "at most " + std::to_string(letters) + " letters are possible";
            },
            "");
    };
    app.add_option("--vendor", options.vendor, "Manufacturer name")->capture_default_str()->check(up_to(32));
    app.add_option("--model", options.model, "Model name")->capture_default_str()->check(up_to(32));
    app.add_option("--serial", options.serial, "Serial number")->capture_default_str()->check(up_to(16));
    app.add_option("--user-name", options.user_name, "User-defined name")->check(up_to(16));
    app.add_option("--mac", raw.mac, "MAC address; made from the serial number unless given");
}

void add_image_options(CLI::App& app, camera_options& options, raw_options& raw) {
    scene_settings& scene = options.scene;
    app.add_option("--sensor", raw.sensor, "Sensor size, WIDTHxHEIGHT")->capture_default_str();
    app.add_flag("--dependent-roi-limits", options.dependent_roi_limits,
                 "Width and offset limit each other (else their sum is checked at AcquisitionStart)");
    app.add_flag("--lut-locked-while-grabbing", options.lut_locked_while_acquiring,
                 "Refuse a new look-up table, gamma or JAILUTMode while frames are sent");
    app.add_option("--scene", raw.scene, "What the camera looks at: a test chart, or something dark and flat")
        ->capture_default_str()
        ->check(CLI::IsMember({"chart", "dim"}));
    app.add_option("--seed", scene.seed, "Seed of the noise")->capture_default_str();
    app.add_option("--black-level", scene.black_level, "12-bit value of a dark pixel")
        ->capture_default_str()
        ->check(CLI::Range(0, 1023));
    app.add_option("--noise", scene.noise, "Standard deviation of the noise at gain 1, in 12-bit values")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 256.0));
    app.add_option("--illumination", scene.illumination, "Factor on the light of the scene")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 1000.0));
}

void add_refusal_options(CLI::App& app, camera_options& options, raw_options& raw) {
    auto const add = [&](char const* name, std::vector<std::string>& names, char const* what, char const* type) {
        app.add_option(name, names, what)->type_name(type)->allow_extra_args(false);
    };
    add("--without", options.refusals.absent, "Feature that the camera has not; may be given again", "FEATURE");
    add("--refuse", raw.refused_entries, "Entry that an enumeration has not; may be given again", "FEATURE=ENTRY");
    add("--refuse-write", options.refusals.writes, "Feature that refuses every write; may be given again", "FEATURE");
}

void add_fault_options(CLI::App& app, camera_options& options, raw_options& raw) {
    app.add_option("--faults", raw.faults,
                   "TOML file of faults and their times; --print-faults prints the table of them");
    app.add_option("--control", options.control_socket,
                   "Unix socket to make, mode 0600, over which faults are started and ended");
}

void add_time_options(CLI::App& app, camera_options& options) {
    app.add_option("--tick-frequency", options.tick_frequency, "Timestamp ticks a second")
        ->capture_default_str()
        ->check(CLI::Range(std::uint64_t{1000}, std::uint64_t{10'000'000'000}));
    app.add_option("--clock-drift-ppm", options.clock_drift_ppm,
                   "How much faster than the host's clock the camera's runs, in millionths")
        ->capture_default_str()
        ->check(CLI::Range(-100'000.0, 100'000.0));
    app.add_option("--first-tick", options.first_tick, "Timestamp at power-up")->capture_default_str();
}

void add_stream_options(CLI::App& app, camera_options& options, raw_options& raw) {
    app.add_option(
           "--pacing", raw.pacing,
           "How a frame's packets follow each other: burst, a rate in megabytes a second, or spread:SHARE of the"
           " frame period")
        ->capture_default_str();
    app.add_option("--network-delay", raw.delay,
                   "MEAN or MEAN:DEVIATION, milliseconds that a frame takes to the application; gamma-distributed, by"
                   " --seed. The frame rate stays")
        ->capture_default_str();
    app.add_flag("--network-delay-answers", raw.delayed_answers, "Delay answers on the control channel as well");
    app.add_option("--stream-channels", options.stream_channels, "Stream channels; images leave on the first")
        ->capture_default_str()
        ->check(CLI::Range(1, 4));
    app.add_option("--resend-blocks", options.resend_blocks, "Blocks whose packets can be asked for again")
        ->capture_default_str()
        ->check(CLI::Range(0, 1024));
    app.add_option("--write-time", "How long a register write takes, in milliseconds (PENDING_ACK)")
        ->check(CLI::Range(0, 60'000))
        ->each(
            [&options](std::string const& text) { options.write_time = std::chrono::milliseconds(std::stoi(text)); });
    app.add_option("--line-trace", options.line_trace_file,
                   "File to write the levels of the lines to, a value change dump (VCD)");
    app.add_option("--truth", options.truth_file, "File to write what was sent to, one JSON object a line");
}

}  // namespace

/// Reports mistakes on standard error, and help on standard output.
parsed_command_line parse_command_line(int argc, char const* const* argv) {
    command_line request;
    raw_options raw;
    CLI::App app("camsim: a simulated GigE Vision 2.0 camera. It runs until SIGINT or SIGTERM.", "camsim");
    add_identity_options(app, request.options, raw);
    add_image_options(app, request.options, raw);
    add_refusal_options(app, request.options, raw);
    add_fault_options(app, request.options, raw);
    add_time_options(app, request.options);
    add_stream_options(app, request.options, raw);
    app.add_flag("--print-description", request.print_description, "Print the GenICam description and exit");
    app.add_flag("--print-faults", request.print_faults, "Print the table of faults and their parameters, and exit");
    try {
        app.parse(argc, argv);
        interpret(raw, request.options);
    } catch (CLI::ParseError const& error) {
        return {std::nullopt, app.exit(error)};
    }
    return {std::move(request), 0};
}

}  // namespace camsim
