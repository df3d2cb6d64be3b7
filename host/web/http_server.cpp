// SPDX-License-Identifier: MIT
#include "web/http_server.hpp"

#include <fcntl.h>
#include <microhttpd.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <exception>
#include <stdexcept>
#include <utility>

#include "base/thread_scheduling.hpp"

namespace mediagrabber {

namespace {

/// Closing a socket with unread data resets the connection, and the client could lose the response. What the client
/// still sends is therefore read and discarded, up to these limits.
constexpr std::chrono::milliseconds drain_time{200};
constexpr std::size_t drain_bytes = 64 * 1024;
/// For responses that are being sent when the server stops, for example that to the request to stop.
constexpr std::chrono::milliseconds stop_time{300};
constexpr std::size_t stream_block_bytes = 64 * 1024;
constexpr int too_large = 413;
constexpr int failed = 500;
constexpr int unavailable = 503;

}  // namespace

/// One request and its response, which live until the library has sent the response.
struct http_server::exchange {
    http_server& server;
    MHD_Connection* const connection;
    clients::iterator const of;
    http_request request;
    http_response response;
    bool body_too_large = false;
    bool dispatched = false;
    std::shared_ptr<std::string const> part{};  ///< of a stream
    std::size_t sent = 0;                       ///< bytes of the part

    void respond(std::function<void()> const& handle) {
        try {
            handle();
        } catch (std::exception const& error) {
            response = http_response();
            response.status = failed;
            response.set_content(std::string(error.what()) + "\n", "text/plain; charset=utf-8");
        }
    }
    bool is_answered_early();
    MHD_Result dispatch();
    MHD_Result send();
    ssize_t read_stream(char* into, std::size_t space);
    void enter(phase next, clock::time_point until) const {
        std::lock_guard const lock(server.mutex_);
        of->state = next;
        of->until = until;
    }
};

/// The library calls all of these on its thread, except on_connection() at the start of a connection.
struct http_server::callbacks {
    static MHD_Result on_request(void* self, MHD_Connection* connection, char const* path, char const* method,
                                 char const*, char const* data, std::size_t* size, void** begun);
    static void on_connection(void* self, MHD_Connection* connection, void** context,
                              MHD_ConnectionNotificationCode code);
    static void on_completed(void* /*self*/, MHD_Connection* /*connection*/, void** begun,
                             MHD_RequestTerminationCode /*why*/) {
        delete static_cast<exchange*>(std::exchange(*begun, nullptr));
    }
    static ssize_t on_stream(void* of, std::uint64_t /*position*/, char* into, std::size_t space) try {
        return static_cast<exchange*>(of)->read_stream(into, space);
    } catch (std::exception const&) {
        return MHD_CONTENT_READER_END_WITH_ERROR;  // no image: ends the connection, and a new one gets the reason
    }
    static MHD_Result on_header(void* into, MHD_ValueKind, char const* name, char const* value) {
        static_cast<http_request*>(into)->headers.emplace(name, value == nullptr ? "" : value);
        return MHD_YES;
    }
    static MHD_Result on_parameter(void* into, MHD_ValueKind, char const* name, char const* value) {
        static_cast<http_request*>(into)->parameters.emplace(name, value == nullptr ? "" : value);
        return MHD_YES;
    }
};

void http_server::callbacks::on_connection(void* self, MHD_Connection* connection, void**,
                                           MHD_ConnectionNotificationCode code) {
    if (code != MHD_CONNECTION_NOTIFY_CLOSED) {
        return;
    }
    auto& its = *static_cast<http_server*>(self);
    auto const* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    std::lock_guard const lock(its.mutex_);
    auto const found = its.by_copy_.find(info->connect_fd);
    if (found == its.by_copy_.end()) {
        return;
    }
    client& one = *found->second;
    if (!one.ended) {
        shutdown(one.connection.get(), SHUT_WR);
        one.state = phase::drains;
        one.until = clock::now() + drain_time;
    } else {
        its.clients_.erase(found->second);
    }
    its.by_copy_.erase(found);
    its.closed_.notify_all();
}

/// \return whether the request needs no body
bool http_server::exchange::is_answered_early() {
    bool answered = false;
    respond([&] { answered = server.handlers_.before_body(request, response); });
    auto const announced = request.header("Content-Length");
    std::size_t length = 0;
    std::from_chars(announced.data(), announced.data() + announced.size(), length);
    if (!answered && response.status != failed && length > server.limits_.body_bytes) {
        response.status = too_large;
    }
    return answered || response.status == failed || response.status == too_large;
}

MHD_Result http_server::callbacks::on_request(void* self, MHD_Connection* connection, char const* path,
                                              char const* method, char const*, char const* data, std::size_t* size,
                                              void** begun) try {
    auto& its = *static_cast<http_server*>(self);
    if (*begun == nullptr) {  // the header is complete
        auto const* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
        std::unique_lock lock(its.mutex_);
        auto const found = its.by_copy_.find(info->connect_fd);
        if (found == its.by_copy_.end()) {
            return MHD_NO;
        }
        auto* const made =
            new exchange{.server = its, .connection = connection, .of = found->second, .request = {}, .response = {}};
        made->request.remote = found->second->remote;
        lock.unlock();
        *begun = made;  // on_completed() deletes it
        made->request.path = path;
        made->request.method = method;
        MHD_get_connection_values(connection, MHD_HEADER_KIND, on_header, &made->request);
        MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, on_parameter, &made->request);
        return made->is_answered_early() ? made->send() : MHD_YES;
    }
    auto& one = *static_cast<exchange*>(*begun);
    if (*size != 0) {
        one.body_too_large = one.body_too_large || one.request.body.size() + *size > its.limits_.body_bytes;
        if (!one.body_too_large) {
            one.request.body.append(data, *size);
        }
        *size = 0;
        return MHD_YES;
    }
    if (one.body_too_large) {  // a body without announced length
        one.response.status = too_large;
        return one.send();
    }
    return one.dispatched ? one.send() : one.dispatch();
} catch (std::exception const&) {
    return MHD_NO;  // no memory: ends the connection
}

