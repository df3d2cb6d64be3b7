// SPDX-License-Identifier: MIT
#include "stream/frame_delivery.hpp"

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

void frame_delivery::stop() {
    thread_ = {};
}

void frame_delivery::enqueue(exposed_frame frame) {
    if (frame.outcome == frame_outcome::sent) {
        frame.delay = delay_.next();
    }
    last_due_ = std::max(last_due_, frame.exposure_end + frame.delay);
    frame.due = last_due_;
    queue_.push_back(std::move(frame));
    state_.changed.notify_all();
}

std::chrono::nanoseconds frame_delivery::lateness() const {
    return queue_.empty() ? std::chrono::nanoseconds(0) : std::chrono::steady_clock::now() - queue_.front().due;
}

void frame_delivery::run(std::stop_token const& stop) {
    // Runs of packets are due to the microsecond; the default slack of timed waits is 50 us.
    ::prctl(PR_SET_TIMERSLACK, 1UL);
    state_lock lock(state_.mutex);
    auto const has_frames = [this] { return !queue_.empty(); };
    while (state_.changed.wait(lock, stop, has_frames) && !stop.stop_requested()) {
        deliver(lock, stop, queue_.front());
        queue_.pop_front();
    }
    for (exposed_frame& frame : queue_) {
        frame.outcome = frame.outcome == frame_outcome::sent ? frame_outcome::aborted : frame.outcome;
        conclude(frame);
    }
    queue_.clear();
}

void frame_delivery::deliver(state_lock& lock, std::stop_token const& stop, exposed_frame& frame) {
    std::uint32_t unsent_packets = 0;
    if (frame.outcome == frame_outcome::sent && outlet_.faults().drops_block(frame.block.block_id)) {
        frame.outcome = frame_outcome::dropped;
    } else if (frame.outcome == frame_outcome::sent) {
        block_sender::result const result = send(lock, stop, frame);
        frame.outcome = result.finished ? frame_outcome::sent : frame_outcome::aborted;
        unsent_packets = result.unsent_packets;
    }
    conclude(frame, unsent_packets);
}

/// Ends a frame. Line source FrameActive covers each exposed frame, which has a block ID, until here.
void frame_delivery::conclude(exposed_frame& frame, std::uint32_t unsent_packets) {
    frame.faults = outlet_.faults().take_hits();
    if (frame.block.block_id != 0) {
        state_.change_lines([](output_lines& lines) { --lines.frames; },
                            frame.send_end.value_or(std::chrono::steady_clock::now()));
    }
    write_truth(frame, unsent_packets);
}

/// Waits like camera_state::wait_until(), and then for the end of fault freeze.
template <typename predicate>
bool frame_delivery::wait_until(state_lock& lock, std::stop_token const& stop, exposed_frame::time_point when,
                                predicate cancelled) {
    if (!state_.wait_until(lock, stop, when, cancelled)) {
        return false;
    }
    state_.changed.wait(lock, stop, [&] { return !state_.stream_frozen || cancelled(); });
    return !stop.stop_requested() && !cancelled();
}

/// Sends with the state unlocked. It is checked before each run of packets, so closing the channel aborts the block.
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
        state_lock relocked(state_.mutex);
        return wait_until(relocked, stop, when, closed);
    });
    frame.send_end = std::chrono::steady_clock::now();
    lock.lock();
    return result;
}

void frame_delivery::write_truth(exposed_frame const& frame, std::uint32_t unsent_packets) {
    if (truth_ == nullptr) {
        return;
    }
    truth_frame line;
    line.outcome = frame.outcome;
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
    line.power_cycle = state_.power_cycle;
    line.faults = frame.faults;
    truth_->add(line);
}

}  // namespace camsim
