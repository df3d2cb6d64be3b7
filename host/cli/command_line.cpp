// SPDX-License-Identifier: MIT
#include "cli/command_line.hpp"

#include <CLI/CLI.hpp>

#include "base/failures.hpp"
#include "cli/calibrate_command.hpp"
#include "cli/cameras_command.hpp"
#include "cli/check_command.hpp"
#include "cli/configuration_place.hpp"
#include "cli/doctor_command.hpp"
#include "cli/overview_command.hpp"
#include "cli/query_commands.hpp"
#include "cli/report_command.hpp"
#include "cli/run_command.hpp"
#include "cli/set_command.hpp"
#include "cli/signal_command.hpp"
#include "config/configuration_json.hpp"
#include "config/configuration_schema.hpp"
#include "control/control_message.hpp"
#include "plugin/plugin_library.hpp"

namespace mediagrabber {

namespace {

constexpr char const exit_statuses[] =
    "Exit status:\n"
    "   0  success, all requested frames are saved\n"
    "   1  frames were lost\n"
    "   2  invalid command line or configuration\n"
    "   3  no camera found\n"
    "   4  the plug-in failed\n"
    "   5  the plug-in did not stop within the grace time\n"
    "   6  recording not found (set, signal, get, status)\n"
    "   7  the value cannot be changed while running (set)\n"
    "   8  the change was not confirmed (set), or a recording does not answer, in time\n"
    "   9  the camera has another value than requested (set)\n"
    "  10  the machine has settings that cause frame loss (doctor)\n"
    "  11  the plug-in, the output directory, a socket or memory is not available at present";

constexpr char const configuration_help[] = "Configuration: a file, or the name of one; default: $MEDIAGRABBER_CONFIG";

/// The options of all commands.
struct command_line {
    run_options run;
    std::filesystem::path checked_file;
    bool print_default = false;
    set_options set;
    calibrate_options calibrate;
    doctor_options doctor;
    std::filesystem::path reported_directory;
    std::filesystem::path report_page;
    signal_options signal;
    query_options query;
    overview_options overview;
    bool json = false;  ///< of the command
    bool version = false;
};

exit_status print_versions(std::filesystem::path const& plugin_file, std::ostream& out) {
    out << "mediagrabber " MEDIAGRABBER_VERSION "\n";
    try {
        auto const plugin = plugin_library::find(plugin_file);
        out << "plug-in " << plugin.version() << " (" << plugin.file().string() << ")\n";
    } catch (unavailable_error const& error) {
        out << error.what() << '\n';
    }
    return exit_status::success;
}

/// The error message for a name of earlier versions.
std::string renaming(std::string const& old_name, std::string const& new_name) {
    return "\"" + old_name + "\" was renamed to \"" + new_name + "\"";
}

void declare_run(CLI::App& app, run_options& options) {
    auto* const run = app.add_subcommand("run", "Record frames");
    run->fallthrough();
    run->add_option("--config", options.configuration, configuration_help);
    run->add_option("--set", options.values,
                    "KEY=VALUE, instead of the value in the configuration; the option may be repeated")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
    run->add_option("--frames", options.frames, "Number of frames to record, 0: no limit; overrides run.frames")
        ->check(CLI::Range(std::uint32_t{0}, std::uint32_t{4'294'967'294}));
    run->add_option("--output", options.output, "Directory for the recording; overrides output.directory");
    run->add_option("--web", options.web,
                    "Address and port of the live page, for example 127.0.0.1:8080; overrides web.address");
    run->add_option("--web-token", options.web_token,
                    "File with the access token of the live page; overrides web.token_file");
    run->add_option("--pipeline", options.pipeline,
                    "GStreamer pipeline that also receives every frame; overrides output.pipeline");
}

/// The options that name a recording; without them, it is the only one of this user.
void declare_recording(CLI::App& command, recording_address& address) {
    auto* const socket =
        command.add_option("--socket", address.socket, "Control socket; a recording logs its path at start");
    auto* const service =
        command
            .add_option("--service", address.service, "NAME of a recording that runs as the service mediagrabber@NAME")
            ->excludes(socket);
    command
        .add_option("--name", address.name, "camera.name of a recording of this user with the default control socket")
        ->excludes(socket)
        ->excludes(service);
    command
        .add_option_function<std::string>("--instance",
                                          [](std::string const&) {
                                              throw CLI::ParseError(renaming("--instance", "--name"),
                                                                    CLI::ExitCodes::ArgumentMismatch);
                                          })
        ->group("");
}

void declare_json(CLI::App& command, bool& json) {
    command.add_flag("--json", json, "Print the result as JSON");
}

void declare_queries(CLI::App& app, query_options& options) {
    auto* const status = app.add_subcommand("status", "Print what a running recording does");
    auto* const get = app.add_subcommand("get", "Print values of a running recording");
    get->add_option("keys", options.keys, "Keys of the configuration file; line: all [[line]] tables")->required();
    for (auto* const command : {status, get}) {
        declare_recording(*command, options.recording);
        declare_json(*command, options.json);
    }
}

void declare_set(CLI::App& app, set_options& options) {
    auto* const set = app.add_subcommand("set", "Change values of a running mediagrabber");
    set->add_option("settings", options.settings, "KEY=VALUE ..., with the keys of the configuration file")->required();
    declare_recording(*set, options.recording);
    set->add_option("--timeout", options.timeout_s, "Seconds to wait until the camera confirms the change")
        ->check(CLI::Range(0.001, max_timeout_s));
    set->add_flag("--restart", options.restart, "Permit changes that restart acquisition");
    set->add_flag_callback(
           "--another-run",
           [] { throw CLI::ParseError(renaming("--another-run", "--restart"), CLI::ExitCodes::ArgumentMismatch); })
        ->group("");
}

void declare_calibrate(CLI::App& app, calibrate_options& options) {
    auto* const calibrate =
        app.add_subcommand("calibrate", "Measure timing.clock_correction_ppb: the camera clock against the host clock");
    calibrate->fallthrough();
    calibrate->add_option("--config", options.configuration,
                          std::string(configuration_help) + "; default: the first camera with its present settings");
    calibrate->add_option("--seconds", options.seconds, "Duration of the measurement")
        ->check(CLI::Range(1.0, 86'400.0));
    calibrate
        ->add_option("--tick-frequency", options.tick_hz,
                     "Timestamp tick frequency of the camera, Hz; default: measured")
        ->check(CLI::Range(1e3, 1e12));
}

void declare_doctor(CLI::App& app, doctor_options& options) {
    auto* const doctor =
        app.add_subcommand("doctor", "Check this machine for settings that cause frame loss and suggest fixes");
    doctor->add_option("--config", options.configuration,
                       std::string(configuration_help) + "; default: assume the data rate of a gigabit link");
    doctor->add_option("--interface", options.interface, "Network interface of the camera; default: all");
    doctor->add_option("--output", options.directory, "Directory for the recording; overrides output.directory");
    auto* const json = doctor->add_flag("--json", options.json, "Print the findings as JSON");
    doctor
        ->add_option("--fix-plan", options.plan,
                     "Directory for files that make the recommended settings at each boot, for review; nothing is"
                     " changed")
        ->excludes(json);
}

void declare_signal(CLI::App& app, command_line& line) {
    auto* const signal = app.add_subcommand("signal", "Send a request to a running recording");
    signal
        ->add_option(
            "request", line.signal.words,
            "[PID] REQUEST; the process ID is omitted with --service, --socket or --name. Requests: stop: end the"
            " recording; reload: reload the configuration; lut: calculate a histogram-equalised LUT; lut12: the"
            " same, measured in 12 bits; trigger: save the pre-trigger buffer")
        ->required()
        ->expected(1, 2);
    signal->add_option("--event", line.signal.event,
                       "Of a trigger: time and name of the event, as in 20261121T173318.123Z-door, which the directory"
                       " of the recording gets as its name");
    declare_recording(*signal, line.signal.recording);
}

void declare_overview(CLI::App& app, overview_options& options) {
    auto* const overview =
        app.add_subcommand("overview", "Serve one page with the recordings of this machine and of others");
    overview->add_option("pages", options.pages, "Addresses of live pages, for example http://10.1.0.11:8080");
    overview->add_option("--machines", options.machines,
                         "TOML file with [[machine]] tables: page, and optionally name and token_file");
    overview->add_option("--web", options.web, "Address and port of the page; default: " + options.web);
    overview->add_option("--web-token", options.web_token, "File with the access token of the page");
}

void declare(CLI::App& app, command_line& line) {
    app.footer(exit_statuses);
    app.add_flag("--version", line.version, "Print the versions of mediagrabber and of the plug-in");
    app.add_option("--plugin", line.run.plugin, "Plug-in to load; default: the installed libmgjai.so");
    app.require_subcommand(0, 1);
    app.set_help_all_flag("--help-all", "Print the help of all commands");

    declare_run(app, line.run);
    auto* const cameras = app.add_subcommand("cameras", "List the cameras that the plug-in finds");
    cameras->fallthrough();
    declare_json(*cameras, line.json);
    auto* const check = app.add_subcommand("check", "Check a configuration file and print the resulting values");
    auto* const file = check->add_option("file", line.checked_file, configuration_help);
    declare_json(*check, line.json);
    check->add_flag("--print-default", line.print_default, "Print a configuration with all keys, as comments")
        ->excludes(file);
    declare_set(app, line.set);
    declare_queries(app, line.query);
    declare_json(*app.add_subcommand("list", "List the running recordings of this user and the services"), line.json);
    declare_overview(app, line.overview);
    declare_calibrate(app, line.calibrate);
    declare_doctor(app, line.doctor);
    auto* const report = app.add_subcommand("report", "Create an HTML report of a recording");
    report->add_option("directory", line.reported_directory, "Directory of the recording")->required();
    report->add_option("--page", line.report_page, "File to write; default: report.html in the directory");
    declare_json(*report, line.json);
    declare_signal(app, line);
    auto* const keys = app.add_subcommand("keys", "Print all configuration keys as a Markdown table");
    keys->add_flag("--json", line.json, "Print the JSON schema of the configuration file, for editors");
}

calibrate_options with_plugin(command_line const& line) {
    auto options = line.calibrate;
    options.plugin = line.run.plugin;
    options.configuration = find_configuration(options.configuration);
    return options;
}

run_options with_configuration(run_options options) {
    options.configuration = require_configuration(options.configuration, "--config");
    return options;
}

doctor_options with_configuration(doctor_options options) {
    options.configuration = find_configuration(options.configuration);
    return options;
}

exit_status check(command_line const& line, std::ostream& out) {
    if (line.print_default) {
        print_default_configuration(out);
        return exit_status::success;
    }
    auto const file = require_configuration(line.checked_file, "FILE");
    return line.json ? check_as_json(file, out) : check_command(file, out);
}

exit_status execute(CLI::App const& app, command_line const& line, std::ostream& out, std::ostream& errors) {
    if (line.version) {
        return print_versions(line.run.plugin, out);
    }
    if (app.got_subcommand("run")) {
        return run_command(with_configuration(line.run));
    }
    if (app.got_subcommand("cameras")) {
        return cameras_command(line.run.plugin, line.json, out);
    }
    if (app.got_subcommand("check")) {
        return check(line, out);
    }
    if (app.got_subcommand("set")) {
        return set_command(line.set, out, errors);
    }
    if (app.got_subcommand("status")) {
        return status_command(line.query, out, errors);
    }
    if (app.got_subcommand("get")) {
        return get_command(line.query, out, errors);
    }
    if (app.got_subcommand("list")) {
        return list_command(line.json, out, errors);
    }
    if (app.got_subcommand("overview")) {
        return overview_command(line.overview);
    }
    if (app.got_subcommand("calibrate")) {
        return calibrate_command(with_plugin(line), out);
    }
    if (app.got_subcommand("doctor")) {
        return doctor_command(with_configuration(line.doctor), out);
    }
    if (app.got_subcommand("report")) {
        return report_command(line.reported_directory, line.report_page, line.json, out, errors);
    }
    if (app.got_subcommand("signal")) {
        return signal_command(line.signal, out, errors);
    }
    if (app.got_subcommand("keys")) {
        out << (line.json ? configuration_json_schema() : configuration_reference());
        return exit_status::success;
    }
    errors << app.help();
    return exit_status::usage;
}

exit_status report(exit_status status, std::exception const& error, std::ostream& out, std::ostream& errors) {
    out.flush();
    errors << "mediagrabber: " << error.what() << '\n';
    return status;
}

}  // namespace

exit_status run_command_line(int argc, char const* const* argv, std::ostream& out, std::ostream& errors) {
    command_line line;
    CLI::App app("mediagrabber: records the frames of a camera plug-in.", "mediagrabber");
    declare(app, line);
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return app.exit(error, out, errors) == 0 ? exit_status::success : exit_status::usage;
    }
    try {
        return execute(app, line, out, errors);
    } catch (setting_refused const& refused) {
        errors << "mediagrabber: " << refused.what() << '\n';
        return refused.status();
    } catch (unavailable_error const& error) {
        return report(exit_status::unavailable, error, out, errors);
    } catch (std::exception const& error) {
        return report(exit_status::usage, error, out, errors);
    }
}

}  // namespace mediagrabber
