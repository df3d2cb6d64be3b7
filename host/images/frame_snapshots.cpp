// SPDX-License-Identifier: MIT
#include "images/frame_snapshots.hpp"

#include <algorithm>
#include <exception>

namespace mediagrabber {

namespace {

constexpr std::chrono::milliseconds min_interval{40};  ///< between copies: bounds the CPU time
constexpr std::chrono::seconds max_age{2};             ///< an older frame is not live

}  // namespace

std::shared_ptr<frame_snapshots::snapshot const> frame_snapshots::next(std::uint64_t known, clock::time_point until) {
    std::unique_lock lock(mutex_);
    while (!cancelled_) {
        auto last = held_.empty() ? nullptr : held_.back();
        if (last && last->record.number != known && is_live(*last)) {
            return last;
        }
        if (copying_) {
            if (changed_.wait_until(lock, until) == std::cv_status::timeout) {
                break;
            }
            continue;
        }
        copying_ = true;
        if (last) {
            changed_.wait_until(lock, std::min(last->taken + min_interval, until), [this] { return cancelled_; });
        }
        lock.unlock();
        std::shared_ptr<snapshot const> made;
        std::exception_ptr failure;
        try {
            made = copy_next(known, until);
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        copying_ = false;
        changed_.notify_all();
        if (failure) {
            std::rethrow_exception(failure);
        }
        if (made && !found(made->record.number)) {
            held_.push_back(made);
            if (held_.size() > max_held) {
                held_.pop_front();
            }
        }
        return made;
    }
    return nullptr;
}

/// Called with the mutex locked. \return whether a client may have this copy without waiting
bool frame_snapshots::is_live(snapshot const& copy) const {
    auto const age = clock::now() - copy.taken;
    return age < min_interval || (age < max_age && frames_.is_latest(copy.record.number));
}

/// Called without the mutex by the thread that has set copying_.
std::shared_ptr<frame_snapshots::snapshot const> frame_snapshots::copy_next(std::uint64_t known,
                                                                            clock::time_point until) {
    auto const frame = frames_.wait(known, clock::now() - max_age, until);
    if (!frame) {
        return nullptr;
    }
    if (auto already = held(frame->record().number)) {
        return already;
    }
    auto made = std::make_shared<snapshot>();
    auto const view = frame->view();
    made->record = view.record;
    made->pixels.assign(view.pixels.begin(), view.pixels.end());
    made->taken = clock::now();
    return made;
}

/// Called with the mutex locked.
std::shared_ptr<frame_snapshots::snapshot const> frame_snapshots::found(std::uint64_t number) const {
    auto const one = std::ranges::find_if(held_, [&](auto const& held) { return held->record.number == number; });
    return one == held_.end() ? nullptr : *one;
}

std::shared_ptr<frame_snapshots::snapshot const> frame_snapshots::held(std::uint64_t number) const {
    std::lock_guard const lock(mutex_);
    return found(number);
}

void frame_snapshots::cancel() {
    std::lock_guard const lock(mutex_);
    cancelled_ = true;
    changed_.notify_all();
}

}  // namespace mediagrabber
