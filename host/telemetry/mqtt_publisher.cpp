// SPDX-License-Identifier: MIT
#include "telemetry/mqtt_publisher.hpp"

#include <chrono>
#include <csignal>
#include <utility>

#include "base/host_log.hpp"
#include "config/topic.hpp"

namespace mediagrabber {

namespace {

using clock = mqtt_session::clock;

// Together they keep the end of a recording below 3 s, also with an unreachable broker.
constexpr std::chrono::seconds max_disconnect_time{2};
constexpr std::chrono::milliseconds max_thread_wait{2500};  ///< until the thread is detached

mqtt_session::plan plan_of(mqtt_configuration const& chosen, std::string const& name) {
    std::chrono::duration<double> const interval(chosen.health_interval_s);
    return {.credentials = credentials_of(chosen),
            .topic = topic_of(chosen, name),
            .queue = chosen.queue_frames,
            .health_interval = std::chrono::duration_cast<clock::duration>(interval),
            .max_disconnect_time = max_disconnect_time};
}

/// Writing to a connection that the broker has closed must not end the process.
void block_broken_pipe() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

}  // namespace

mqtt_publisher::mqtt_publisher(mqtt_configuration const& chosen, std::string const& name)
    : publishes_frames_(chosen.frames), session_(std::make_shared<mqtt_session>(plan_of(chosen, name))) {}

mqtt_publisher::~mqtt_publisher() {
    finish();
}

void mqtt_publisher::start(std::function<recording_status()> status) {
    session_->set_status_source(std::move(status));
    std::promise<void> ended;
    ended_ = ended.get_future();
    thread_ = std::thread([session = session_, ended = std::move(ended)]() mutable {
        block_broken_pipe();
        session->run();
        ended.set_value();
    });
}

void mqtt_publisher::on_frame(frame_lease const& frame) noexcept {
    if (publishes_frames_) {
        session_->push(frame.record());
    }
}

void mqtt_publisher::finish() {
    if (!thread_.joinable()) {
        return;
    }
    session_->end();
    if (ended_.wait_for(max_thread_wait) == std::future_status::ready) {
        thread_.join();
    } else {
        session_->abandon();
        thread_.detach();
    }
    auto const status = session_->status();
    if (status.dropped != 0) {
        log_warning(std::to_string(status.dropped) + " MQTT messages were dropped, " + std::to_string(status.sent) +
                    " were sent");
    }
}

}  // namespace mediagrabber
