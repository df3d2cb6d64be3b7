#include "host_context.hpp"

#include <algorithm>

namespace mediagrabber {

host_context* host_context::current_ = nullptr;

host_context::host_context(configuration_store& configurations, signal_latch& signals, frame_intake& intake,
                           grab_progress& progress, plugin_library const& plugin)
    : configurations_(configurations), signals_(signals), intake_(intake), progress_(progress), plugin_(plugin) {
    set_log();
    tone_.configured(settings());
    plugin_.set_log_instance(settings().log_instance);
    current_ = this;
}

host_context::~host_context() {
    current_ = nullptr;
}

host_context::ended_run host_context::run() {
    std::uint64_t const frames_before = progress_.good_frames;
    ended_for_ = 0;
    frame_came_ = false;
    set_log();
    intake_.set_buffer_count(settings().buffers);
    std::int32_t const exit_code = plugin_.run();
    signals_.run_ended();
    format_override_.reset();
    intake_.end_run();
    progress_.capturing = false;
    return {.exit_code = exit_code, .signal = ended_for_, .frames_arrived = progress_.good_frames != frames_before};
}

void host_context::listen_to_log() {
    log_is_heard_ = true;
    set_log();
}

void host_context::set_log() const {
    constexpr std::uint32_t info = 3;
    constexpr std::uint32_t standard_output = 1;
    constexpr std::uint32_t system_log = 2;
    std::uint32_t level = settings().log_level;
    std::uint32_t sinks = settings().log_sinks;
    if (log_is_heard_) {
        bool const quiet = (sinks & system_log) != 0 && frame_came_;
        level = quiet ? level : std::max(level, info);
        sinks |= standard_output;
    }
    plugin_.set_log(level, sinks);
}

void host_context::frame_arrived() {
    if (!frame_came_) {
        frame_came_ = true;
        set_log();
    }
    signals_.frame_arrived();
}

request host_context::poll() {
    last_poll_ = std::chrono::steady_clock::now();
    auto const& last = intake_.coming_frame();
    changes_.polled(progress_.good_frames, {.gain_db = last.gain_db,
                                            .exposure_us = last.exposure_us,
                                            .period_us = progress_.period_us,
                                            .width = last.width,
                                            .height = last.height});
    return signals_.poll();
}

void host_context::announce(std::uint64_t timestamp_us) {
    intake_.announce(timestamp_us);
    auto const& last = intake_.coming_frame();
    if (observer_ && last.ticks) {
        observer_({.ticks = *last.ticks,
                   .announced_us = timestamp_us,
                   .exposure_us = last.exposure_us.value_or(0.0F),
                   .arrived = last_poll_});
    }
}

configuration_store::result host_context::take_configuration() {
    signals_.reload_taken();
    auto const result = configurations_.take();
    follow_configuration();
    return result;
}

bool host_context::take_small_change() {
    bool const taken = configurations_.take_small_change();
    if (taken) {
        follow_configuration();
    }
    return taken;
}

void host_context::follow_configuration() {
    set_log();
    tone_.configured(settings());
    changes_.taken(configurations_.taken(), progress_.good_frames);
}

}  // namespace mediagrabber
