// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <future>
#include <memory>
#include <thread>

#include "config/configuration.hpp"
#include "frames/frame_observer_like.hpp"
#include "status/recording_status.hpp"
#include "telemetry/mqtt_session.hpp"

namespace mediagrabber {

/// Publishes frame records and health messages to an MQTT broker.
///
/// Owns the thread of an mqtt_session. on_frame() only queues a record, so the exporter never waits for the broker;
/// when the queue is full the oldest records are dropped and counted.
///
/// finish() takes a bounded time. If the thread is then still blocked, typically in name resolution, it is detached and
/// keeps the session alive by shared ownership until it returns.
class mqtt_publisher final : public frame_observer_like {
public:
    /// \param chosen    with a broker
    /// \param name  of the recording, for the topic
    /// \throws std::runtime_error  with a message for the operator, for example if the password file cannot be read
    mqtt_publisher(mqtt_configuration const& chosen, std::string const& name);
    ~mqtt_publisher() override;
    mqtt_publisher(mqtt_publisher const&) = delete;
    mqtt_publisher& operator=(mqtt_publisher const&) = delete;

    /// Starts the thread.
    /// \param status  called on the thread for each health message, until finish() returns
    void start(std::function<recording_status()> status);
    void on_frame(frame_lease const& frame) noexcept override;
    /// Sends the queued messages and disconnects cleanly, within 2.5 s at most. Without start() it does nothing.
    void finish();

    broker_status status() const { return session_->status(); }

private:
    bool const publishes_frames_;
    std::shared_ptr<mqtt_session> const session_;  ///< shared with the thread
    std::future<void> ended_;
    std::thread thread_;
};

}  // namespace mediagrabber
