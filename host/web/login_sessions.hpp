#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace mediagrabber {

/// Browsers that have shown the token, by random numbers that they bring along from then on; and how long those have to
/// wait who showed a wrong one. Used from any thread; time is the caller's.
class login_sessions {
public:
    using clock = std::chrono::steady_clock;

    /// \return what the browser is to bring along, 64 hexadecimal digits
    std::string begin(clock::time_point now);
    bool is_open(std::string_view id, clock::time_point now);
    void end(std::string_view id);

    /// Seconds until this address may show a token again; 0: now.
    unsigned wait_of(std::string const& remote, clock::time_point now);
    /// A wrong token; from the third in a row on each doubles the wait, from 1 s to half a minute.
    void failed(std::string const& remote, clock::time_point now);
    void succeeded(std::string const& remote);

private:
    struct session {
        std::string id;
        clock::time_point last_used;
    };
    struct failures {
        unsigned count = 0;
        clock::time_point next_try;
        clock::time_point last;
    };

    std::mutex mutex_;
    std::deque<session> sessions_;            ///< the oldest first
    std::map<std::string, failures> failed_;  ///< by address
};

}  // namespace mediagrabber
