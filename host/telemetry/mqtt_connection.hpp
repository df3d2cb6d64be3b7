// SPDX-License-Identifier: MIT
#pragma once

#include <mosquitto.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "config/broker_credentials.hpp"

namespace mediagrabber {

/// One connection to an MQTT broker, from the attempt to connect to its loss. Reconnecting takes another object, so no
/// state of a lost connection (queued messages, library errors) survives in the next one.
///
/// Belongs to one thread, which calls poll() repeatedly; libmosquitto's callbacks run inside of poll(). Failures after
/// the constructor do not throw: lost() becomes true and reason() names the first cause.
class mqtt_connection {
public:
    enum class delivery : std::uint8_t { at_most_once, at_least_once };  ///< MQTT QoS 0 and 1

    struct message {
        std::string topic;
        std::string text;
        delivery how = delivery::at_most_once;
        bool retained = false;
    };

    ~mqtt_connection() = default;
    /// Starts to connect. Resolving the broker's name blocks for as long as the system's resolver takes.
    /// \param name  client identifier; a broker ends an earlier connection of the same identifier
    /// \param will  last will: the broker publishes it if this client disappears without a clean disconnect
    /// \throws std::runtime_error if the client cannot be set up
    mqtt_connection(broker_credentials const& credentials, std::string const& name, message const& will);

    /// Waits for the network or for `wake`, then handles incoming and outgoing data.
    /// \param wake      a descriptor; becoming readable ends the wait
    /// \param max_wait  limit of the wait; shorter while connecting
    void poll(int wake, std::chrono::milliseconds max_wait);

    /// \return whether the broker has accepted the client
    bool connected() const { return connected_; }
    bool lost() const { return lost_; }
    /// \return the first cause of the loss
    std::string const& reason() const { return reason_; }

    /// \return whether the network accepts another message now, so that the library does not queue it
    bool has_capacity() const;
    void publish(message const& one);
    /// \return messages published and not yet delivered; QoS 0 counts as delivered when written, QoS 1 when confirmed
    std::uint64_t outstanding() const { return published_ - delivered_; }
    std::uint64_t delivered() const { return delivered_; }

    /// Disconnects cleanly: the broker does not publish the last will.
    void disconnect();

    mqtt_connection(mqtt_connection const&) = delete;
    mqtt_connection& operator=(mqtt_connection const&) = delete;

private:
    struct destroy_client {
        void operator()(mosquitto* client) const { mosquitto_destroy(client); }
    };

    void encrypt(broker_credentials const& credentials);
    void lose(std::string reason);
    void lose_by(int error);
    static void on_connect(mosquitto* client, void* self, int reply);
    static void on_delivery(mosquitto* client, void* self, int message);
    static void on_log(mosquitto* client, void* self, int level, char const* text);

    std::unique_ptr<mosquitto, destroy_client> client_;
    bool connected_ = false;
    bool lost_ = false;
    std::string reason_;
    std::string last_error_;  ///< logged by the library
    std::uint64_t published_ = 0;
    std::uint64_t delivered_ = 0;
};

}  // namespace mediagrabber
