#include "run_command.hpp"

#include "configuration_file.hpp"
#include "host_log.hpp"
#include "plugin_library.hpp"
#include "recording_session.hpp"
#include "signal_watch.hpp"

namespace mediagrabber {

namespace {

/// The configuration file, with what the command line says instead.
loaded_configuration read_configuration(run_options const& options) {
    auto loaded = load_configuration(options.configuration);
    if (options.frames) {
        loaded.values.frames = *options.frames;
    }
    if (!options.output.empty()) {
        loaded.values.directory = options.output;
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
