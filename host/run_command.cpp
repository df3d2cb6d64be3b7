#include "run_command.hpp"

#include <unistd.h>

#include "configuration_file.hpp"
#include "host_log.hpp"
#include "plugin_library.hpp"
#include "recording_session.hpp"
#include "service/journal.hpp"
#include "signal_watch.hpp"
#include "web/access_token.hpp"

namespace mediagrabber {

namespace {

constexpr std::uint32_t system_log = 2;  ///< of log.sinks

/// The configuration file, with what the command line says instead.
loaded_configuration read_configuration(run_options const& options) {
    auto loaded = load_configuration(options.configuration);
    if (options.frames) {
        loaded.values.frames = *options.frames;
    }
    if (!options.output.empty()) {
        loaded.values.directory = options.output;
    }
    if (options.pipeline) {
        loaded.values.pipeline = options.pipeline->empty() ? std::nullopt : options.pipeline;
    }
    if (!options.web.empty()) {
        loaded.values.web_address = options.web;
    }
    if (!options.web_token.empty()) {
        loaded.values.web_token_file = options.web_token.string();
    }
    check_web_values(loaded.values);
    if (goes_to_journal(STDOUT_FILENO) && !loaded.origins.contains("log.sinks")) {
        loaded.values.log_sinks = system_log;  // which keeps the levels of what the plug-in says
    }
    return loaded;
}

}  // namespace

exit_status run_command(run_options const& options) {
    auto const loaded = read_configuration(options);
    signal_watch::block_signals();
    log_opened const log;
    for (auto const& remark : remarks(loaded)) {
        log_warning(remark);
    }
    auto const plugin = plugin_library::find(options.plugin);
    recording_session session([&options] { return read_configuration(options); }, loaded.values, plugin);
    return session.run();
}

}  // namespace mediagrabber
