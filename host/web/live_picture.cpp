#include "web/live_picture.hpp"

#include <algorithm>
#include <exception>

namespace mediagrabber {

namespace {

constexpr std::chrono::milliseconds shortest_interval{40};
constexpr std::chrono::seconds fresh{2};  ///< an older picture is none
constexpr std::uint32_t largest_side = 1'600;

}  // namespace

std::shared_ptr<live_picture::picture const> live_picture::next(std::uint64_t known, clock::time_point until) {
    std::unique_lock lock(mutex_);
    while (!cancelled_ && !has_other_than(known)) {
        if (making_) {
            if (changed_.wait_until(lock, until) == std::cv_status::timeout) {
                break;
            }
            continue;
        }
        auto const begin = std::min(not_before_, until);
        making_ = true;
        changed_.wait_until(lock, begin, [this] { return cancelled_; });
        lock.unlock();
        std::shared_ptr<picture const> made;
        std::exception_ptr failure;
        try {
            made = make(until);
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        making_ = false;
        last_ = made ? made : last_;
        changed_.notify_all();
        if (failure) {
            std::rethrow_exception(failure);
        }
        if (!made) {
            break;
        }
    }
    return has_other_than(known) ? last_ : nullptr;
}

/// Of this thread alone, until it says so.
std::shared_ptr<live_picture::picture const> live_picture::make(clock::time_point until) {
    auto const known = last_ ? last_->record.number : 0;
    auto const frame = frames_.wait(known, clock::now() - fresh, until);
    if (!frame) {
        return nullptr;
    }
    not_before_ = clock::now() + shortest_interval;
    auto const made = std::make_shared<picture>();
    made->record = frame->record();
    made->histogram = count_frame(frame->view());
    made->shown = window_ == window::stretched ? window_of(made->histogram) : value_window{};
    auto const pixels = shown(frame->view(), made->shown, largest_side);
    made->width = pixels.width;
    made->height = pixels.height;
    made->jpeg = encoder_.encode(pixels);
    made->made = clock::now();
    return made;
}

bool live_picture::has_other_than(std::uint64_t known) const {
    return last_ && last_->record.number != known && clock::now() - last_->made < fresh;
}

std::shared_ptr<live_picture::picture const> live_picture::last() const {
    std::lock_guard const lock(mutex_);
    return last_ && clock::now() - last_->made < fresh ? last_ : nullptr;
}

void live_picture::cancel() {
    std::lock_guard const lock(mutex_);
    cancelled_ = true;
    changed_.notify_all();
}

}  // namespace mediagrabber
