#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "file_handle.hpp"
#include "web/web_address.hpp"

namespace mediagrabber {

/// Takes connections at an address and has each served by one of a fixed number of threads; what finds no place in the
/// queue is closed.
class web_listener {
public:
    /// \param connection  belongs to the listener; \param remote  numeric address
    using server = std::function<void(file_handle const& connection, std::string const& remote)>;

    /// Listens from now on. \throws std::runtime_error with a message for the operator when it can't
    explicit web_listener(web_address const& at);
    ~web_listener();
    web_listener(web_listener const&) = delete;
    web_listener& operator=(web_listener const&) = delete;

    /// With the port that it has.
    web_address const& at() const { return at_; }

    /// Serves those who have come and those to come.
    void serve(std::size_t threads, server const& serve_one);
    /// Takes nobody any more, and waits for those who are served; they get nothing more to read.
    void stop();

private:
    struct visitor {
        file_handle connection;
        std::string remote;
    };
    void accept_all();
    void serve_all(server const& serve_one);
    void take(visitor one);

    web_address at_;
    file_handle listening_;
    file_handle end_;  ///< tells the accepting thread to end
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<visitor> waiting_;
    std::set<int> served_;  ///< descriptors
    bool stopped_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace mediagrabber
