// SPDX-License-Identifier: MIT
#include "telemetry/mqtt_session.hpp"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <utility>

#include "base/host_log.hpp"
#include "recording/frame_index.hpp"
#include "telemetry/health_message.hpp"

namespace mediagrabber {

namespace {

using std::chrono::milliseconds;

constexpr std::chrono::seconds report_interval{10};   ///< between log messages about the connection
constexpr std::chrono::seconds max_connect_time{10};  ///< until the broker has accepted the client
constexpr std::chrono::seconds first_retry{1};        ///< doubled for each failure, up to max_retry
constexpr std::chrono::seconds max_retry{30};
constexpr milliseconds max_poll{250};   ///< bounds the delay of a due health message
constexpr std::size_t max_batch = 256;  ///< records published before the network is polled again

/// The same for all connections of this process, so that the broker ends the previous connection at once.
std::string random_name() {
    std::random_device source;
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "mg-%08x%08x", source(), source());
    return text.data();
}

file_handle event_descriptor() {
    file_handle opened(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!opened) {
        throw std::runtime_error("cannot create an eventfd for the MQTT session");
    }
    return opened;
}

}  // namespace

mqtt_session::mqtt_session(plan chosen)
    : plan_(std::move(chosen)),
      name_(random_name()),
      wake_(event_descriptor()),
      queue_(plan_.queue),
      report_(report_interval),
      retry_(first_retry) {}

void mqtt_session::set_status_source(std::function<recording_status()> status) {
    std::lock_guard const lock(status_mutex_);
    status_ = std::move(status);
}

void mqtt_session::push(frame_record const& record) noexcept {
    if (queue_.push(record)) {
        wake();
    }
}

void mqtt_session::end() {
    disconnect_until_ = clock::now() + plan_.max_disconnect_time;
    ending_ = true;
    wake();
}

void mqtt_session::abandon() {
    abandoned_ = true;
    set_status_source(nullptr);
}

broker_status mqtt_session::status() const {
    return {.connected = connected_, .sent = sent_, .dropped = queue_.dropped() + lost_in_flight_};
}

/// An unreachable broker is not tried again once the end has been requested.
void mqtt_session::run() {
    while (!ending_) {
        try {
            mqtt_connection connection(plan_.credentials, name_, presence("offline"));
            serve(connection);
        } catch (std::exception const& error) {
            note_loss(error.what());
        }
        connected_ = false;
        report();
        if (!ending_) {
            pause(retry_);
            retry_ = std::min<clock::duration>(2 * retry_, max_retry);
        }
    }
    queue_.drop_all();
}

/// Runs one connection until it is lost or cleanly disconnected.
void mqtt_session::serve(mqtt_connection& connection) {
    auto const connect_until = clock::now() + max_connect_time;
    announced_ = false;
    leaving_ = false;
    counted_ = 0;
    bool disconnected = false;
    while (!connection.lost() && !disconnected) {
        bool const more_to_send = connection.has_capacity() && queue_.size() > 0;
        connection.poll(wake_.get(), more_to_send ? milliseconds(0) : max_poll);
        clear_wake();
        if (connection.connected()) {
            announce(connection);
            publish_records(connection);
            publish_health(connection);
            disconnected = ending_ && disconnect(connection);
        } else if (!connection.lost() && (out_of_time() || clock::now() > connect_until)) {
            note_loss("the broker does not respond");
            return;
        }
        count(connection);
        report();
    }
    lost_in_flight_ += connection.outstanding();
    if (!disconnected) {
        note_loss(connection.reason());
    }
}

void mqtt_session::announce(mqtt_connection& connection) {
    if (announced_) {
        return;
    }
    announced_ = true;
    connected_ = true;
    retry_ = first_retry;
    next_health_ = clock::now();
    connection.publish(presence("online"));
    report_.note({.good = true, .text = "connected to the MQTT broker at " + plan_.credentials.address.host});
}

/// A connection without capacity gets no records: they wait in the queue, which drops the oldest when it is full.
void mqtt_session::publish_records(mqtt_connection& connection) {
    for (std::size_t i = 0; i < max_batch && connection.has_capacity(); ++i) {
        auto const record = queue_.pop();
        if (!record) {
            return;
        }
        auto line = index_line(*record, {});
        line.pop_back();
        connection.publish({.topic = plan_.topic + "/frame",
                            .text = std::move(line),
                            .how = mqtt_connection::delivery::at_most_once,
                            .retained = false});
    }
}

/// At most one is in flight: a broker that does not confirm gets no further ones.
void mqtt_session::publish_health(mqtt_connection& connection) {
    bool const last = ending_ && !leaving_ && queue_.size() == 0;
    if (!last && (clock::now() < next_health_ || connection.outstanding() != 0)) {
        return;
    }
    next_health_ = clock::now() + plan_.health_interval;
    std::string text;
    {
        std::lock_guard const lock(status_mutex_);
        if (!status_) {
            return;
        }
        text = health_message(status_());
    }
    connection.publish({.topic = plan_.topic + "/health",
                        .text = std::move(text),
                        .how = mqtt_connection::delivery::at_least_once,
                        .retained = true});
}

/// Flushes the queue, publishes "offline" and disconnects, without waiting if time is up.
/// \return whether the connection has been closed
bool mqtt_session::disconnect(mqtt_connection& connection) {
    bool const late = out_of_time();
    if (queue_.size() > 0 && !late) {
        return false;
    }
    if (!leaving_) {
        leaving_ = true;
        connection.publish(presence("offline"));
    }
    if (connection.outstanding() > 0 && !late) {
        return false;
    }
    connection.disconnect();
    return true;
}

void mqtt_session::count(mqtt_connection const& connection) {
    sent_ += connection.delivered() - counted_;
    counted_ = connection.delivered();
}

void mqtt_session::note_loss(std::string const& reason) {
    report_.note({.good = false,
                  .text = "not connected to the MQTT broker at " + plan_.credentials.address.host + ":" +
                          std::to_string(plan_.credentials.address.port) + ", retrying: " + reason});
}

void mqtt_session::report() {
    auto const message = abandoned_ ? std::nullopt : report_.due(clock::now());
    if (message) {
        (message->good ? log_info : log_warning)(message->text);
    }
}

/// Returns early if the end is requested. Of the records queued meanwhile only the first wakes it.
void mqtt_session::pause(clock::duration time) {
    auto const until = clock::now() + time;
    while (!ending_ && clock::now() < until) {
        auto const left = std::chrono::ceil<milliseconds>(until - clock::now());
        pollfd watched{.fd = wake_.get(), .events = POLLIN, .revents = 0};
        poll(&watched, 1, static_cast<int>(std::max(left, milliseconds(0)).count()));
        clear_wake();
        report();
    }
}

void mqtt_session::wake() noexcept {
    eventfd_write(wake_.get(), 1);
}

void mqtt_session::clear_wake() noexcept {
    eventfd_t ignored = 0;
    eventfd_read(wake_.get(), &ignored);
}

bool mqtt_session::out_of_time() const {
    return ending_ && clock::now() > disconnect_until_.load();
}

mqtt_connection::message mqtt_session::presence(char const* text) const {
    return {.topic = plan_.topic + "/status",
            .text = text,
            .how = mqtt_connection::delivery::at_least_once,
            .retained = true};
}

}  // namespace mediagrabber
