#include "telemetry/broker_conversation.hpp"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <utility>

#include "recording/frame_journal.hpp"
#include "host_log.hpp"
#include "telemetry/health_message.hpp"

namespace mediagrabber {

namespace {

using std::chrono::milliseconds;

constexpr std::chrono::seconds report_interval{10};
constexpr std::chrono::seconds answer_patience{10};  ///< until a broker has let this client in
constexpr std::chrono::seconds first_retry{1};
constexpr std::chrono::seconds longest_retry{30};
constexpr milliseconds longest_turn{250};
constexpr std::size_t most_at_once = 256;  ///< frames, before the network is looked after again

/// The same over all connections of this process: a broker then knows at once that the last one is over.
std::string random_name() {
    std::random_device source;
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "mg-%08x%08x", source(), source());
    return text.data();
}

file_handle event_descriptor() {
    file_handle opened(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!opened) {
        throw std::runtime_error("no event descriptor for the messages");
    }
    return opened;
}

}  // namespace

broker_conversation::broker_conversation(plan chosen)
    : plan_(std::move(chosen)),
      name_(random_name()),
      wake_(event_descriptor()),
      queue_(plan_.queue),
      report_(report_interval),
      retry_(first_retry) {}

void broker_conversation::begin(std::function<recording_status()> status) {
    std::lock_guard const lock(status_mutex_);
    status_ = std::move(status);
}

void broker_conversation::tell(frame_record const& record) noexcept {
    if (queue_.push(record)) {
        wake();
    }
}

void broker_conversation::end() {
    farewell_until_ = clock::now() + plan_.longest_farewell;
    ending_ = true;
    wake();
}

void broker_conversation::forget() {
    forgotten_ = true;
    begin(nullptr);
}

broker_status broker_conversation::status() const {
    return {.connected = connected_, .sent = sent_, .dropped = queue_.dropped() + lost_on_the_way_};
}

/// A broker that is not there at the end is not looked for once more.
void broker_conversation::run() {
    while (!ending_) {
        try {
            broker_connection connection(plan_.login, name_, presence("offline"));
            talk(connection);
        } catch (std::exception const& error) {
            note_loss(error.what());
        }
        connected_ = false;
        report();
        if (!ending_) {
            pause(retry_);
            retry_ = std::min<clock::duration>(2 * retry_, longest_retry);
        }
    }
    queue_.give_up();
}

/// Over one connection, until it is lost or all is said.
void broker_conversation::talk(broker_connection& connection) {
    auto const patience_until = clock::now() + answer_patience;
    greeted_ = false;
    parting_ = false;
    counted_ = 0;
    bool said_farewell = false;
    while (!connection.lost() && !said_farewell) {
        bool const more_to_say = connection.has_room() && queue_.waiting() > 0;
        connection.turn(wake_.get(), more_to_say ? milliseconds(0) : longest_turn);
        calm();
        if (connection.connected()) {
            greet(connection);
            tell_waiting(connection);
            tell_health(connection);
            said_farewell = ending_ && say_farewell(connection);
        } else if (!connection.lost() && (out_of_time() || clock::now() > patience_until)) {
            note_loss("it does not answer");
            return;
        }
        count(connection);
        report();
    }
    lost_on_the_way_ += connection.outstanding();
    if (!said_farewell) {
        note_loss(connection.reason());
    }
}

void broker_conversation::greet(broker_connection& connection) {
    if (greeted_) {
        return;
    }
    greeted_ = true;
    connected_ = true;
    retry_ = first_retry;
    next_health_ = clock::now();
    connection.publish(presence("online"));
    report_.note({.good = true, .text = "messages go to the broker at " + plan_.login.address.host});
}

/// None is given to a connection that has no room, so what waits waits here, where the oldest make room.
void broker_conversation::tell_waiting(broker_connection& connection) {
    for (std::size_t i = 0; i < most_at_once && connection.has_room(); ++i) {
        auto const record = queue_.pop();
        if (!record) {
            return;
        }
        auto line = journal_line(*record, {});
        line.pop_back();
        connection.publish({.topic = plan_.topic + "/frame",
                            .text = std::move(line),
                            .how = broker_connection::delivery::at_most_once,
                            .retained = false});
    }
}

/// One at a time: a broker that does not confirm gets no more of them.
void broker_conversation::tell_health(broker_connection& connection) {
    bool const last = ending_ && !parting_ && queue_.waiting() == 0;
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
                        .how = broker_connection::delivery::at_least_once,
                        .retained = true});
}

/// \return whether the conversation is over
bool broker_conversation::say_farewell(broker_connection& connection) {
    bool const hurry = out_of_time();
    if (queue_.waiting() > 0 && !hurry) {
        return false;
    }
    if (!parting_) {
        parting_ = true;
        connection.publish(presence("offline"));
    }
    if (connection.outstanding() > 0 && !hurry) {
        return false;
    }
    connection.disconnect();
    return true;
}

void broker_conversation::count(broker_connection const& connection) {
    sent_ += connection.delivered() - counted_;
    counted_ = connection.delivered();
}

void broker_conversation::note_loss(std::string const& reason) {
    report_.note({.good = false,
                  .text = "no messages reach the broker at " + plan_.login.address.host + ":" +
                          std::to_string(plan_.login.address.port) + ", which is tried again and again: " + reason});
}

void broker_conversation::report() {
    auto const message = forgotten_ ? std::nullopt : report_.due(clock::now());
    if (message) {
        (message->good ? log_info : log_warning)(message->text);
    }
}

/// Until the time has passed or the end is asked for; frames that come wake it for nothing, and but once.
void broker_conversation::pause(clock::duration time) {
    auto const until = clock::now() + time;
    while (!ending_ && clock::now() < until) {
        auto const left = std::chrono::ceil<milliseconds>(until - clock::now());
        pollfd watched{.fd = wake_.get(), .events = POLLIN, .revents = 0};
        poll(&watched, 1, static_cast<int>(std::max(left, milliseconds(0)).count()));
        calm();
        report();
    }
}

void broker_conversation::wake() noexcept {
    eventfd_write(wake_.get(), 1);
}

void broker_conversation::calm() noexcept {
    eventfd_t ignored = 0;
    eventfd_read(wake_.get(), &ignored);
}

bool broker_conversation::out_of_time() const {
    return ending_ && clock::now() > farewell_until_.load();
}

broker_connection::message broker_conversation::presence(char const* text) const {
    return {.topic = plan_.topic + "/status",
            .text = text,
            .how = broker_connection::delivery::at_least_once,
            .retained = true};
}

}  // namespace mediagrabber
