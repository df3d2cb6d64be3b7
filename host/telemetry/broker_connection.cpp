#include "telemetry/broker_connection.hpp"

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

constexpr int keepalive_s = 15;  ///< a broker that is silent for longer is gone
constexpr std::chrono::milliseconds handshake_step{50};

std::string text_of_errno(int error) {
    return std::generic_category().message(error);
}

void require(int result, char const* what) {
    if (result != MOSQ_ERR_SUCCESS) {
        throw std::runtime_error(std::string(what) + ": " + mosquitto_strerror(result));
    }
}

/// Nobody is there to type one.
int no_passphrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*client*/) {
    return 0;
}

int quality(broker_connection::delivery how) {
    return how == broker_connection::delivery::at_least_once ? 1 : 0;
}

char const* or_null(std::optional<std::string> const& text) {
    return text ? text->c_str() : nullptr;
}

/// What became of connecting, as the system tells; 0: nothing bad.
int connect_error(int socket) {
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : 0;
}

void initialise_library() {
    [[maybe_unused]] static int const done = mosquitto_lib_init();
}

}  // namespace

broker_connection::broker_connection(broker_login const& login, std::string const& name, message const& will) {
    initialise_library();
    client_.reset(mosquitto_new(name.c_str(), true, this));
    if (!client_) {
        throw std::runtime_error("no client: " + text_of_errno(errno));
    }
    auto* const client = client_.get();
    mosquitto_connect_callback_set(client, on_connect);
    mosquitto_publish_callback_set(client, on_delivery);
    mosquitto_log_callback_set(client, on_log);
    require(mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1), "TCP_NODELAY");
    require(mosquitto_username_pw_set(client, or_null(login.username), or_null(login.password)), "user name");
    require(mosquitto_will_set(client, will.topic.c_str(), static_cast<int>(will.text.size()), will.text.data(),
                               quality(will.how), will.retained),
            "last will");
    if (login.address.encrypted) {
        encrypt(login);
    }
    errno = 0;
    int const result = mosquitto_connect_async(client, login.address.host.c_str(), login.address.port, keepalive_s);
    if (result != MOSQ_ERR_SUCCESS) {
        lose_by(result);
    }
}

/// The broker's certificate has to be valid, and be for the host that is configured.
void broker_connection::encrypt(broker_login const& login) {
    constexpr char authorities_of_the_system[] = "/etc/ssl/certs";
    require(
        mosquitto_tls_set(client_.get(), or_null(login.ca_file), login.ca_file ? nullptr : authorities_of_the_system,
                          or_null(login.certificate_file), or_null(login.key_file), no_passphrase),
        "certificates");
}

void broker_connection::on_connect(mosquitto* /*client*/, void* self, int answer) {
    auto& connection = *static_cast<broker_connection*>(self);
    if (answer == 0) {
        connection.connected_ = true;
    } else {
        connection.lose(mosquitto_connack_string(answer));
    }
}

void broker_connection::on_delivery(mosquitto* /*client*/, void* self, int /*message*/) {
    ++static_cast<broker_connection*>(self)->delivered_;
}

void broker_connection::on_log(mosquitto* /*client*/, void* self, int level, char const* text) {
    if (level == MOSQ_LOG_ERR) {
        static_cast<broker_connection*>(self)->last_error_ = text;
    }
}

/// The first reason is the one that counts.
void broker_connection::lose(std::string reason) {
    if (!lost_) {
        reason_ = std::move(reason);
    }
    lost_ = true;
    connected_ = false;
}

void broker_connection::lose_by(int error) {
    std::string reason = error == MOSQ_ERR_ERRNO && errno != 0 ? text_of_errno(errno) : mosquitto_strerror(error);
    if (!last_error_.empty()) {
        reason += " (" + last_error_ + ")";
    }
    lose(std::move(reason));
}

void broker_connection::turn(int wake, std::chrono::milliseconds longest) {
    int const socket = mosquitto_socket(client_.get());
    if (lost_ || socket < 0) {
        lose("the connection is closed");
        return;
    }
    // While a connection is made it may wait for either direction.
    auto const patience = connected_ ? longest : std::min(longest, handshake_step);
    auto const wanted = static_cast<short>(mosquitto_want_write(client_.get()) ? POLLIN | POLLOUT : POLLIN);
    std::array<pollfd, 2> watched{
        {{.fd = socket, .events = wanted, .revents = 0}, {.fd = wake, .events = POLLIN, .revents = 0}}};
    poll(watched.data(), watched.size(), static_cast<int>(patience.count()));
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

bool broker_connection::has_room() const {
    return connected_ && !mosquitto_want_write(client_.get());
}

void broker_connection::publish(message const& one) {
    ++published_;
    errno = 0;
    int const result = mosquitto_publish(client_.get(), nullptr, one.topic.c_str(), static_cast<int>(one.text.size()),
                                         one.text.data(), quality(one.how), one.retained);
    if (result != MOSQ_ERR_SUCCESS) {
        lose_by(result);
    }
}

void broker_connection::disconnect() {
    mosquitto_disconnect(client_.get());
}

}  // namespace mediagrabber
