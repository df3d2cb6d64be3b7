#include "web/login_sessions.hpp"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "web/access_token.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t most_sessions = 64;  ///< the oldest goes
constexpr std::chrono::hours longest_idle{12};
constexpr std::size_t most_addresses = 256;  ///< that are remembered for their failures
constexpr std::chrono::minutes failures_remembered{10};
constexpr unsigned free_failures = 2;
constexpr unsigned longest_wait_s = 32;

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

std::string login_sessions::begin(clock::time_point now) {
    auto id = random_id();
    std::lock_guard const lock(mutex_);
    if (sessions_.size() == most_sessions) {
        sessions_.pop_front();
    }
    sessions_.push_back({.id = id, .last_used = now});
    return id;
}

bool login_sessions::is_open(std::string_view id, clock::time_point now) {
    std::lock_guard const lock(mutex_);
    std::erase_if(sessions_, [now](session const& one) { return now - one.last_used > longest_idle; });
    bool found = false;
    for (auto& one : sessions_) {
        if (same_in_constant_time(one.id, id)) {
            one.last_used = now;
            found = true;
        }
    }
    return found;
}

void login_sessions::end(std::string_view id) {
    std::lock_guard const lock(mutex_);
    std::erase_if(sessions_, [id](session const& one) { return same_in_constant_time(one.id, id); });
}

unsigned login_sessions::wait_of(std::string const& remote, clock::time_point now) {
    std::lock_guard const lock(mutex_);
    auto const found = failed_.find(remote);
    if (found == failed_.end() || found->second.next_try <= now) {
        return 0;
    }
    auto const left = std::chrono::ceil<std::chrono::seconds>(found->second.next_try - now);
    return static_cast<unsigned>(left.count());
}

void login_sessions::failed(std::string const& remote, clock::time_point now) {
    std::lock_guard const lock(mutex_);
    std::erase_if(failed_, [now](auto const& one) { return now - one.second.last > failures_remembered; });
    if (failed_.size() == most_addresses && !failed_.contains(remote)) {
        failed_.erase(std::min_element(failed_.begin(), failed_.end(),
                                       [](auto const& a, auto const& b) { return a.second.last < b.second.last; }));
    }
    auto& one = failed_[remote];
    ++one.count;
    one.last = now;
    if (one.count > free_failures) {
        unsigned const doublings = std::min(one.count - free_failures - 1, 5U);
        one.next_try = now + std::chrono::seconds(std::min(1U << doublings, longest_wait_s));
    }
}

void login_sessions::succeeded(std::string const& remote) {
    std::lock_guard const lock(mutex_);
    failed_.erase(remote);
}

}  // namespace mediagrabber
