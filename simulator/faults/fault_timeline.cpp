// SPDX-License-Identifier: MIT
#include "faults/fault_timeline.hpp"

#include <algorithm>
#include <utility>

namespace camsim {

fault_timeline::fault_timeline(active_faults& faults, std::function<void()> changed)
    : faults_(faults), changed_(std::move(changed)) {}

void fault_timeline::start(std::vector<scheduled_fault> const& plan, time_point origin) {
    {
        std::lock_guard const lock(mutex_);
        for (scheduled_fault const& one : plan) {
            entries_.push_back(make_entry(one, origin));
        }
        update_locked(origin);
    }
    thread_ = std::jthread([this](std::stop_token const& stop) { run(stop); });
}

void fault_timeline::stop() {
    thread_ = {};
}

std::uint32_t fault_timeline::add(scheduled_fault const& one, time_point now) {
    std::lock_guard const lock(mutex_);
    entries_.push_back(make_entry(one, now));
    std::uint32_t const number = entries_.back().number;
    update_locked(now);
    entries_changed_ = true;
    wake_.notify_all();
    return number;
}

std::optional<std::uint64_t> fault_timeline::cancel(std::uint32_t number) {
    std::lock_guard const lock(mutex_);
    if (std::erase_if(entries_, [=](entry const& one) { return one.number == number; }) == 0) {
        return std::nullopt;
    }
    auto const hits = faults_.remove(number);
    if (hits) {
        changed_();
    }
    return hits.value_or(0);
}

std::uint64_t fault_timeline::cancel_all() {
    std::lock_guard const lock(mutex_);
    std::uint64_t hits = 0;
    for (entry const& one : std::exchange(entries_, {})) {
        hits += faults_.remove(one.number).value_or(0);
    }
    changed_();
    return hits;
}

std::optional<fault_timeline::time_point> fault_timeline::update(time_point now) {
    std::lock_guard const lock(mutex_);
    return update_locked(now);
}

fault_timeline::entry fault_timeline::make_entry(scheduled_fault const& one, time_point origin) {
    time_point const begin = origin + one.at;
    return {.number = ++last_number_,
            .what = one.what,
            .begin = begin,
            .end = one.duration ? std::optional(begin + *one.duration) : std::nullopt};
}

std::optional<fault_timeline::time_point> fault_timeline::update_locked(time_point now) {
    bool any = false;
    std::optional<time_point> next;
    auto const due_later = [&](time_point when) { next = std::min(next.value_or(when), when); };
    for (entry& one : entries_) {
        if (!one.active && one.begin <= now) {
            one.active = true;
            faults_.add(one.number, one.what);
            any = true;
        }
        if (!one.active) {
            due_later(one.begin);
        } else if (one.end && *one.end > now) {
            due_later(*one.end);
        }
    }
    std::erase_if(entries_, [&](entry const& one) {
        bool const ended = one.active && one.end && *one.end <= now;
        any = any || ended;
        if (ended) {
            faults_.remove(one.number);
        }
        return ended;
    });
    if (any) {
        changed_();
    }
    return next;
}

void fault_timeline::run(std::stop_token const& stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
        auto const next = update_locked(std::chrono::steady_clock::now());
        auto const changed = [this] { return std::exchange(entries_changed_, false); };
        if (next) {
            wake_.wait_until(lock, stop, *next, changed);
        } else {
            wake_.wait(lock, stop, changed);
        }
    }
}

}  // namespace camsim
