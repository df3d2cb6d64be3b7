#pragma once

#include <mosquitto.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "telemetry/broker_login.hpp"

namespace mediagrabber {

/// One connection to a broker, from its attempt to its end; another attempt takes another one, so nothing of one that
/// was lost is left behind. Belongs to one thread, which calls turn() again and again.
class broker_connection {
public:
    enum class delivery : std::uint8_t { at_most_once, at_least_once };

    struct message {
        std::string topic;
        std::string text;
        delivery how = delivery::at_most_once;
        bool retained = false;
    };

    ~broker_connection() = default;
    /// Begins to connect. Resolving the broker's name may take as long as the system's resolver takes.
    /// \param name  of this client: a broker ends the connection that another client of that name has
    /// \param will  what the broker tells when this client is gone without a farewell
    /// \throws std::runtime_error when that is not even begun
    broker_connection(broker_login const& login, std::string const& name, message const& will);

    /// Waits for the network or for `wake` (a descriptor to read from), and does what there is to do.
    void turn(int wake, std::chrono::milliseconds longest);

    bool connected() const { return connected_; }
    bool lost() const { return lost_; }
    /// Why it was lost.
    std::string const& reason() const { return reason_; }

    /// Whether the network takes another message now, so that none is kept here.
    bool has_room() const;
    void publish(message const& one);
    /// Messages that were given to publish() and are not delivered as far as their kind of delivery tells.
    std::uint64_t outstanding() const { return published_ - delivered_; }
    std::uint64_t delivered() const { return delivered_; }

    /// Says farewell, so that the broker keeps the will to itself.
    void disconnect();

    broker_connection(broker_connection const&) = delete;
    broker_connection& operator=(broker_connection const&) = delete;

private:
    struct end_client {
        void operator()(mosquitto* client) const { mosquitto_destroy(client); }
    };

    void encrypt(broker_login const& login);
    void lose(std::string reason);
    void lose_by(int error);
    static void on_connect(mosquitto* client, void* self, int answer);
    static void on_delivery(mosquitto* client, void* self, int message);
    static void on_log(mosquitto* client, void* self, int level, char const* text);

    std::unique_ptr<mosquitto, end_client> client_;
    bool connected_ = false;
    bool lost_ = false;
    std::string reason_;
    std::string last_error_;  ///< that the library told of
    std::uint64_t published_ = 0;
    std::uint64_t delivered_ = 0;
};

}  // namespace mediagrabber