/// Suspends the connection; the library calls on_request() again after a working thread has handled the request.
MHD_Result http_server::exchange::dispatch() {
    dispatched = true;
    {
        std::lock_guard const lock(server.mutex_);
        if (!server.stopped_) {
            of->state = phase::is_handled;
            of->until = clock::time_point::max();
            MHD_suspend_connection(connection);
            server.waiting_.push_back(this);
            server.work_waits_.notify_one();
            return MHD_YES;
        }
    }
    response.status = unavailable;
    return send();
}

MHD_Result http_server::exchange::send() {
    server.handlers_.before_send(response);
    response.set_header("Connection", "close");
    std::unique_ptr<MHD_Response, decltype(&MHD_destroy_response)> const made(
        response.next_part
            ? MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, stream_block_bytes, &callbacks::on_stream, this,
                                                nullptr)
            : MHD_create_response_from_buffer(response.body.size(), response.body.data(), MHD_RESPMEM_PERSISTENT),
        &MHD_destroy_response);
    if (made == nullptr) {
        return MHD_NO;  // no memory: ends the connection
    }
    for (auto const& [name, value] : response.headers) {
        if (MHD_add_response_header(made.get(), name.c_str(), value.c_str()) != MHD_YES) {
            return MHD_NO;  // not a valid header
        }
    }
    enter(phase::sends, clock::now() + server.limits_.response);
    return MHD_queue_response(connection, static_cast<unsigned>(response.status), made.get());
}

