#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "change_confirmation.hpp"
#include "clock_measurement.hpp"
#include "configuration_store.hpp"
#include "frame_intake.hpp"
#include "grab_progress.hpp"
#include "live/tone_curve.hpp"
#include "plugin_library.hpp"
#include "signal_latch.hpp"

namespace mediagrabber {

/// What the exported host functions talk to. There is one for each time the plug-in is used; the plug-in's functions
/// have no argument that could name it.
class host_context {
public:
    host_context(configuration_store& configurations, signal_latch& signals, frame_intake& intake,
                 grab_progress& progress, plugin_library const& plugin);
    ~host_context();
    host_context(host_context const&) = delete;
    host_context& operator=(host_context const&) = delete;

    /// The context of the process; there has to be one.
    static host_context& current() { return *current_; }

    configuration const& settings() const { return configurations_.in_force(); }
    signal_latch& signals() { return signals_; }
    frame_intake& intake() { return intake_; }
    grab_progress& progress() { return progress_; }
    change_confirmation& changes() { return changes_; }
    tone_curve& tone() { return tone_; }

    /// Somebody listens to the plug-in's standard output in this process: it writes there at level info, whatever is
    /// configured. Where it writes to the system log as well it does so until its first frame only, because both get
    /// the same.
    void listen_to_log();

    /// How a run of the plug-in ended.
    struct ended_run {
        std::int32_t exit_code = 0;
        std::int32_t signal = 0;  ///< the request that the plug-in ended it for, 0 none
        bool frames_arrived = false;
    };
    ended_run run();

    /// What is asked of the plug-in.
    request poll();
    /// A good frame is here.
    void frame_arrived();
    /// The timestamp of the next frame: the one at hand is done with.
    void announce(std::uint64_t timestamp_us);
    /// Has every frame that the camera stamped told to `observer`, on the plug-in's thread.
    void observe_frames(std::function<void(frame_times const&)> observer) { observer_ = std::move(observer); }
    /// Brings an offered configuration into force; the plug-in's log follows at once.
    configuration_store::result take_configuration();
    /// The same, if it is a small change. \return whether there was one
    bool take_small_change();

    std::uint8_t format() const { return format_override_.value_or(settings().format); }
    void override_format(std::uint8_t format) { format_override_ = format; }
    std::string plugin_version() const { return plugin_.version(); }
    void run_ends_for(std::int32_t signal) { ended_for_ = signal; }

    /// Which value bits the picture behind `cumulative` was counted with.
    struct counted {
        std::uint32_t const* cumulative = nullptr;
        std::uint32_t bits = 0;
    };
    counted last_counted;

private:
    void follow_configuration();
    void set_log() const;

    static host_context* current_;

    configuration_store& configurations_;
    signal_latch& signals_;
    frame_intake& intake_;
    grab_progress& progress_;
    plugin_library const& plugin_;
    change_confirmation changes_;
    tone_curve tone_;
    bool log_is_heard_ = false;
    bool frame_came_ = false;  ///< in this run
    std::function<void(frame_times const&)> observer_;
    std::chrono::steady_clock::time_point last_poll_;  ///< right after a frame was fetched
    std::optional<std::uint8_t> format_override_;
    std::int32_t ended_for_ = 0;
};

}  // namespace mediagrabber
