#include "fault_timeline.hpp"

#include <algorithm>
#include <utility>

namespace camsim {

fault_timeline::fault_timeline(active_faults& faults, std::function<void()> changed)
    : faults_(faults), changed_(std::move(changed)) {}

/// Begins the timeline. What begins with it is in force on return.
void fault_timeline::start(std::vector<scheduled_fault> const& plan, time_point origin) {
    {
        std::scoped_lock const lock(mutex_);
        for (scheduled_fault const& one : plan) {
            entries_.push_back(make_entry(one, origin));
        }
        follow_locked(origin);
    }
    thread_ = std::jthread([this](std::stop_token const& stop) { run(stop); });
}

/// Ends the thread; what is in force stays so.
void fault_timeline::stop() {
    thread_ = {};
}

/// \param one  its time counts from `now`; without a delay it is in force on return
/// \return its number
std::uint32_t fault_timeline::add(scheduled_fault const& one, time_point now) {
    std::scoped_lock const lock(mutex_);
    entries_.push_back(make_entry(one, now));
    std::uint32_t const number = entries_.back().number;
    follow_locked(now);
    news_ = true;
    wake_.notify_all();
    return number;
}

/// Ends a fault, or calls off one that has not begun.
/// \return how often it has struck; empty when there is none of this number
std::optional<std::uint64_t> fault_timeline::end(std::uint32_t number) {
    std::scoped_lock const lock(mutex_);
    if (std::erase_if(entries_, [=](entry const& one) { return one.number == number; }) == 0) {
        return std::nullopt;
    }
    auto const hits = faults_.remove(number);
    if (hits) {
        changed_();
    }
    return hits.value_or(0);
}

/// \return how often they have struck, all of them together
std::uint64_t fault_timeline::end_all() {
    std::scoped_lock const lock(mutex_);
    std::uint64_t hits = 0;
    for (entry const& one : std::exchange(entries_, {})) {
        hits += faults_.remove(one.number).value_or(0);
    }
    changed_();
    return hits;
}

/// Does what is due.
/// \return when something is due next
std::optional<fault_timeline::time_point> fault_timeline::follow(time_point now) {
    std::scoped_lock const lock(mutex_);
    return follow_locked(now);
}

fault_timeline::entry fault_timeline::make_entry(scheduled_fault const& one, time_point origin) {
    time_point const begin = origin + one.at;
    return {.number = ++last_number_,
            .what = one.what,
            .begin = begin,
            .end = one.lasts ? std::optional(begin + *one.lasts) : std::nullopt};
}

std::optional<fault_timeline::time_point> fault_timeline::follow_locked(time_point now) {
    bool any = false;
    std::optional<time_point> next;
    auto const due_later = [&](time_point when) { next = std::min(next.value_or(when), when); };
    for (entry& one : entries_) {
        if (!one.in_force && one.begin <= now) {
            one.in_force = true;
            faults_.add(one.number, one.what);
            any = true;
        }
        if (!one.in_force) {
            due_later(one.begin);
        } else if (one.end && *one.end > now) {
            due_later(*one.end);
        }
    }
    std::erase_if(entries_, [&](entry const& one) {
        bool const over = one.in_force && one.end && *one.end <= now;
        any = any || over;
        if (over) {
            faults_.remove(one.number);
        }
        return over;
    });
    if (any) {
        changed_();
    }
    return next;
}

void fault_timeline::run(std::stop_token const& stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
        auto const next = follow_locked(std::chrono::steady_clock::now());
        auto const has_news = [this] { return std::exchange(news_, false); };
        if (next) {
            wake_.wait_until(lock, stop, *next, has_news);
        } else {
            wake_.wait(lock, stop, has_news);
        }
    }
}

}  // namespace camsim
