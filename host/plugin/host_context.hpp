// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "base/host_log.hpp"
#include "clock/clock_measurement.hpp"
#include "config/configuration_store.hpp"
#include "frames/frame_receiver.hpp"
#include "frames/grab_progress.hpp"
#include "plugin/delivery_check.hpp"
#include "plugin/plugin_library.hpp"
#include "plugin/signal_latch.hpp"
#include "plugin/tone_curve.hpp"
#include "plugin/update_confirmation.hpp"

namespace mediagrabber {

/// The state behind the exported host functions. They have no argument that could refer to it, so there is one context
/// per process at a time, from its construction to its destruction.
///
/// The plug-in's thread calls everything that the host functions call. signals(), changes(), tone() and progress() may
/// be used by any thread, delivery() as its class states. All references that the constructor takes must outlive the
/// context.
class host_context {
public:
    host_context(configuration_store& configurations, signal_latch& signals, frame_receiver& receiver,
                 grab_progress& progress, plugin_library const& plugin);
    ~host_context();
    host_context(host_context const&) = delete;
    host_context& operator=(host_context const&) = delete;

    /// The context of the process; must exist.
    static host_context& current() { return *current_; }

    configuration const& settings() const { return configurations_.active(); }
    signal_latch& signals() { return signals_; }
    frame_receiver& receiver() { return receiver_; }
    grab_progress& progress() { return progress_; }
    update_confirmation& changes() { return changes_; }
    tone_curve& tone() { return tone_; }
    delivery_check& delivery() { return delivery_; }
    delivery_check const& delivery() const { return delivery_; }

    /// Makes the plug-in log to standard output at level info or above, regardless of the configuration, because this
    /// process captures it. If it also logs to the system log, the level is raised until the first frame only: both
    /// sinks have one level.
    void capture_log();

    /// The result of a run of the plug-in.
    struct ended_run {
        std::int32_t exit_code = 0;
        signal_code signal = signal_code::none;  ///< the request that the plug-in ended the run for
        bool frames_arrived = false;
        bool refused_12_bits = false;  ///< the camera refused the format of a LUT request and ended the run
    };
    /// Calls the plug-in; returns when its run has ended.
    ended_run run();

    /// The pending request with the highest priority.
    signal_code poll();
    /// A good frame has arrived.
    void frame_arrived();
    /// The timestamp of the next frame, us. The values of the current frame are complete.
    void announce(std::uint64_t timestamp_us);
    /// Sets a function that is called with the times of every frame with a camera timestamp, on the plug-in's thread.
    void observe_frames(std::function<void(frame_times const&)> observer) { observer_ = std::move(observer); }
    /// Activates a staged configuration; the plug-in's log level follows immediately.
    configuration_store::result activate_configuration();
    /// Activates a staged configuration if it is a live update.
    /// \return whether the plug-in is to apply the values that it can change while frames arrive
    bool activate_live_update();

    /// The pixel format for the plug-in: the configured one, unless the plug-in has overridden it in this run.
    format_code format() const { return format_override_.value_or(settings().image.format); }
    /// The plug-in switches to 12 bits for the calculation of a LUT, or back to 8 bits.
    void override_format(format_code format);
    /// The plug-in has published the format that the camera has accepted.
    void format_published();
    /// A LUT was calculated. \param lut_bits  significant bits of the pixel values that it maps
    void lut_calculated(std::span<std::uint16_t const> table, std::uint32_t lut_bits, std::uint32_t value_bits);
    /// Whether the camera has refused the 12-bit format of a LUT request since the last reload; may be called by any
    /// thread.
    bool refuses_12_bits() const { return refuses_12_bits_; }
    std::string plugin_version() const { return plugin_.version(); }
    /// The plug-in reports that it ends the run because of this request.
    void run_ends_for(signal_code signal) { ended_for_ = signal; }

    /// The histogram that was calculated last, and the significant bits of its image.
    struct histogram {
        std::uint32_t const* cumulative = nullptr;
        std::uint32_t bits = 0;
    };
    histogram last_histogram;

private:
    void configure_clock();
    void follow_configuration();
    void set_log() const;
    /// Whether the plug-in has switched to 12 bits for the calculation of a LUT.
    bool in_12_bits() const;

    static host_context* current_;

    configuration_store& configurations_;
    signal_latch& signals_;
    frame_receiver& receiver_;
    grab_progress& progress_;
    plugin_library const& plugin_;
    update_confirmation changes_;
    tone_curve tone_{log_warning};  ///< LUT and gamma, as configured and as calculated
    delivery_check delivery_{log_warning};
    bool log_captured_ = false;
    bool frame_arrived_ = false;  ///< in this run
    std::function<void(frame_times const&)> observer_;
    std::chrono::steady_clock::time_point last_poll_;  ///< the plug-in polls right after it has fetched a frame
    std::optional<format_code> format_override_;
    bool switches_depth_ = false;  ///< to 12 bits, and no frame has arrived since
    std::atomic<bool> refuses_12_bits_{false};
    bool camera_lost_ = false;  ///< the last run has failed
    signal_code ended_for_ = signal_code::none;
};

}  // namespace mediagrabber
