// SPDX-License-Identifier: MIT
#include "stream/acquisition.hpp"

#include <sys/prctl.h>

#include <algorithm>

#include "device/sensor.hpp"
#include "timing/utc_offset.hpp"

namespace camsim {

namespace {

/// The least time by which frames may be late before some are dropped, at high frame rates: scheduling delays of a
/// loaded host do not cost frames.
constexpr camera_time min_buffering = std::chrono::milliseconds(40);
/// From AcquisitionStart to the first exposure; enough to send the ACK first.
constexpr camera_time start_delay = std::chrono::microseconds(200);

camera_time microseconds(double value) {
    return camera_time(static_cast<long double>(value) * 1e3L);
}

}  // namespace

acquisition::acquisition(camera_state& state, frame_delivery& delivery)
    : state_(state), delivery_(delivery), meter_(state.options.scene) {}

void acquisition::start() {
    thread_ = std::jthread([this](std::stop_token const& stop) { run(stop); });
}

void acquisition::stop() {
    thread_ = {};
}

void acquisition::run(std::stop_token const& stop) {
    ::prctl(PR_SET_TIMERSLACK, 1UL);  // the default slack of timed waits is 50 us
    state_lock lock(state_.mutex);
    auto const streaming = [this] { return state_.acquiring && state_.channels[0].open(); };
    while (state_.changed.wait(lock, stop, streaming) && !stop.stop_requested()) {
        run_acquisition(lock, stop);
    }
}

/// A single-frame or multi-frame acquisition ends with its last exposure. The state is locked until then, so the last
/// frame is not sent before the camera accepts another AcquisitionStart.
void acquisition::run_acquisition(state_lock& lock, std::stop_token const& stop) {
    std::uint64_t const run = state_.acquisition_run;
    frame_schedule schedule(state_.now() + start_delay, frame_period());
    std::uint64_t remaining_frames = UINT64_MAX;
    if (state_.image.mode != acquisition_mode::continuous) {
        remaining_frames = state_.image.mode == acquisition_mode::single_frame ? 1 : state_.image.frame_count;
    }
    while (remaining_frames > 0) {
        step const done = expose(lock, stop, schedule, run);
        if (done == step::ended) {
            return;
        }
        remaining_frames -= done == step::exposed ? 1 : 0;
    }
    state_.acquiring = false;
    state_.trigger.arm(false);
}

/// Waits for the time of the next exposure, and drops the frames that should have been exposed long ago.
/// \return its start; empty if the acquisition has ended
template <typename predicate>
std::optional<camera_time> acquisition::scheduled_start(state_lock& lock, std::stop_token const& stop,
                                                        frame_schedule& schedule, camera_time max_lateness,
                                                        predicate stopped) {
    auto const next = schedule.next(state_.now(), max_lateness + microseconds(state_.image.exposure_us));
    for (std::uint64_t index = 0; index < next.dropped; ++index) {
        drop_frame(next.first_dropped + schedule.period() * static_cast<long double>(index));
    }
    bool const due = state_.wait_until(lock, stop, state_.clock.host_at(next.start), stopped);
    return due ? std::optional(next.start) : std::nullopt;
}

/// Waits for a trigger. The exposure begins with it.
/// \return its start; empty if the acquisition has ended
template <typename predicate>
std::optional<camera_time> acquisition::triggered_start(state_lock& lock, std::stop_token const& stop,
                                                        predicate stopped) {
    state_.changed.wait(lock, stop, [&] { return state_.trigger.waiting().has_value() || stopped(); });
    if (stop.stop_requested() || stopped()) {
        return std::nullopt;
    }
    camera_time const start = state_.clock.at(*state_.trigger.waiting());
    state_.trigger.take(state_.clock.host_at(start + min_frame_period()));
    return start;
}

/// Waits for the next exposure, exposes a frame and passes it on.
acquisition::step acquisition::expose(state_lock& lock, std::stop_token const& stop, frame_schedule& schedule,
                                      std::uint64_t run) {
    schedule.set_period(frame_period());
    camera_time const max_lateness = std::max(schedule.period() * state_.options.frame_buffers, min_buffering);
    auto const stopped = [&] {
        return !state_.acquiring || state_.acquisition_run != run || !state_.channels[0].open();
    };
    auto const start = state_.trigger.settings.on ? triggered_start(lock, stop, stopped)
                                                  : scheduled_start(lock, stop, schedule, max_lateness, stopped);
    if (!start) {
        return step::ended;
    }
    if (delivery_.lateness() > max_lateness) {
        drop_frame(*start);
        return step::dropped;
    }
    exposed_frame frame = make_frame(*start);
    auto const begin = [](output_lines& lines) {
        ++lines.exposures;
        ++lines.frames;
    };
    state_.change_lines(begin, frame.exposure_start);
    bool const exposed = state_.wait_until(lock, stop, frame.exposure_end,
                                           [&] { return state_.channel_openings != frame.channel_opening; });
    // Loss of power ends the exposure at once.
    auto const ended = stop.stop_requested() ? std::chrono::steady_clock::now() : frame.exposure_end;
    state_.change_lines([](output_lines& lines) { --lines.exposures; }, ended);
    if (exposed) {
        update_levels(lock, frame.block.frame);
    } else {
        frame.outcome = frame_outcome::aborted;
    }
    delivery_.enqueue(std::move(frame));
    return exposed && !stopped() ? step::exposed : step::ended;
}

/// A frame with the camera's settings at the start of its exposure.
exposed_frame acquisition::make_frame(camera_time exposure_start) {
    stream_channel const& channel = state_.channels[0];
    if (state_.channel_openings != channel_opening_) {
        channel_opening_ = state_.channel_openings;
        next_block_id_ = 1;
    }
    exposed_frame frame;
    frame.block = {next_block_id_,
                   state_.ids,
                   channel.packet_size,
                   state_.clock.ticks_at(exposure_start),
                   {next_frame_number_++, state_.image.exposure_us, state_.image.total_gain(), state_.image.area,
                    state_.image.format, state_.frame_tone()},
                   state_.chunks.sent(),
                   state_.payload_type()};
    next_block_id_ = gvsp::next_block_id(next_block_id_, state_.ids);
    frame.destination = {channel.destination, channel.host_port};
    frame.do_not_fragment = channel.do_not_fragment;
    frame.channel_opening = channel_opening_;
    frame.packet_interval = state_.options.pacing.packet_interval(channel.packet_size,
                                                                  frame.block.layout().packet_count(), frame_period()) +
                            std::chrono::duration<double>(static_cast<double>(channel.packet_delay) /
                                                          static_cast<double>(state_.clock.tick_frequency()));
    frame.exposure_start = state_.clock.host_at(exposure_start);
    frame.exposure_end = state_.clock.host_at(exposure_start + microseconds(state_.image.exposure_us));
    frame.utc_offset_ns = utc_offset().count();
    return frame;
}

/// Measures a frame and adjusts exposure and gain. Measuring may take milliseconds, so the state is unlocked meanwhile.
void acquisition::update_levels(state_lock& lock, frame_settings const& frame) {
    if (!state_.level.active()) {
        return;
    }
    bool const centre_only = state_.level.centre_only;
    lock.unlock();
    double const mean = meter_.mean(frame, centre_only);
    lock.lock();
    state_.update_levels(mean);
}

/// Logs a frame that is not exposed. It does not use up a block ID.
void acquisition::drop_frame(camera_time exposure_start) {
    exposed_frame frame = make_frame(exposure_start);
    next_block_id_ = frame.block.block_id;
    frame.block.block_id = 0;
    frame.outcome = frame_outcome::dropped;
    delivery_.enqueue(std::move(frame));
}

/// The shortest period with the present region and exposure time, in the camera's time.
camera_time acquisition::min_frame_period() const {
    double const max_rate = sensor::max_frame_rate(state_.image.area.height);
    return microseconds(sensor::frame_period_us(max_rate, state_.image.exposure_us));
}

/// The present frame period, in the camera's time.
camera_time acquisition::frame_period() const {
    return microseconds(sensor::frame_period_us(state_.image.frame_rate, state_.image.exposure_us));
}

}  // namespace camsim
