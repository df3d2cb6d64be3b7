#include "web/newest_frame.hpp"

#include <utility>

namespace mediagrabber {

namespace {

constexpr std::chrono::milliseconds wanted_for{500};  ///< after somebody has asked; frames of before that are let go

}  // namespace

bool newest_frame::needs_pixels() const {
    return clock::now().time_since_epoch().count() < wanted_until_;
}

void newest_frame::see(frame_lease const& frame) noexcept {
    bool const wanted = needs_pixels() && frame.has_pixels();
    {
        std::lock_guard const lock(mutex_);
        newest_.reset();
        if (wanted && !cancelled_) {
            newest_ = frame;
            seen_at_ = clock::now();
        }
    }
    if (wanted) {
        seen_.notify_all();
    }
}

std::optional<frame_lease> newest_frame::wait(std::uint64_t known, clock::time_point since, clock::time_point until) {
    wanted_until_ = (until + wanted_for).time_since_epoch().count();
    std::unique_lock lock(mutex_);
    auto const there = [&] { return newest_ && newest_->record().number != known && seen_at_ >= since; };
    seen_.wait_until(lock, until, [&] { return cancelled_ || there(); });
    if (cancelled_ || !there()) {
        return std::nullopt;
    }
    wanted_until_ = (clock::now() + wanted_for).time_since_epoch().count();
    return newest_;
}

void newest_frame::cancel() {
    {
        std::lock_guard const lock(mutex_);
        cancelled_ = true;
        newest_.reset();
    }
    seen_.notify_all();
}

}  // namespace mediagrabber
