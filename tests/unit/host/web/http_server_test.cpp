// SPDX-License-Identifier: MIT
#include "web/http_server.hpp"

#include <gmock/gmock.h>
#include <httplib.h>

#include <memory>
#include <mutex>

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
                              [](http_request const& request, http_response& response) {
                                  if (request.path == "/failure") {
                                      throw std::runtime_error("no");
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
    httplib::Client client() const { return httplib::Client("127.0.0.1", listener.at().port); }

    std::mutex mutex;
    std::weak_ptr<void> held;
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
