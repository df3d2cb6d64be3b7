// SPDX-License-Identifier: MIT
#include "web/http_server.hpp"

#include <gmock/gmock.h>
#include <httplib.h>

#include <memory>
#include <mutex>

#include "web/raw_client.hpp"
#include "web/web_listener.hpp"

using namespace mediagrabber;

namespace {

/// A server whose response to /large does not fit into the buffers of a socket.
class HttpServer : public testing::Test {
protected:
    explicit HttpServer(http_limits const& limits = {})
        : server(limits, {.before_body =
                              [this](http_request& request, http_response&) {
                                  request.held = std::make_shared<int>(1);
                                  std::lock_guard const lock(mutex);
                                  held = request.held;
                                  return false;
                              },
                          .complete =
                              [this](http_request const& request, http_response& response) {
                                  if (request.path == "/failure") {
                                      throw std::runtime_error("no");
                                  }
                                  if (request.path == "/stream") {
                                      response.next_part = [this, known = std::size_t{0}]() mutable {
                                          std::lock_guard const lock(mutex);
                                          return known < parts.size() ? parts[known++] : nullptr;
                                      };
                                      return;
                                  }
                                  response.set_content(std::string(request.path == "/large" ? 16'000'000 : 1, 'x'),
                                                       "text/plain");
                              },
                          .before_send = [](http_response&) {}}) {
        server.start(2);
        listener.serve({.add = [this](mediagrabber::file_handle connection,
                                      std::string const& remote) { server.add(std::move(connection), remote); },
                        .end_overdue = [this] { return server.end_overdue(); }});
    }
    ~HttpServer() override {
        listener.stop();
        server.stop();
    }

    bool is_held() {
        std::lock_guard const lock(mutex);
        return !held.expired();
    }
    void add_part(std::string const& text) {
        {
            std::lock_guard const lock(mutex);
            parts.push_back(std::make_shared<std::string const>(text));
        }
        server.resume_streams();
    }
    httplib::Client client() const { return httplib::Client("127.0.0.1", listener.at().port); }

    std::mutex mutex;
    std::weak_ptr<void> held;
    std::vector<std::shared_ptr<std::string const>> parts;  ///< of the stream
    web_listener listener{parse_web_address("127.0.0.1:0")};
    http_server server;
};

class HttpServerWithAShortLimit : public HttpServer {
protected:
    HttpServerWithAShortLimit() : HttpServer({.response = std::chrono::milliseconds(200)}) {}
};

}  // namespace

TEST_F(HttpServer, KeepsWhatARequestOccupiesUntilItsResponseHasBeenSent) {
    bool first = true;
    bool held_while_sending = false;
    auto const result = client().Get("/large", [&](char const*, std::size_t) {
        held_while_sending = first ? is_held() : held_while_sending;
        first = false;
        return true;
    });
    ASSERT_TRUE(result);
    EXPECT_TRUE(held_while_sending);
    while (is_held()) {
        std::this_thread::yield();
    }
}

TEST_F(HttpServer, ReleasesWhatARequestOccupiesWhenItsClientDisconnects) {
    client().Get("/large", [&](char const*, std::size_t) { return false; });
    while (is_held()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(client().Get("/small")->body, "x");
}

TEST_F(HttpServer, TurnsAnExceptionIntoAResponse) {
    auto const result = client().Get("/failure");
    ASSERT_TRUE(result);
    EXPECT_EQ(result->status, 500);
    EXPECT_EQ(result->body, "no\n");
}

TEST_F(HttpServerWithAShortLimit, DisconnectsAClientThatDoesNotReadItsResponse) {
    auto const until = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    bool waited = false;
    client().Get("/large", [&](char const*, std::size_t) {
        while (!waited && is_held() && std::chrono::steady_clock::now() < until) {
            std::this_thread::yield();
        }
        waited = true;
        return true;
    });
    EXPECT_TRUE(waited);
    EXPECT_FALSE(is_held());
}

TEST_F(HttpServer, SendsThePartsOfAStreamAsTheyAppear) {
    std::string received;
    auto const begun = [&](char const* data, std::size_t size) {
        received.append(data, size);
        if (received == "one") {
            add_part("two");
        } else if (received == "onetwo") {
            add_part(std::string(200'000, 'x'));  // several blocks
        }
        return received.size() < 200'006;
    };
    add_part("one");
    client().Get("/stream", begun);
    EXPECT_EQ(received, "onetwo" + std::string(200'000, 'x'));
}

TEST_F(HttpServer, ReleasesAStreamThatWaitsWhenItsClientDisconnects) {
    add_part("one");
    client().Get("/stream", [](char const*, std::size_t) { return false; });
    while (is_held()) {  // without another part
        std::this_thread::yield();
    }
}

TEST_F(HttpServer, ReleasesAStreamThatWaitsWhenItsClientHasSentMoreBeforeItDisconnects) {
    add_part("one");
    raw_client const connection(static_cast<std::uint16_t>(listener.at().port));
    connection.send_text("GET /stream HTTP/1.1\r\nHost: x\r\n\r\n");
    connection.receive_some();
    connection.send_text("more");
    connection.end();
    while (is_held()) {  // without another part
        std::this_thread::yield();
    }
}

TEST_F(HttpServer, EndsStreamsThatWaitWhenItStops) {
    add_part("one");
    auto const begin = std::chrono::steady_clock::now();
    client().Get("/stream", [&](char const*, std::size_t) {
        listener.stop();
        server.stop();
        return true;
    });
    EXPECT_FALSE(is_held());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4)) << "only a time limit ended it";
}

TEST_F(HttpServerWithAShortLimit, DisconnectsAClientThatDoesNotReadAPart) {
    add_part("one");
    auto const until = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::string received;
    client().Get("/stream", [&](char const* data, std::size_t size) {
        received.append(data, size);
        if (received == "one") {
            add_part(std::string(16'000'000, 'x'));
            return true;
        }
        while (is_held() && std::chrono::steady_clock::now() < until) {
            std::this_thread::yield();
        }
        return false;
    });
    EXPECT_EQ(received.substr(0, 4), "onex");
    EXPECT_FALSE(is_held());
}

TEST_F(HttpServerWithAShortLimit, KeepsAStreamThatWaitsForLonger) {
    add_part("one");
    std::string received;
    std::jthread later;
    client().Get("/stream", [&](char const* data, std::size_t size) {
        received.append(data, size);
        if (received == "one") {
            later = std::jthread([this] {
                auto const until = std::chrono::steady_clock::now() + std::chrono::milliseconds(400);
                std::this_thread::sleep_until(until);  // twice the limit of a response
                add_part("two");
            });
        }
        return received != "onetwo";
    });
    EXPECT_EQ(received, "onetwo");
}
