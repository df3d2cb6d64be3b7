// SPDX-License-Identifier: MIT
#include "cli/calibrate_command.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <thread>

#include "base/host_log.hpp"
#include "clock/clock_measurement.hpp"
#include "config/configuration_file.hpp"
#include "plugin/host_context.hpp"
#include "session/restart_policy.hpp"
#include "session/signal_watch.hpp"

namespace mediagrabber {

namespace {

using std::chrono::steady_clock;
using seconds = std::chrono::duration<double>;

constexpr seconds start_timeout{30.0};  ///< until the first frame, in addition to the measurement

/// The configuration for the measurement: any correction other than 0 enables camera timestamps; the plug-in does not
/// log to standard output, which receives the result.
configuration measuring(calibrate_options const& options) {
    auto values = options.configuration.empty() ? configuration() : load_configuration(options.configuration).values;
    values.timing.clock_correction_ppb = 1;
    values.run.frames = 0;
    values.image.convert_to = format_code::none;
    values.log.sinks &= ~log_sink_stdout;
    return values;
}

/// Requests a stop after a timeout, unless it is destroyed before.
class deadline {
public:
    deadline(signal_latch& latch, seconds timeout)
        : thread_([this, &latch, timeout](std::stop_token const& ending) {
              std::unique_lock lock(mutex_);
              changed_.wait_for(lock, ending, timeout, [] { return false; });
              if (!ending.stop_requested()) {
                  latch.raise(signal_code::stop);
              }
          }) {}

private:
    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::jthread thread_;
};

/// Collects the times of frames, and requests a stop when there are enough.
class frame_collector {
public:
    frame_collector(signal_latch& latch, seconds wanted) : latch_(latch), wanted_(wanted) {}

    void add(frame_times const& one) {
        frames_.push_back(one);
        if (one.arrived - frames_.front().arrived >= wanted_) {
            latch_.raise(signal_code::stop);
        }
    }

    std::vector<frame_times> const& frames() const { return frames_; }

private:
    signal_latch& latch_;
    seconds const wanted_;
    std::vector<frame_times> frames_;
};

exit_status failed(std::int32_t exit_code) {
    log_error(fmt::format("{} (exit code {})", meaning_of(exit_code), exit_code));
    return status_of(exit_code);
}

[[noreturn]] void exit_without_plugin(char const* reason) {
    log_error(fmt::format("{}: exiting without it", reason));
    close_log();
    _exit(static_cast<int>(exit_status::unresponsive));
}

}  // namespace

exit_status calibrate_command(calibrate_options const& options, std::ostream& out) {
    auto const values = measuring(options);
    signal_watch::block_signals();
    log_opened const log;
    auto const plugin = plugin_library::find(options.plugin);
    grab_progress progress;
    signal_latch latch;
    configuration_store configurations(values);
    frame_receiver receiver(nullptr, 0, 0, progress);
    host_context context(configurations, latch, receiver, progress, plugin);
    frame_collector collector(latch, seconds(options.seconds));
    context.observe_frames([&](frame_times const& one) { collector.add(one); });

    signal_watch const signals(latch, progress, seconds(values.run.grace_time_s),
                               {.reload = [] {}, .trigger = [] {}, .exit_without_plugin = exit_without_plugin});
    deadline const limit(latch, seconds(options.seconds) + start_timeout);
    auto const ended = context.run();
    if (ended.exit_code != 0) {
        return failed(ended.exit_code);
    }
    try {
        out << configuration_text(measure_clock(collector.frames(), options.tick_hz));
        return exit_status::success;
    } catch (std::runtime_error const& error) {
        log_error(error.what());
        return exit_status::run_failed;
    }
}

}  // namespace mediagrabber
