// SPDX-License-Identifier: MIT
#include "telemetry/mqtt_connection.hpp"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace mediagrabber {

namespace {

constexpr int keepalive_s = 15;  ///< libmosquitto gives up a connection that is silent for longer
constexpr std::chrono::milliseconds handshake_wait{
    50};  ///< while connecting, libmosquitto does not report what it waits for

std::string text_of_errno(int error) {
    return std::generic_category().message(error);
}

void require(int result, char const* what) {
    if (result != MOSQ_ERR_SUCCESS) {
        throw std::runtime_error(std::string(what) + ": " + mosquitto_strerror(result));
    }
}

/// A service has no terminal to type a passphrase, so an encrypted key file is an error.
int no_passphrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*client*/) {
    return 0;
}

int quality(mqtt_connection::delivery how) {
    return how == mqtt_connection::delivery::at_least_once ? 1 : 0;
}

char const* or_null(std::optional<std::string> const& text) {
    return text ? text->c_str() : nullptr;
}

/// \return errno of the connection attempt, 0 if it has not failed
int connect_error(int socket) {
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : 0;
}

void initialise_library() {
    [[maybe_unused]] static int const done = mosquitto_lib_init();
}

}  // namespace

mqtt_connection::mqtt_connection(broker_credentials const& credentials, std::string const& name, message const& will) {
    initialise_library();
    client_.reset(mosquitto_new(name.c_str(), true, this));
    if (!client_) {
        throw std::runtime_error("cannot create the MQTT client: " + text_of_errno(errno));
    }
    auto* const client = client_.get();
    mosquitto_connect_callback_set(client, on_connect);
    mosquitto_publish_callback_set(client, on_delivery);
    mosquitto_log_callback_set(client, on_log);
    require(mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1), "TCP_NODELAY");
    require(mosquitto_username_pw_set(client, or_null(credentials.username), or_null(credentials.password)),
            "user name");
    require(mosquitto_will_set(client, will.topic.c_str(), static_cast<int>(will.text.size()), will.text.data(),
                               quality(will.how), will.retained),
            "last will");
    if (credentials.address.encrypted) {
        encrypt(credentials);
    }
    errno = 0;
    int const result =
        mosquitto_connect_async(client, credentials.address.host.c_str(), credentials.address.port, keepalive_s);
    if (result != MOSQ_ERR_SUCCESS) {
        lose_by(result);
    }
}

/// The broker's certificate must be valid and issued for the configured host name.
void mqtt_connection::encrypt(broker_credentials const& credentials) {
    constexpr char system_authorities[] = "/etc/ssl/certs";
    require(mosquitto_tls_set(client_.get(), or_null(credentials.ca_file),
                              credentials.ca_file ? nullptr : system_authorities, or_null(credentials.certificate_file),
                              or_null(credentials.key_file), no_passphrase),
            "certificates");
}

void mqtt_connection::on_connect(mosquitto* /*client*/, void* self, int reply) {
    auto& connection = *static_cast<mqtt_connection*>(self);
    if (reply == 0) {
        connection.connected_ = true;
    } else {
        connection.lose(mosquitto_connack_string(reply));
    }
}

void mqtt_connection::on_delivery(mosquitto* /*client*/, void* self, int /*message*/) {
    ++static_cast<mqtt_connection*>(self)->delivered_;
}

void mqtt_connection::on_log(mosquitto* /*client*/, void* self, int level, char const* text) {
    if (level == MOSQ_LOG_ERR) {
        static_cast<mqtt_connection*>(self)->last_error_ = text;
    }
}

/// Only the first reason is stored: later ones are its consequences.
void mqtt_connection::lose(std::string reason) {
    if (!lost_) {
        reason_ = std::move(reason);
    }
    lost_ = true;
    connected_ = false;
}

void mqtt_connection::lose_by(int error) {
    std::string reason = error == MOSQ_ERR_ERRNO && errno != 0 ? text_of_errno(errno) : mosquitto_strerror(error);
    if (!last_error_.empty()) {
        reason += " (" + last_error_ + ")";
    }
    lose(std::move(reason));
}

void mqtt_connection::poll(int wake, std::chrono::milliseconds max_wait) {
    int const socket = mosquitto_socket(client_.get());
    if (lost_ || socket < 0) {
        lose("the connection is closed");
        return;
    }
    // A connection attempt may wait for either direction without libmosquitto reporting which.
    auto const wait = connected_ ? max_wait : std::min(max_wait, handshake_wait);
    auto const wanted = static_cast<short>(mosquitto_want_write(client_.get()) ? POLLIN | POLLOUT : POLLIN);
    std::array<pollfd, 2> watched{
        {{.fd = socket, .events = wanted, .revents = 0}, {.fd = wake, .events = POLLIN, .revents = 0}}};
    ::poll(watched.data(), watched.size(), static_cast<int>(wait.count()));
    if ((watched[0].revents & POLLERR) != 0) {
        if (int const error = connect_error(socket); error != 0) {
            lose(text_of_errno(error));
            return;
        }
    }
    errno = 0;
    int const result = mosquitto_loop(client_.get(), 0, 1);
    if (result != MOSQ_ERR_SUCCESS) {
        lose_by(result);
    }
}

bool mqtt_connection::has_capacity() const {
    return connected_ && !mosquitto_want_write(client_.get());
}

void mqtt_connection::publish(message const& one) {
    ++published_;
    errno = 0;
    int const result = mosquitto_publish(client_.get(), nullptr, one.topic.c_str(), static_cast<int>(one.text.size()),
                                         one.text.data(), quality(one.how), one.retained);
    if (result != MOSQ_ERR_SUCCESS) {
        lose_by(result);
    }
}

void mqtt_connection::disconnect() {
    mosquitto_disconnect(client_.get());
}

}  // namespace mediagrabber
