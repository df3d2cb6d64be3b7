#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>

#include "calibrate_command.hpp"
#include "cameras_command.hpp"
#include "check_command.hpp"
#include "configuration_schema.hpp"
#include "control_message.hpp"
#include "doctor/doctor_command.hpp"
#include "plugin_library.hpp"
#include "report/report_command.hpp"
#include "run_command.hpp"
#include "set_command.hpp"
#include "signal_command.hpp"

using namespace mediagrabber;

namespace {

constexpr char const statuses[] =
    "Exit status: 0 everything asked for is there, 1 frames were lost, 2 it could not begin (command line,\n"
    "configuration, plug-in, output directory), 3 no camera, 4 the plug-in failed, 5 ended without the plug-in\n"
    "after a stop that it did not answer. Of `set` and `signal` also: 6 no mediagrabber is there; of `set`: 7 the\n"
    "value can't be changed while it runs, 8 not applied in time, 9 applied, and the camera has another value. Of "
    "`doctor`:\n"
    "10 the machine would lose frames.";

/// What the command line asks for.
struct command_line {
    run_options run;
    std::filesystem::path checked_file;
    set_options set;
    calibrate_options calibrate;
    doctor_options doctor;
    std::filesystem::path reported_directory;
    std::filesystem::path report_page;
    pid_t signalled = 0;
    std::string signal;
    bool version = false;
};

exit_status print_versions(std::filesystem::path const& plugin_file) {
    std::cout << "mediagrabber " MEDIAGRABBER_VERSION "\n";
    auto const plugin = plugin_library::find(plugin_file);
    std::cout << "plug-in " << plugin.version() << " (" << plugin.file().string() << ")\n";
    return exit_status::success;
}

std::vector<std::string> signal_names() {
    std::vector<std::string> names;
    for (auto const& one : named_signals()) {
        names.push_back(one.name);
    }
    return names;
}

void declare(CLI::App& app, command_line& line) {
    app.footer(statuses);
    app.add_flag("--version", line.version, "Print the versions of mediagrabber and of the plug-in");
    app.add_option("--plugin", line.run.plugin, "Plug-in to load; its place is known unless given");
    app.require_subcommand(0, 1);
    app.set_help_all_flag("--help-all", "Print the help of every subcommand, too");

    auto* const run = app.add_subcommand("run", "Record frames");
    run->fallthrough();
    run->add_option("--config", line.run.configuration, "Configuration file")->required();
    run->add_option("--frames", line.run.frames, "Frames to record, 0 for no limit; instead of run.frames")
        ->check(CLI::Range(std::uint32_t{0}, std::uint32_t{4'294'967'294}));
    run->add_option("--output", line.run.output, "Directory to record to; instead of output.directory");
    run->add_option("--web", line.run.web, "ADDRESS:PORT of the live page, 127.0.0.1:8080; instead of web.address");
    run->add_option("--web-token", line.run.web_token,
                    "File with the token that the page asks for; instead of web.token_file");

    run->add_option("--pipeline", line.run.pipeline,
                    "GStreamer pipeline that gets every frame, too; instead of output.pipeline");

    app.add_subcommand("cameras", "List the cameras that the plug-in finds")->fallthrough();

    auto* const check = app.add_subcommand("check", "Check a configuration file and print the values in force");
    check->add_option("file", line.checked_file, "Configuration file")->required();

    auto* const set = app.add_subcommand("set", "Change values of a mediagrabber that is running");
    set->add_option("settings", line.set.settings, "KEY=VALUE ..., keys as in the configuration file")->required();
    auto* const socket = set->add_option("--socket", line.set.socket, "Where it listens; it tells so at its start");
    set->add_option("--instance", line.set.instance, "Its log.instance, which the default place depends upon")
        ->excludes(socket);
    set->add_option("--timeout", line.set.timeout_s, "Seconds to wait for the camera to have the values")
        ->check(CLI::Range(0.001, longest_timeout_s));
    set->add_flag("--another-run", line.set.another_run,
                  "Also change what another run of the plug-in is needed for, which follows at once");

    auto* const calibrate = app.add_subcommand("calibrate",
                                               "Measure timing.clock_correction: the camera's clock"
                                               " against the host's");
    calibrate->fallthrough();
    calibrate->add_option("--config", line.calibrate.configuration,
                          "Configuration file; without it the first camera, as it is");
    calibrate->add_option("--seconds", line.calibrate.seconds, "How long to measure")->check(CLI::Range(1.0, 86'400.0));
    calibrate
        ->add_option("--tick-frequency", line.calibrate.tick_hz,
                     "Ticks that the camera calls a second; told from its frames unless given")
        ->check(CLI::Range(1e3, 1e12));

    auto* const doctor =
        app.add_subcommand("doctor", "Say what of this machine would lose frames, and how it is mended");
    doctor->add_option("--config", line.doctor.configuration,
                       "Configuration file; without it a gigabit line's worth of frames");
    doctor->add_option("--interface", line.doctor.interface, "Network interface of the camera; all unless given");
    doctor->add_option("--output", line.doctor.directory, "Directory to record to; instead of output.directory");

    auto* const report = app.add_subcommand("report", "Write a page about a recording");
    report->add_option("directory", line.reported_directory, "Directory of the recording")->required();
    report->add_option("--page", line.report_page, "File to write; report.html in the directory unless given");

    auto* const signal =
        app.add_subcommand("signal", "Ask a recording to stop, reload, calculate a look-up table or keep frames");
    signal->add_option("pid", line.signalled, "Its process")->required()->check(CLI::PositiveNumber);
    signal
        ->add_option("request", line.signal,
                     "stop; reload the configuration; lut: calculate a look-up table from the picture; lut12: measure"
                     " it in 12 bits; keep: write the frames that are held in memory")
        ->required()
        ->check(CLI::IsMember(signal_names()));

    app.add_subcommand("keys", "Print what can be configured, as a Markdown table");
}

calibrate_options with_plugin(command_line const& line) {
    auto options = line.calibrate;
    options.plugin = line.run.plugin;
    return options;
}

exit_status execute(CLI::App const& app, command_line const& line) {
    if (line.version) {
        return print_versions(line.run.plugin);
    }
    if (app.got_subcommand("run")) {
        return run_command(line.run);
    }
    if (app.got_subcommand("cameras")) {
        return cameras_command(line.run.plugin, std::cout);
    }
    if (app.got_subcommand("check")) {
        return check_command(line.checked_file, std::cout);
    }
    if (app.got_subcommand("set")) {
        return set_command(line.set, std::cout, std::cerr);
    }
    if (app.got_subcommand("calibrate")) {
        return calibrate_command(with_plugin(line), std::cout);
    }
    if (app.got_subcommand("doctor")) {
        return doctor_command(line.doctor, std::cout);
    }
    if (app.got_subcommand("report")) {
        return report_command(line.reported_directory, line.report_page, std::cout, std::cerr);
    }
    if (app.got_subcommand("signal")) {
        return signal_command(line.signalled, line.signal, std::cerr);
    }
    if (app.got_subcommand("keys")) {
        std::cout << configuration_reference();
        return exit_status::success;
    }
    std::cerr << app.help();
    return exit_status::usage;
}

}  // namespace

int main(int argc, char** argv) {
    // The plug-in prints its log; somebody may be watching it through a pipe.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    command_line line;
    CLI::App app("mediagrabber: records what a camera plug-in grabs.", "mediagrabber");
    declare(app, line);
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(exit_status::usage);
    }
    try {
        return static_cast<int>(execute(app, line));
    } catch (setting_refused const& refused) {
        std::cerr << "mediagrabber: " << refused.what() << '\n';
        return static_cast<int>(refused.status());
    } catch (std::exception const& error) {
        std::cout.flush();
        std::cerr << "mediagrabber: " << error.what() << '\n';
        return static_cast<int>(exit_status::usage);
    }
}
