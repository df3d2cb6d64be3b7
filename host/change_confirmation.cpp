#include "change_confirmation.hpp"

namespace mediagrabber {

void change_confirmation::taken(std::uint64_t number, std::uint64_t good_frames) {
    frames_when_taken_ = good_frames;
    {
        std::lock_guard const lock(mutex_);
        taken_ = number;
    }
    awaited_ = true;
}

void change_confirmation::confirm(camera_values const& values) {
    awaited_ = false;
    {
        std::lock_guard const lock(mutex_);
        confirmed_ = taken_;
        values_ = values;
    }
    changed_.notify_all();
}

change_confirmation::outcome change_confirmation::wait_for(std::uint64_t number,
                                                           std::chrono::duration<double> longest) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, longest, [&] { return cancelled_ || confirmed_ >= number; });
    return {.taken = taken_ >= number, .values = confirmed_ >= number ? std::optional(values_) : std::nullopt};
}

void change_confirmation::cancel() {
    {
        std::lock_guard const lock(mutex_);
        cancelled_ = true;
    }
    changed_.notify_all();
}

}  // namespace mediagrabber
