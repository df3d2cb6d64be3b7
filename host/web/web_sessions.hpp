// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace mediagrabber {

/// Login sessions of browsers, and the delay after wrong tokens.
///
/// A session is a random 256-bit identifier in a cookie, valid until 12 hours without use; at most 64 exist. Wrong
/// tokens are counted per client address, so guessing from one address does not lock out others. Thread-safe. The
/// caller supplies the time.
class web_sessions {
public:
    using clock = std::chrono::steady_clock;

    /// Starts a session. \return its identifier, 64 hexadecimal digits
    std::string start(clock::time_point now);
    /// \return whether the session exists; it counts as used
    bool is_valid(std::string_view id, clock::time_point now);
    void end(std::string_view id);

    /// \param remote  the client's address
    /// \return seconds until it may present a token again; 0: now
    unsigned retry_after(std::string const& remote, clock::time_point now);
    /// Records a wrong token. From the third in a row on there is a delay, which doubles from 1 s to 32 s.
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
    std::deque<session> sessions_;            ///< oldest first
    std::map<std::string, failures> failed_;  ///< by address
};

}  // namespace mediagrabber
