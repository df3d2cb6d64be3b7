#include "calibrate_command.hpp"

#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <thread>

#include "clock_measurement.hpp"
#include "configuration_file.hpp"
#include "host_context.hpp"
#include "host_log.hpp"
#include "restart_policy.hpp"
#include "signal_watch.hpp"

namespace mediagrabber {

namespace {

using std::chrono::steady_clock;
using seconds = std::chrono::duration<double>;

constexpr seconds start_patience{30.0};  ///< from the beginning to the first frame, beside what is measured
constexpr std::uint32_t standard_output = 1;

/// The configuration to measure with: camera time, whatever the correction, and standard output for the result alone.
configuration measuring(calibrate_options const& options) {
    auto values = options.configuration.empty() ? configuration() : load_configuration(options.configuration).values;
    values.clock_correction = 1;
    values.frames = 0;
    values.convert_to = 0;
    values.log_sinks &= ~standard_output;
    return values;
}

/// Asks for a stop when a time is over, unless it is gone by then.
class deadline {
public:
    deadline(signal_latch& latch, seconds longest)
        : thread_([this, &latch, longest](std::stop_token const& gone) {
              std::unique_lock lock(mutex_);
              changed_.wait_for(lock, gone, longest, [] { return false; });
              if (!gone.stop_requested()) {
                  latch.raise(request::stop);
              }
          }) {}

private:
    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::jthread thread_;
};

/// Collects when frames were taken and came, until there is enough.
class frame_collector {
public:
    frame_collector(signal_latch& latch, seconds wanted) : latch_(latch), wanted_(wanted) {}

    void take(frame_times const& one) {
        frames_.push_back(one);
        if (one.arrived - frames_.front().arrived >= wanted_) {
            latch_.raise(request::stop);
        }
    }

    std::vector<frame_times> const& frames() const { return frames_; }

private:
    signal_latch& latch_;
    seconds const wanted_;
    std::vector<frame_times> frames_;
};

exit_status failed(std::int32_t exit_code) {
    log_error(std::string(meaning_of(exit_code)) + " (exit code " + std::to_string(exit_code) + ")");
    return status_of(exit_code);
}

[[noreturn]] void give_up(char const* reason) {
    log_error(std::string(reason) + ": ending without it");
    close_log();
    _exit(static_cast<int>(exit_status::cut_short));
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
    frame_intake intake(nullptr, 0, 0, progress);
    host_context context(configurations, latch, intake, progress, plugin);
    frame_collector collector(latch, seconds(options.seconds));
    context.observe_frames([&](frame_times const& one) { collector.take(one); });

    signal_watch const signals(latch, progress, seconds(values.grace_time_s),
                               {.reload = [] {}, .keep = [] {}, .cut_short = give_up});
    deadline const longest(latch, seconds(options.seconds) + start_patience);
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
