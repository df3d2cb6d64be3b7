// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "base/file_handle.hpp"
#include "config/broker_credentials.hpp"
#include "status/recording_status.hpp"
#include "telemetry/mqtt_connection.hpp"
#include "telemetry/rate_limited_log.hpp"
#include "telemetry/record_queue.hpp"

namespace mediagrabber {

/// The MQTT side of a recording, over as many connections as necessary: reconnects with increasing pauses, publishes
/// frame records, health messages and its presence ("online", "offline").
///
/// run() occupies one thread; all other public members may be called by other threads meanwhile. Records are handed
/// over through a bounded queue and an eventfd. No message is sent twice: a frame record that is in flight when the
/// connection is lost counts as dropped.
class mqtt_session {
public:
    using clock = std::chrono::steady_clock;

    struct plan {
        broker_credentials credentials;
        std::string topic;      ///< prefix of all topics
        std::size_t queue = 0;  ///< frame records
        clock::duration health_interval{};
        clock::duration max_disconnect_time{};  ///< from end() to the clean disconnect
    };

    explicit mqtt_session(plan chosen);

    /// Runs until end() has been called and the queue is flushed, or `max_disconnect_time` has passed since end().
    void run();

    /// \param status  called for each health message, on the thread of run(); null: publish no health
    void set_status_source(std::function<recording_status()> status);
    /// Queues a frame record. Takes microseconds.
    void push(frame_record const& record) noexcept;
    /// Requests the end: run() flushes the queue and disconnects cleanly.
    void end();
    /// Called before the thread is detached: run() uses neither the status source nor the log afterwards.
    void abandon();

    broker_status status() const;

private:
    void serve(mqtt_connection& connection);
    void announce(mqtt_connection& connection);
    void publish_records(mqtt_connection& connection);
    void publish_health(mqtt_connection& connection);
    bool disconnect(mqtt_connection& connection);
    void count(mqtt_connection const& connection);
    void note_loss(std::string const& reason);
    void report();
    void pause(clock::duration time);
    void wake() noexcept;
    void clear_wake() noexcept;
    bool out_of_time() const;
    mqtt_connection::message presence(char const* text) const;

    plan const plan_;
    std::string const name_;  ///< client identifier
    file_handle const wake_;  ///< eventfd: a record is queued, or the end is requested
    record_queue queue_;
    rate_limited_log report_;

    std::mutex status_mutex_;  ///< guards status_, held while it runs
    std::function<recording_status()> status_;

    std::atomic<bool> ending_{false};
    std::atomic<clock::time_point> disconnect_until_{};
    std::atomic<bool> abandoned_{false};
    std::atomic<bool> connected_{false};
    std::atomic<std::uint64_t> sent_{0};
    std::atomic<std::uint64_t> lost_in_flight_{0};

    // State of the current connection, used only by the thread of run().
    bool announced_ = false;  ///< "online" has been published
    bool leaving_ = false;    ///< "offline" has been published
    std::uint64_t counted_ = 0;
    clock::time_point next_health_{};
    clock::duration retry_{};
};

}  // namespace mediagrabber