/// Copies the next bytes of a stream. Without any, suspends the connection until resume_streams().
ssize_t http_server::exchange::read_stream(char* into, std::size_t space) {
    std::lock_guard const lock(server.mutex_);
    if (server.stopped_ || of->ended) {
        return MHD_CONTENT_READER_END_OF_STREAM;
    }
    if (!part || sent == part->size()) {
        part = response.next_part();
        sent = 0;
        if (!part) {
            of->state = phase::waits_for_part;
            of->until = clock::time_point::max();
            MHD_suspend_connection(connection);
            server.waiting_streams_.push_back(this);
            return 0;
        }
        of->state = phase::sends;
        of->until = clock::now() + server.limits_.response;
    }
    auto const bytes = part->copy(into, space, sent);
    sent += bytes;
    return static_cast<ssize_t>(bytes);
}

/// A suspended connection cannot end, so the exchanges live until they are resumed.
void http_server::resume_streams() {
    std::vector<exchange*> waiting;
    {
        std::lock_guard const lock(mutex_);
        waiting.swap(waiting_streams_);
    }
    for (auto const* const one : waiting) {
        MHD_resume_connection(one->connection);
    }
}

http_server::http_server(http_limits const& limits, http_handlers handlers)
    : limits_(limits), handlers_(std::move(handlers)) {}

http_server::~http_server() {
    stop();
}

void http_server::start(std::size_t threads) {
    // A thread inherits the scheduling of the one that starts it.
    std::jthread([this] {
        schedule_as_idle();
        library_ = MHD_start_daemon(
            MHD_USE_POLL_INTERNAL_THREAD | MHD_USE_NO_LISTEN_SOCKET | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ITC, 0,
            nullptr, nullptr, &callbacks::on_request, this, MHD_OPTION_CONNECTION_MEMORY_LIMIT, limits_.header_bytes,
            MHD_OPTION_NOTIFY_CONNECTION, &callbacks::on_connection, this, MHD_OPTION_NOTIFY_COMPLETED,
            &callbacks::on_completed, nullptr, MHD_OPTION_END);
    }).join();
    if (library_ == nullptr) {
        throw std::runtime_error("the HTTP server cannot start: no memory, threads or descriptors are left");
    }
    for (std::size_t i = 0; i < threads; ++i) {
        threads_.emplace_back([this] { work(); });
    }
}

void http_server::work() {
    schedule_as_idle();
    std::unique_lock lock(mutex_);
    while (true) {
        work_waits_.wait(lock, [this] { return stopped_ || !waiting_.empty(); });
        if (waiting_.empty()) {
            return;
        }
        exchange& one = *waiting_.front();
        waiting_.pop_front();
        bool const refuse = stopped_;
        lock.unlock();
        if (refuse) {
            one.response.status = unavailable;
        } else {
            one.respond([&] { handlers_.complete(one.request, one.response); });
        }
        MHD_resume_connection(one.connection);
        lock.lock();
    }
}

void http_server::disconnect(client& one) {
    one.ended = true;
    one.until = clock::time_point::max();
    shutdown(one.connection.get(), SHUT_RDWR);
}

/// Called with the mutex locked. Disconnects the oldest client that keeps the server waiting: one that has not sent its
/// request, otherwise one that does not read its response.
/// \param remote  only of this address; null: of any
bool http_server::disconnect_oldest(std::string const* remote) {
    for (auto const state : {phase::drains, phase::receives, phase::sends}) {
        auto const found = std::ranges::find_if(clients_, [&](client const& one) {
            return one.state == state && !one.ended && (remote == nullptr || one.remote == *remote);
        });
        if (found != clients_.end()) {
            disconnect(*found);
            if (state == phase::drains) {
                clients_.erase(found);
            }
            return true;
        }
    }
    return false;
}

