// SPDX-License-Identifier: MIT
#include "images/latest_frame.hpp"

namespace mediagrabber {

namespace {

constexpr std::chrono::milliseconds wanted_for{500};  ///< after a client's wait: clients wait again at once

}  // namespace

bool latest_frame::needs_pixels() const {
    return waiting_ != 0 || clock::now().time_since_epoch().count() < wanted_until_;
}

void latest_frame::on_frame(frame_lease const& frame) noexcept {
    bool const wanted = needs_pixels() && frame.has_pixels();
    {
        std::lock_guard const lock(mutex_);
        latest_.reset();
        if (wanted && !cancelled_) {
            latest_ = frame;
            arrived_at_ = clock::now();
        }
    }
    if (wanted) {
        arrived_.notify_all();
    }
}

std::optional<frame_lease> latest_frame::wait(std::uint64_t known, clock::time_point since, clock::time_point until) {
    ++waiting_;
    std::unique_lock lock(mutex_);
    auto const there = [&] { return latest_ && latest_->record().number != known && arrived_at_ >= since; };
    arrived_.wait_until(lock, until, [&] { return cancelled_ || there(); });
    wanted_until_ = (clock::now() + wanted_for).time_since_epoch().count();
    --waiting_;
    return !cancelled_ && there() ? latest_ : std::nullopt;
}

bool latest_frame::is_latest(std::uint64_t number) const {
    std::lock_guard const lock(mutex_);
    return latest_ && latest_->record().number == number;
}

void latest_frame::cancel() {
    {
        std::lock_guard const lock(mutex_);
        cancelled_ = true;
        latest_.reset();
    }
    arrived_.notify_all();
}

}  // namespace mediagrabber
