// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "frames/frame_sink_like.hpp"

/// A sink that keeps frames in memory, and can be made to wait or to refuse.
class collecting_sink final : public mediagrabber::frame_sink_like {
public:
    struct kept_frame {
        mediagrabber::frame_record record;
        std::vector<std::byte> pixels;
    };

    std::size_t write(mediagrabber::frame_view const& frame) override {
        std::unique_lock lock(mutex_);
        ++begun_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return !held_; });
        if (refusing_) {
            throw std::runtime_error("the sink is full");
        }
        frames_.push_back({frame.record, {frame.pixels.begin(), frame.pixels.end()}});
        return frame.pixels.size();
    }

    bool needs_pixels() const override { return needs_pixels_; }

    void refuse() { refusing_ = true; }
    void need_no_pixels() { needs_pixels_ = false; }
    /// From now on frames wait inside write().
    void hold() {
        std::lock_guard const lock(mutex_);
        held_ = true;
    }
    void let_go() {
        std::lock_guard const lock(mutex_);
        held_ = false;
        changed_.notify_all();
    }
    void wait_until_begun(std::size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return begun_ >= count; });
    }

    /// To be read when the exporter has finished.
    std::vector<kept_frame> const& frames() const { return frames_; }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = false;
    bool refusing_ = false;
    bool needs_pixels_ = true;
    std::size_t begun_ = 0;
    std::vector<kept_frame> frames_;
};
