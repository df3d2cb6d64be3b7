// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/file_handle.hpp"
#include "web/http_message.hpp"

struct MHD_Daemon;

namespace mediagrabber {

/// What a server does with a request. Exceptions become a response with status 500.
struct http_handlers {
    /// Called before the body is read, on the server's thread: must be quick. Stores in `held` what the request
    /// occupies until its response has been sent. \return whether the response is complete, so that the body is not
    /// read
    std::function<bool(http_request& request, http_response& response)> before_body;
    /// Called with the complete request on one of the working threads. May wait.
    std::function<void(http_request const&, http_response&)> complete;
    /// Called for each response, also for those to requests that are too large or caused an exception.
    std::function<void(http_response&)> before_send;
};

struct http_limits {
    std::chrono::milliseconds request{5'000};    ///< to receive the complete request
    std::chrono::milliseconds response{10'000};  ///< to send the complete response, or one part of a stream
    std::size_t header_bytes = 32 * 1024;
    std::size_t body_bytes = 16 * 1024;
    std::size_t connections = 192;             ///< two descriptors each; a process has 1024 unless its limit is raised
    std::size_t connections_per_address = 64;  ///< more than the viewers and changes of an address
};

/// Serves HTTP requests with libmicrohttpd, one request per connection.
///
/// One thread of the library receives requests and sends responses of all clients, so a client that sends or reads
/// slowly occupies no thread. Complete requests are handled by a fixed number of working threads; meanwhile the library
/// suspends the connection. All threads run at idle priority, because the recording comes first.
///
/// A stream is a response without an end. While it has no part to send, the library suspends its connection. Each part
/// has the time limit of a response.
///
/// The library's time-out starts again with each byte. The limits here apply to a request and a response as a whole;
/// they are enforced by end_overdue(), which the thread that accepts connections calls. A client above the limit of its
/// address takes the place of the address's oldest connection that waits for its client: many idle connections cannot
/// keep a new one from being served.
class http_server {
public:
    http_server(http_limits const& limits, http_handlers handlers);
    ~http_server();
    http_server(http_server const&) = delete;
    http_server& operator=(http_server const&) = delete;

    /// \param threads  for handlers \throws std::runtime_error if the library cannot start
    void start(std::size_t threads);
    /// Serves a client. Called by one thread at a time.
    /// \param remote  the client's numeric address
    void add(file_handle connection, std::string const& remote);
    /// Disconnects clients that have reached a time limit. Called by the thread that calls add(), at least every 100 ms
    /// while it returns true.
    /// \return whether there are clients
    bool end_overdue();
    /// Sends the next parts of streams that wait for one. Any thread may call it.
    void resume_streams();
    /// Disconnects all clients. Responses that are being sent get a moment, clients that do not read them get no more.
    /// Blocks until running handlers have returned. No thread may call add() any more.
    void stop();

private:
    using clock = std::chrono::steady_clock;
    struct exchange;
    struct callbacks;
    enum class phase : std::uint8_t { receives, is_handled, sends, waits_for_part, drains };

    /// A connection. The library owns a duplicate of the descriptor: after it has closed that one, this one drains.
    struct client {
        file_handle connection;
        std::string remote;
        phase state = phase::receives;
        clock::time_point until;  ///< of the present phase
        bool ended = false;       ///< has been disconnected, and the library has not noticed yet
        std::size_t drained = 0;  ///< bytes
    };
    using clients = std::list<client>;

    void work();
    void handle(exchange& one);
    bool make_place(std::string const& remote);
    bool disconnect_oldest(std::string const* remote);
    bool end_overdue_clients();
    static void disconnect(client& one);
    static bool is_gone(client const& one);
    static bool is_drained(client& one, clock::time_point now);

    http_limits const limits_;
    http_handlers const handlers_;
    MHD_Daemon* library_ = nullptr;
    std::mutex mutex_;  ///< guards the members down to stopped_
    std::condition_variable work_waits_;
    std::condition_variable closed_;
    clients clients_;                           ///< oldest first
    std::map<int, clients::iterator> by_copy_;  ///< by the library's descriptor
    std::deque<exchange*> waiting_;             ///< complete requests without a thread
    std::vector<exchange*> waiting_streams_;    ///< suspended until the next part
    bool stopped_ = false;
    std::vector<std::jthread> threads_;
};

}  // namespace mediagrabber
