// SPDX-License-Identifier: MIT
#include "web/image_stream.hpp"

#include <fmt/format.h>

#include <chrono>

#include "base/thread_scheduling.hpp"

namespace mediagrabber {

namespace {

/// Between looks whether there are still readers.
constexpr std::chrono::seconds max_wait{1};

std::shared_ptr<std::string const> part_of(preview::image const& image) {
    auto made = std::make_shared<std::string>(fmt::format(
        "--frame\r\nContent-Type: image/jpeg\r\nContent-Length: {}\r\nX-Frame: {}\r\nX-Timestamp-Us: {}\r\n\r\n",
        image.jpeg.size(), image.record.number, image.record.timestamp_us));
    *made += image.jpeg;
    *made += "\r\n";
    return made;
}

}  // namespace

/// Counts a reader while it exists.
struct image_stream::seat {
    image_stream& stream;
    std::uint64_t known = 0;

    explicit seat(image_stream& of) : stream(of) {
        std::lock_guard const lock(stream.mutex_);
        ++stream.readers_;
    }
    ~seat() {
        std::lock_guard const lock(stream.mutex_);
        if (--stream.readers_ == 0) {
            stream.part_.reset();  // it is not live when the next reader comes
        }
    }
    seat(seat const&) = delete;
    seat& operator=(seat const&) = delete;
};

image_stream::reader image_stream::open() {
    auto const taken = std::make_shared<seat>(*this);
    std::lock_guard const lock(mutex_);
    failure_ = nullptr;
    if (!thread_.joinable()) {
        thread_ = std::jthread([this](std::stop_token const& stop) { run(stop); });
    }
    changed_.notify_all();
    return [this, taken] { return part_after(taken->known); };
}

std::shared_ptr<std::string const> image_stream::part_after(std::uint64_t& known) {
    std::lock_guard const lock(mutex_);
    if (failure_) {
        std::rethrow_exception(failure_);
    }
    if (!part_ || frame_ == known) {
        return nullptr;
    }
    known = frame_;
    return part_;
}

void image_stream::run(std::stop_token const& stop) {
    schedule_as_idle();
    std::uint64_t known = 0;
    while (true) {
        {
            std::unique_lock lock(mutex_);
            if (!changed_.wait(lock, stop, [this] { return readers_ != 0; })) {
                return;
            }
        }
        std::shared_ptr<std::string const> part;
        std::exception_ptr failure;
        try {
            if (auto const image = images_.next(known, preview::clock::now() + max_wait)) {
                known = image->record.number;
                part = part_of(*image);
            }
        } catch (...) {
            failure = std::current_exception();
        }
        if (stop.stop_requested()) {
            return;
        }
        if (part || failure) {
            {
                std::lock_guard const lock(mutex_);
                failure_ = failure;
                if (part && readers_ != 0) {
                    part_ = part;
                    frame_ = known;
                }
            }
            wake_();
        }
    }
}

void image_stream::stop() {
    thread_ = std::jthread();  // requests its stop and joins it
}

}  // namespace mediagrabber
