// SPDX-License-Identifier: MIT
#include "plugin/update_confirmation.hpp"

namespace mediagrabber {

void update_confirmation::activated(std::uint64_t number, std::uint64_t good_frames) {
    frames_when_activated_ = good_frames;
    {
        std::lock_guard const lock(mutex_);
        activated_ = number;
    }
    awaited_ = true;
}

void update_confirmation::confirm(camera_values const& values) {
    awaited_ = false;
    {
        std::lock_guard const lock(mutex_);
        confirmed_ = activated_;
        values_ = values;
    }
    changed_.notify_all();
}

update_confirmation::outcome update_confirmation::wait_for(std::uint64_t number,
                                                           std::chrono::duration<double> timeout) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, timeout, [&] { return cancelled_ || confirmed_ >= number; });
    return {.activated = activated_ >= number, .values = confirmed_ >= number ? std::optional(values_) : std::nullopt};
}

void update_confirmation::cancel() {
    {
        std::lock_guard const lock(mutex_);
        cancelled_ = true;
    }
    changed_.notify_all();
}

}  // namespace mediagrabber
