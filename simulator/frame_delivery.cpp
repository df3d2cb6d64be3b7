#include "frame_delivery.hpp"

#include <sys/prctl.h>

#include <algorithm>

namespace camsim {

namespace {

std::int64_t nanoseconds(exposed_frame::time_point when) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(when.time_since_epoch()).count();
}

std::optional<std::int64_t> nanoseconds(std::optional<exposed_frame::time_point> const& when) {
    return when ? std::optional(nanoseconds(*when)) : std::nullopt;
}

}  // namespace

frame_delivery::frame_delivery(camera_state& state, packet_outlet& outlet, sent_blocks& sent, truth_writer* truth)
    : state_(state),
      outlet_(outlet),
      sent_(sent),
      sender_(state.options.scene, outlet, sent),
      truth_(truth),
      delay_(state.options.delay, state.options.scene.seed) {}

void frame_delivery::start() {
    thread_ = std::jthread([this](std::stop_token const& stop) { run(stop); });
}

/// Ends the thread, in the middle of a block if need be. What still waits is given up.
void frame_delivery::stop() {
    thread_ = {};
}

/// A frame whose delay ends before that of the one in front of it waits for that, and is not late for it.
void frame_delivery::hand_over(exposed_frame frame) {
    if (frame.fate == frame_fate::sent) {
        frame.delay = delay_.next();
    }
    last_due_ = std::max(last_due_, frame.exposure_end + frame.delay);
    frame.due = last_due_;
    waiting_.push_back(std::move(frame));
    state_.changed.notify_all();
}

/// How long the frame in work could have been sent already.
std::chrono::nanoseconds frame_delivery::behind() const {
    return waiting_.empty() ? std::chrono::nanoseconds(0) : std::chrono::steady_clock::now() - waiting_.front().due;
}

void frame_delivery::run(std::stop_token const& stop) {
    // Runs of packets are due at microseconds; the default slack of a timed wait is fifty of them.
    ::prctl(PR_SET_TIMERSLACK, 1UL);
    state_lock lock(state_.mutex);
    auto const something_to_do = [this] { return !waiting_.empty(); };
    while (state_.changed.wait(lock, stop, something_to_do) && !stop.stop_requested()) {
        deliver(lock, stop, waiting_.front());
        waiting_.pop_front();
    }
    for (exposed_frame& frame : waiting_) {
        frame.fate = frame.fate == frame_fate::sent ? frame_fate::aborted : frame.fate;
        conclude(frame);
    }
    waiting_.clear();
}

void frame_delivery::deliver(state_lock& lock, std::stop_token const& stop, exposed_frame& frame) {
    std::uint32_t unsent_packets = 0;
    if (frame.fate == frame_fate::sent && outlet_.faults().skips(frame.block.block_id)) {
        frame.fate = frame_fate::skipped;
    } else if (frame.fate == frame_fate::sent) {
        block_sender::result const result = send(lock, stop, frame);
        frame.fate = result.finished ? frame_fate::sent : frame_fate::aborted;
        unsent_packets = result.unsent_packets;
    }
    conclude(frame, unsent_packets);
}

/// A frame that was exposed, and has a block ID, is active until here, whatever has become of it.
void frame_delivery::conclude(exposed_frame& frame, std::uint32_t unsent_packets) {
    frame.faults = outlet_.faults().take_hits();
    if (frame.block.block_id != 0) {
        state_.change_lines([](output_lines& lines) { --lines.frames; },
                            frame.send_end.value_or(std::chrono::steady_clock::now()));
    }
    note(frame, unsent_packets);
}

/// As the state's, and then for the end of a freeze.
template <typename GivenUp>
bool frame_delivery::wait_until(state_lock& lock, std::stop_token const& stop, exposed_frame::time_point when,
                                GivenUp given_up) {
    if (!state_.wait_until(lock, stop, when, given_up)) {
        return false;
    }
    state_.changed.wait(lock, stop, [&] { return !state_.frozen || given_up(); });
    return !stop.stop_requested() && !given_up();
}

/// Sends without holding the state, looking at it before each run of packets: a closed channel ends the block there.
block_sender::result frame_delivery::send(state_lock& lock, std::stop_token const& stop, exposed_frame& frame) {
    auto const closed = [&] { return !state_.channels[0].open() || state_.channel_openings != frame.channel_opening; };
    if (!wait_until(lock, stop, frame.due, closed)) {
        return {.finished = false};
    }
    if (frame.channel_opening != channel_opening_) {
        channel_opening_ = frame.channel_opening;
        sent_.clear();
    }
    outlet_.socket().set_do_not_fragment(frame.do_not_fragment);
    lock.unlock();
    frame.send_start = std::chrono::steady_clock::now();
    auto const result = sender_.send(frame.block, frame.destination, frame.packet_interval, [&](auto when) {
        state_lock looking(state_.mutex);
        return wait_until(looking, stop, when, closed);
    });
    frame.send_end = std::chrono::steady_clock::now();
    lock.lock();
    return result;
}

void frame_delivery::note(exposed_frame const& frame, std::uint32_t unsent_packets) {
    if (truth_ == nullptr) {
        return;
    }
    truth_frame line;
    line.fate = frame.fate;
    line.block_id = frame.block.block_id;
    line.ticks = frame.block.timestamp;
    line.exposure_start_us = (nanoseconds(frame.exposure_start) + frame.utc_offset_ns) / 1000;
    line.unsent_packets = unsent_packets;
    line.times = {nanoseconds(frame.exposure_start),
                  nanoseconds(frame.exposure_end),
                  nanoseconds(frame.send_start),
                  nanoseconds(frame.send_end),
                  frame.delay.count(),
                  frame.utc_offset_ns};
    line.settings = frame.block.frame;
    line.chunks = frame.block.chunks;
    line.boot = state_.boot;
    line.faults = frame.faults;
    truth_->add(line);
}

}  // namespace camsim
