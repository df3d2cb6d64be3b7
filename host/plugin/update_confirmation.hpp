// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>

namespace mediagrabber {

/// Reports when the camera runs with a changed configuration, and the values that it has then.
///
/// The plug-in applies a configuration after its activation and before it fetches the next frame. It reads the values
/// that it publishes with that frame from the camera. Therefore the first poll after a good frame confirms the change.
class update_confirmation {
public:
    /// The camera's values, as far as the plug-in reports them.
    struct camera_values {
        std::optional<float> gain_db;
        std::optional<float> exposure_us;
        std::uint32_t period_us = 0;  ///< 0: unknown
        std::uint32_t width = 0;      ///< pixels, 0: unknown
        std::uint32_t height = 0;     ///< pixels, 0: unknown
    };
    /// The progress of a change.
    struct outcome {
        bool activated = false;               ///< the plug-in has received it
        std::optional<camera_values> values;  ///< set once a frame has arrived since
    };

    // ---- For the plug-in's thread
    /// \param number  of the change, see configuration_store
    void activated(std::uint64_t number, std::uint64_t good_frames);
    /// \param good_frames  number of frames so far; `values` belong to the last one
    void polled(std::uint64_t good_frames, camera_values const& values) {
        if (awaited_ && good_frames > frames_when_activated_) {
            confirm(values);
        }
    }

    // ---- For any other thread
    /// Blocks until the change `number` is confirmed, the timeout expires, or cancel() is called.
    outcome wait_for(std::uint64_t number, std::chrono::duration<double> timeout);
    /// Ends all present and future waits.
    void cancel();

private:
    void confirm(camera_values const& values);

    std::atomic<bool> awaited_{false};
    std::uint64_t frames_when_activated_ = 0;  ///< used by the plug-in's thread only

    std::mutex mutex_;  ///< guards everything below
    std::condition_variable changed_;
    std::uint64_t activated_ = 0;
    std::uint64_t confirmed_ = 0;
    camera_values values_;
    bool cancelled_ = false;
};

}  // namespace mediagrabber
