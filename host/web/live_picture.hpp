#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "frame_record.hpp"
#include "web/frame_picture.hpp"
#include "web/newest_frame.hpp"

namespace mediagrabber {

/// What all who look at a recording see: each frame is made a picture once, by the first who waits for it, and at most
/// 25 a second are.
class live_picture {
public:
    using clock = std::chrono::steady_clock;
    enum class window : std::uint8_t { full_scale, stretched };

    struct picture {
        frame_record record;
        value_histogram histogram;
        value_window shown;
        std::uint32_t width = 0;  ///< pixels, of the JPEG picture
        std::uint32_t height = 0;
        std::string jpeg;
        clock::time_point made;
    };

    live_picture(newest_frame& frames, window chosen) : frames_(frames), window_(chosen) {}

    /// Waits until `until` for a picture of another frame than `known`. \return nothing when none came
    /// \throws std::runtime_error when a frame can't be encoded
    std::shared_ptr<picture const> next(std::uint64_t known, clock::time_point until);
    /// The last one that was made, empty when none was in the last seconds.
    std::shared_ptr<picture const> last() const;
    /// Ends all waits, those to come as well.
    void cancel();

private:
    std::shared_ptr<picture const> make(clock::time_point until);
    bool has_other_than(std::uint64_t known) const;

    newest_frame& frames_;
    window const window_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::shared_ptr<picture const> last_;
    bool making_ = false;  ///< somebody waits for the next frame, or encodes it
    bool cancelled_ = false;
    clock::time_point not_before_;  ///< the next picture is made
    jpeg_encoder encoder_;          ///< of who makes one
};

}  // namespace mediagrabber
