// SPDX-License-Identifier: MIT
#include "cli/run_command.hpp"

#include <unistd.h>

#include "base/failures.hpp"
#include "base/host_log.hpp"
#include "base/journald_sink.hpp"
#include "config/camera_name.hpp"
#include "config/configuration_file.hpp"
#include "config/settings.hpp"
#include "plugin/plugin_library.hpp"
#include "segments/recording_place.hpp"
#include "session/recording_session.hpp"
#include "session/signal_watch.hpp"
#include "web/access_token.hpp"

namespace mediagrabber {

namespace {

/// Checks the page's values after the command line has been applied.
/// \throws configuration_error with the position of web.address if it is the file's, otherwise usage_error
void check_web(loaded_configuration const& loaded, run_options const& options) {
    try {
        check_web_values(loaded.values.web);
    } catch (std::runtime_error const& error) {
        auto const origin = loaded.origins.find("web.address");
        if (!options.web.empty() || origin == loaded.origins.end()) {
            throw usage_error(error.what());
        }
        throw configuration_error(
            options.configuration,
            {{.where = origin->second, .what = std::string("web.address: ") + error.what(), .temporary = false}});
    }
}

std::vector<setting> values_of(run_options const& options) {
    std::vector<setting> values;
    for (auto const& text : options.values) {
        try {
            values.push_back(parse_setting(text));
        } catch (setting_refused const& refused) {
            throw usage_error(std::string("--set ") + refused.what());
        }
    }
    return values;
}

/// Reads the configuration file and applies the command line to it.
loaded_configuration read_configuration(run_options const& options) {
    auto loaded = load_configuration(options.configuration, values_of(options));
    if (options.frames) {
        loaded.values.run.frames = *options.frames;
    }
    if (!options.output.empty()) {
        loaded.values.output.directory = options.output;
    }
    if (options.pipeline) {
        loaded.values.output.pipeline = options.pipeline->empty() ? std::nullopt : options.pipeline;
    }
    if (!options.web.empty()) {
        loaded.values.web.address = options.web;
    }
    if (!options.web_token.empty()) {
        loaded.values.web.token_file = options.web_token.string();
    }
    take_name_from_environment(loaded.values);
    loaded.values.output.directory = with_name(loaded.values.output.directory, name_of(loaded.values));
    check_web(loaded, options);
    check_directory_of_segments(loaded.values.output);
    if (goes_to_journal(STDOUT_FILENO) && !loaded.origins.contains("log.sinks")) {
        loaded.values.log.sinks = log_sink_syslog;  // syslog preserves the level of each message
    }
    return loaded;
}

exit_status record(run_options const& options) {
    auto const loaded = read_configuration(options);
    signal_watch::block_signals();
    log_opened const log(loaded.values.camera.name.value_or(std::string()));
    for (auto const& remark : remarks(loaded)) {
        log_warning(remark);
    }
    auto const plugin = plugin_library::find(options.plugin);
    recording_session session([&options] { return read_configuration(options); }, loaded.values, plugin);
    return session.run();
}

}  // namespace

/// Beside the command line and the configuration text, everything that a start can fail of is a state of the machine.
exit_status run_command(run_options const& options) {
    try {
        return record(options);
    } catch (usage_error const&) {
        throw;
    } catch (configuration_error const& error) {
        if (error.temporary()) {
            throw unavailable_error(error.what());
        }
        throw;
    } catch (std::exception const& error) {
        throw unavailable_error(error.what());
    }
}

}  // namespace mediagrabber
