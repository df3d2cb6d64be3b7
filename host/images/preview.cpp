// SPDX-License-Identifier: MIT
#include "images/preview.hpp"

#include <algorithm>
#include <exception>

namespace mediagrabber {

namespace {

constexpr std::chrono::milliseconds min_interval{40};  ///< 25 images/s look continuous and bound the CPU time
constexpr std::chrono::seconds max_age{2};             ///< an older image is not live

}  // namespace

std::shared_ptr<preview::image const> preview::next(std::uint64_t known, clock::time_point until) {
    std::unique_lock lock(mutex_);
    while (!cancelled_ && !has_other_than(known)) {
        if (encoding_) {
            if (changed_.wait_until(lock, until) == std::cv_status::timeout) {
                break;
            }
            continue;
        }
        auto const begin = std::min(not_before_, until);
        encoding_ = true;
        changed_.wait_until(lock, begin, [this] { return cancelled_; });
        lock.unlock();
        std::shared_ptr<image const> made;
        std::exception_ptr failure;
        try {
            made = encode(until);
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        encoding_ = false;
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

/// Called without the mutex by the thread that has set encoding_.
std::shared_ptr<preview::image const> preview::encode(clock::time_point until) {
    auto const known = last_ ? last_->record.number : 0;
    auto const frame = frames_.wait(known, clock::now() - max_age, until);
    if (!frame) {
        return nullptr;
    }
    not_before_ = clock::now() + min_interval;
    auto const made = std::make_shared<image>();
    made->record = frame->record();
    made->histogram = count_frame(frame->view());
    made->shown = window_ == window::stretched ? window_of(made->histogram) : value_window{};
    auto const pixels = shown(frame->view(), made->shown, max_side_);
    made->width = pixels.width;
    made->height = pixels.height;
    made->jpeg = encoder_.encode(pixels);
    made->made = clock::now();
    return made;
}

bool preview::has_other_than(std::uint64_t known) const {
    return last_ && last_->record.number != known && clock::now() - last_->made < max_age;
}

std::shared_ptr<preview::image const> preview::last() const {
    std::lock_guard const lock(mutex_);
    return last_ && clock::now() - last_->made < max_age ? last_ : nullptr;
}

void preview::cancel() {
    std::lock_guard const lock(mutex_);
    cancelled_ = true;
    changed_.notify_all();
}

}  // namespace mediagrabber
