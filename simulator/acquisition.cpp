#include "acquisition.hpp"

#include <sys/prctl.h>

#include <algorithm>

#include "sensor.hpp"

namespace camsim {

namespace {

/// How late a frame may be sent before frames are left out: what the camera's memory bridges.
constexpr int frames_of_memory = 4;
constexpr camera_time least_memory = std::chrono::milliseconds(40);
/// From AcquisitionStart to the first exposure.
constexpr camera_time start_delay = std::chrono::microseconds(200);

camera_time microseconds(double value) {
    return camera_time(static_cast<long double>(value) * 1e3L);
}

/// What to add to a time of the monotonic clock to have the real-time clock's, as the two stand now.
std::int64_t utc_offset_ns() {
    auto const real = std::chrono::system_clock::now().time_since_epoch();
    auto const monotonic = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(real - monotonic).count();
}

}  // namespace

acquisition::acquisition(camera_state& state, frame_delivery& delivery)
    : state_(state), delivery_(delivery), meter_(state.options.scene) {}

void acquisition::start() {
    thread_ = std::jthread([this](std::stop_token const& stop) { run(stop); });
}

/// Ends the thread, in the middle of an exposure if need be.
void acquisition::stop() {
    thread_ = {};
}

/// Frames are made while an acquisition is started and stream channel 0 leads somewhere.
void acquisition::run(std::stop_token const& stop) {
    ::prctl(PR_SET_TIMERSLACK, 1UL);
    state_lock lock(state_.mutex);
    auto const streaming = [this] { return state_.acquiring && state_.channels[0].open(); };
    while (state_.changed.wait(lock, stop, streaming) && !stop.stop_requested()) {
        run_acquisition(lock, stop);
    }
}

/// An acquisition of so many frames is over when the last of them has been exposed. Whoever has received that frame
/// finds the camera ready for the next acquisition: its sending cannot begin while the state is held here.
void acquisition::run_acquisition(state_lock& lock, std::stop_token const& stop) {
    std::uint64_t const run = state_.acquisition_run;
    frame_schedule schedule(state_.now() + start_delay, frame_period());
    std::uint64_t frames_left = UINT64_MAX;
    if (state_.image.mode != acquisition_mode::continuous) {
        frames_left = state_.image.mode == acquisition_mode::single_frame ? 1 : state_.image.frame_count;
    }
    while (frames_left > 0) {
        outcome const what = expose(lock, stop, schedule, run);
        if (what == outcome::over) {
            return;
        }
        frames_left -= what == outcome::exposed ? 1 : 0;
    }
    state_.acquiring = false;
}

/// One frame, from waiting for its exposure to handing it over.
acquisition::outcome acquisition::expose(state_lock& lock, std::stop_token const& stop, frame_schedule& schedule,
                                         std::uint64_t run) {
    schedule.set_period(frame_period());
    camera_time const exposure_time = microseconds(state_.image.exposure_us);
    camera_time const memory = std::max(schedule.period() * frames_of_memory, least_memory);
    auto const next = schedule.next(state_.now(), memory + exposure_time);
    for (std::uint64_t index = 0; index < next.skipped; ++index) {
        leave_out(next.first_skipped + schedule.period() * static_cast<long double>(index));
    }
    auto const stopped = [&] {
        return !state_.acquiring || state_.acquisition_run != run || !state_.channels[0].open();
    };
    if (!state_.wait_until(lock, stop, state_.clock.host_at(next.start), stopped)) {
        return outcome::over;
    }
    if (delivery_.behind() > memory) {
        leave_out(next.start);
        return outcome::left_out;
    }
    exposed_frame frame = make_frame(next.start);
    auto const begin = [](output_lines& lines) {
        ++lines.exposures;
        ++lines.frames;
    };
    state_.change_lines(begin, frame.exposure_start);
    bool const exposed = state_.wait_until(lock, stop, frame.exposure_end,
                                           [&] { return state_.channel_openings != frame.channel_opening; });
    // Power that is cut ends an exposure at once.
    auto const ended = stop.stop_requested() ? std::chrono::steady_clock::now() : frame.exposure_end;
    state_.change_lines([](output_lines& lines) { --lines.exposures; }, ended);
    if (exposed) {
        follow_brightness(lock, frame.block.frame);
    } else {
        frame.fate = frame_fate::aborted;
    }
    delivery_.hand_over(std::move(frame));
    return exposed && !stopped() ? outcome::exposed : outcome::over;
}

/// Takes what a frame needs from the camera's state, as it is at the beginning of its exposure.
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
                   state_.chunks.sent()};
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
    frame.utc_offset_ns = utc_offset_ns();
    return frame;
}

/// Measures without holding the state: it may take a while.
void acquisition::follow_brightness(state_lock& lock, frame_settings const& frame) {
    if (!state_.level.active()) {
        return;
    }
    bool const middle_only = state_.level.middle_only;
    lock.unlock();
    double const mean = meter_.mean(frame, middle_only);
    lock.lock();
    state_.follow_brightness(mean);
}

/// A frame that was never exposed has a line of truth and no block; the block ID is the next frame's.
void acquisition::leave_out(camera_time exposure_start) {
    exposed_frame frame = make_frame(exposure_start);
    next_block_id_ = frame.block.block_id;
    frame.block.block_id = 0;
    frame.fate = frame_fate::skipped;
    delivery_.hand_over(std::move(frame));
}

/// The period in force, in the camera's time.
camera_time acquisition::frame_period() const {
    return microseconds(sensor::frame_period_us(state_.image.frame_rate, state_.image.exposure_us));
}

}  // namespace camsim
