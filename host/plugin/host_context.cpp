// SPDX-License-Identifier: MIT
#include "plugin/host_context.hpp"

#include <algorithm>

namespace mediagrabber {

namespace {

bool is_12_bit(format_code code) {
    auto const* const format = frame_format_of_code(code);
    return format != nullptr && format->significant_bits > 8;
}

}  // namespace

host_context* host_context::current_ = nullptr;

host_context::host_context(configuration_store& configurations, signal_latch& signals, frame_receiver& receiver,
                           grab_progress& progress, plugin_library const& plugin)
    : configurations_(configurations), signals_(signals), receiver_(receiver), progress_(progress), plugin_(plugin) {
    set_log();
    plugin_.set_log_instance(settings().log.instance);
    current_ = this;
}

host_context::~host_context() {
    current_ = nullptr;
}

host_context::ended_run host_context::run() {
    std::uint64_t const frames_before = progress_.good_frames;
    ended_for_ = signal_code::none;
    frame_arrived_ = false;
    set_log();
    delivery_.run_begins(settings());
    tone_.run_begins(camera_lost_);
    switches_depth_ = false;
    receiver_.set_buffer_count(settings().memory.buffers);
    configure_clock();
    std::int32_t const exit_code = plugin_.run();
    signals_.run_ended();
    format_override_.reset();
    receiver_.end_run();
    progress_.capturing = false;
    camera_lost_ = exit_code != 0 && exit_code != value_of(mg_host_api::exit_code::configuration_failed);
    bool const refused_12_bits = exit_code != 0 && switches_depth_;
    if (refused_12_bits) {
        refuses_12_bits_ = true;
    }
    return {.exit_code = exit_code,
            .signal = ended_for_,
            .frames_arrived = progress_.good_frames != frames_before,
            .refused_12_bits = refused_12_bits};
}

void host_context::capture_log() {
    log_captured_ = true;
    set_log();
}

void host_context::set_log() const {
    std::uint32_t level = settings().log.level;
    std::uint32_t sinks = settings().log.sinks;
    if (log_captured_) {
        bool const quiet = (sinks & log_sink_syslog) != 0 && frame_arrived_;
        level = quiet ? level : std::max(level, log_level_info);
        sinks |= log_sink_stdout;
    }
    plugin_.set_log(level, sinks);
}

void host_context::frame_arrived() {
    if (!frame_arrived_) {
        frame_arrived_ = true;
        set_log();
    }
    signals_.frame_arrived();
    switches_depth_ = false;
}

/// 8-bit mode is the configured format, which may have colours. If the camera refuses the 12-bit format, the plug-in
/// selects 8-bit mode before a frame has arrived.
void host_context::override_format(format_code format) {
    bool const in_8_bits = format == format_code::Mono8;
    switches_depth_ = switches_depth_ || is_12_bit(format);
    if (in_8_bits && !is_12_bit(settings().image.format)) {
        format_override_.reset();
    } else {
        format_override_ = format;
    }
}

bool host_context::in_12_bits() const {
    return format_override_ && is_12_bit(*format_override_);
}

void host_context::format_published() {
    auto const* const published = receiver_.camera_format();
    if (switches_depth_ && published != nullptr && published->significant_bits == 8) {
        refuses_12_bits_ = true;
        log_warning(
            "SIGUSR2: the camera has refused the 12-bit format; this LUT is calculated from 8 bits, and further"
            " requests are refused until a reload");
    }
}

/// In a 12-bit format the plug-in does not load the LUT, unless it switches back to 8 bits first.
void host_context::lut_calculated(std::span<std::uint16_t const> table, std::uint32_t lut_bits,
                                  std::uint32_t value_bits) {
    if (lut_bits == 8 || in_12_bits()) {
        tone_.calculated(table, value_bits, in_12_bits());
    }
}

signal_code host_context::poll() {
    last_poll_ = std::chrono::steady_clock::now();
    tone_.pass_ends();
    auto const& last = receiver_.next_frame();
    if (!tone_.pass_requested()) {
        changes_.polled(progress_.good_frames, {.gain_db = last.gain_db,
                                                .exposure_us = last.exposure_us,
                                                .period_us = progress_.period_us,
                                                .width = last.width,
                                                .height = last.height});
    }
    auto const requested = signals_.poll();
    if (requested != signal_code::user_2 || !refuses_12_bits_) {
        return requested;
    }
    signals_.refuse(signal_code::user_2);
    log_warning("SIGUSR2 refused: the camera has no 12-bit format; SIGUSR1 calculates a LUT from 8 bits");
    return signals_.poll();
}

void host_context::announce(std::uint64_t timestamp_us) {
    receiver_.announce(timestamp_us);
    if (!in_12_bits()) {
        tone_.calculated_loaded();
    }
    auto const& last = receiver_.next_frame();
    auto const [width, height] = receiver_.image_size();
    delivery_.frame_arrived({.width = width,
                             .height = height,
                             .counter = last.counter,
                             .exposure_us = last.exposure_us,
                             .arrived = last_poll_});
    if (observer_ && last.ticks) {
        observer_({.ticks = *last.ticks,
                   .announced_us = timestamp_us,
                   .exposure_us = last.exposure_us.value_or(0.0F),
                   .arrived = last_poll_});
    }
}

configuration_store::result host_context::activate_configuration() {
    signals_.reload_activated();
    auto const result = configurations_.activate();
    refuses_12_bits_ = false;
    follow_configuration();
    return result;
}

bool host_context::activate_live_update() {
    bool const activated = configurations_.activate_live_update();
    if (activated) {
        follow_configuration();
    }
    return tone_.take_pass_request() || activated;
}

void host_context::configure_clock() {
    auto const& timing = settings().timing;
    receiver_.clock().set_tick_frequency(timing.tick_frequency_hz.value_or(0.0));
    receiver_.clock().set_reference(timing.clock_reference, frame_clock::now());
}

void host_context::follow_configuration() {
    set_log();
    delivery_.configured(settings());
    configure_clock();
    changes_.activated(configurations_.activated(), progress_.good_frames);
}

}  // namespace mediagrabber