/// Called with the mutex locked. \return whether there is a place for a client of this address
bool http_server::make_place(std::string const& remote) {
    auto const of_address = static_cast<std::size_t>(
        std::ranges::count_if(clients_, [&](client const& one) { return !one.ended && one.remote == remote; }));
    if (of_address >= limits_.connections_per_address && !disconnect_oldest(&remote)) {
        return false;
    }
    auto const all =
        static_cast<std::size_t>(std::ranges::count_if(clients_, [](client const& one) { return !one.ended; }));
    return all < limits_.connections || disconnect_oldest(nullptr);
}

void http_server::add(file_handle connection, std::string const& remote) {
    int const copy = fcntl(connection.get(), F_DUPFD_CLOEXEC, 0);
    if (copy < 0) {
        return;  // no descriptors are left: the client is disconnected
    }
    {
        std::lock_guard const lock(mutex_);
        if (!make_place(remote)) {
            file_handle const unused(copy);
            return;
        }
        clients_.push_back({.connection = std::move(connection),
                            .remote = remote,
                            .state = phase::receives,
                            .until = clock::now() + limits_.request});
        by_copy_[copy] = std::prev(clients_.end());
    }
    sockaddr const unknown{};                                                       // the listener has the address
    if (MHD_add_connection(library_, copy, &unknown, sizeof unknown) != MHD_YES) {  // it has closed the copy
        std::lock_guard const lock(mutex_);
        if (auto const found = by_copy_.find(copy); found != by_copy_.end()) {
            clients_.erase(found->second);
            by_copy_.erase(found);
        }
    }
}

/// The library does not notice that the client of a suspended connection has disconnected. It may have sent more
/// before.
bool http_server::is_gone(client const& one) {
    pollfd state{.fd = one.connection.get(), .events = POLLRDHUP, .revents = 0};
    return poll(&state, 1, 0) > 0;
}

/// Reads and discards what has arrived. \return whether the connection can be closed
bool http_server::is_drained(client& one, clock::time_point now) {
    std::array<char, 4096> unread{};
    while (one.drained < drain_bytes) {
        auto const got = recv(one.connection.get(), unread.data(), unread.size(), MSG_DONTWAIT);
        if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
            return now >= one.until;
        }
        if (got <= 0) {
            return true;
        }
        one.drained += static_cast<std::size_t>(got);
    }
    return true;
}

bool http_server::end_overdue() {
    bool has_ended_streams = false;
    bool has_clients = false;
    {
        std::lock_guard const lock(mutex_);
        has_ended_streams = end_overdue_clients();
        has_clients = !clients_.empty();
    }
    if (has_ended_streams) {
        resume_streams();
    }
    return has_clients;
}

/// Called with the mutex locked. \return whether it has disconnected clients whose streams wait
bool http_server::end_overdue_clients() {
    bool has_ended_streams = false;
    auto const now = clock::now();
    for (auto one = clients_.begin(); one != clients_.end();) {
        auto const here = one++;
        if (here->state == phase::drains) {
            if (is_drained(*here, now)) {
                clients_.erase(here);
            }
        } else if (here->state == phase::waits_for_part && !here->ended && is_gone(*here)) {
            disconnect(*here);
            has_ended_streams = true;
        } else if (now >= here->until) {
            disconnect(*here);
        }
    }
    return has_ended_streams;
}

void http_server::stop() {
    {
        std::unique_lock lock(mutex_);
        stopped_ = true;
        work_waits_.notify_all();
        for (client& one : clients_) {
            if (one.state == phase::receives || one.state == phase::waits_for_part) {
                disconnect(one);
            }
        }
        lock.unlock();
        resume_streams();  // none waits again, because the server has stopped
        lock.lock();
        closed_.wait_for(lock, stop_time, [this] { return by_copy_.empty(); });
        for (client& one : clients_) {
            disconnect(one);
        }
    }
    threads_.clear();  // joins them; they have resumed all connections
    if (library_ != nullptr) {
        MHD_stop_daemon(std::exchange(library_, nullptr));
    }
    std::lock_guard const lock(mutex_);
    clients_.clear();
    by_copy_.clear();
}

}  // namespace mediagrabber
