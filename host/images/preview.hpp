// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "frames/frame_record.hpp"
#include "images/frame_image.hpp"
#include "images/latest_frame.hpp"

namespace mediagrabber {

/// The live image, shared by all viewers: each frame is encoded at most once, by the first client that waits for it,
/// and at most 25 frames a second are encoded. Without viewers it uses no CPU.
///
/// Any thread may call any member. One of the waiting clients encodes, without holding the mutex; the others wait for
/// its result.
class preview {
public:
    using clock = std::chrono::steady_clock;
    enum class window : std::uint8_t { full_scale, stretched };

    struct image {
        frame_record record;
        value_histogram histogram;
        value_window shown;
        std::uint32_t width = 0;  ///< of the JPEG image, pixels
        std::uint32_t height = 0;
        std::string jpeg;
        clock::time_point made;
    };

    static constexpr std::uint32_t screen_side = 1'600;  ///< pixels, about what a screen shows
    static constexpr std::uint32_t small_side = 480;     ///< pixels, for a page with many images

    /// \param frames    must outlive the preview
    /// \param max_side  pixels; larger frames are downscaled by an integer factor
    preview(latest_frame& frames, window chosen, std::uint32_t max_side)
        : frames_(frames), window_(chosen), max_side_(max_side) {
        frames.add_user();
    }

    /// Waits for an image.
    /// \param known  number of the frame that the client already has
    /// \return nothing if none arrived by `until` or cancel() was called
    /// \throws std::runtime_error if the frame cannot be encoded
    std::shared_ptr<image const> next(std::uint64_t known, clock::time_point until);
    /// \return the latest image; null if it is older than 2 s
    std::shared_ptr<image const> last() const;
    /// Ends all current and future waits.
    void cancel();

private:
    std::shared_ptr<image const> encode(clock::time_point until);
    bool has_other_than(std::uint64_t known) const;

    latest_frame& frames_;
    window const window_;
    std::uint32_t const max_side_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::shared_ptr<image const> last_;
    bool encoding_ = false;  ///< a client waits for the next frame or encodes it
    bool cancelled_ = false;
    clock::time_point not_before_;  ///< earliest start of the next image; used only by the encoding client
    jpeg_encoder encoder_;          ///< used only by the encoding client
};

}  // namespace mediagrabber
