// SPDX-License-Identifier: MIT
#include "web/web_sessions.hpp"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "web/access_token.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t max_sessions = 64;  ///< bounds the memory; the oldest is dropped
constexpr std::chrono::hours max_idle{12};
constexpr std::size_t max_addresses = 256;  ///< with recorded failures
constexpr std::chrono::minutes failure_memory{10};
constexpr unsigned free_failures = 2;  ///< typing errors without a delay
constexpr unsigned max_wait_s = 32;

std::string random_id() {
    std::array<unsigned char, 32> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    constexpr std::string_view digits = "0123456789abcdef";
    std::string id;
    for (auto const byte : bytes) {
        id += digits[byte >> 4U];
        id += digits[byte & 0xFU];
    }
    return id;
}

}  // namespace

std::string web_sessions::start(clock::time_point now) {
    auto id = random_id();
    std::lock_guard const lock(mutex_);
    if (sessions_.size() == max_sessions) {
        sessions_.pop_front();
    }
    sessions_.push_back({.id = id, .last_used = now});
    return id;
}

bool web_sessions::is_valid(std::string_view id, clock::time_point now) {
    std::lock_guard const lock(mutex_);
    std::erase_if(sessions_, [now](session const& one) { return now - one.last_used > max_idle; });
    bool found = false;
    for (auto& one : sessions_) {
        if (same_in_constant_time(one.id, id)) {
            one.last_used = now;
            found = true;
        }
    }
    return found;
}

void web_sessions::end(std::string_view id) {
    std::lock_guard const lock(mutex_);
    std::erase_if(sessions_, [id](session const& one) { return same_in_constant_time(one.id, id); });
}

unsigned web_sessions::retry_after(std::string const& remote, clock::time_point now) {
    std::lock_guard const lock(mutex_);
    auto const found = failed_.find(remote);
    if (found == failed_.end() || found->second.next_try <= now) {
        return 0;
    }
    auto const left = std::chrono::ceil<std::chrono::seconds>(found->second.next_try - now);
    return static_cast<unsigned>(left.count());
}

void web_sessions::failed(std::string const& remote, clock::time_point now) {
    std::lock_guard const lock(mutex_);
    std::erase_if(failed_, [now](auto const& one) { return now - one.second.last > failure_memory; });
    if (failed_.size() == max_addresses && !failed_.contains(remote)) {
        failed_.erase(std::min_element(failed_.begin(), failed_.end(),
                                       [](auto const& a, auto const& b) { return a.second.last < b.second.last; }));
    }
    auto& one = failed_[remote];
    ++one.count;
    one.last = now;
    if (one.count > free_failures) {
        unsigned const doublings = std::min(one.count - free_failures - 1, 5U);
        one.next_try = now + std::chrono::seconds(std::min(1U << doublings, max_wait_s));
    }
}

void web_sessions::succeeded(std::string const& remote) {
    std::lock_guard const lock(mutex_);
    failed_.erase(remote);
}

}  // namespace mediagrabber
