#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>

namespace mediagrabber {

/// Tells when a changed configuration is at work, and what the camera has made of it.
///
/// The plug-in applies a configuration after it was taken, and before it fetches the next frame. What it publishes with
/// that frame it has read from the camera since; so the poll that follows a good frame is the proof.
class change_confirmation {
public:
    /// What the camera has, as far as the plug-in tells.
    struct camera_values {
        std::optional<float> gain_db;
        std::optional<float> exposure_us;
        std::uint32_t period_us = 0;  ///< 0: not told
        std::uint32_t width = 0;      ///< pixels, 0: not told
        std::uint32_t height = 0;     ///< pixels, 0: not told
    };
    /// How far a change has got.
    struct outcome {
        bool taken = false;                   ///< the plug-in was given it
        std::optional<camera_values> values;  ///< when a frame has come since
    };

    // ---- For the plug-in's thread
    /// \param number  of the offer, see configuration_store
    void taken(std::uint64_t number, std::uint64_t good_frames);
    /// \param good_frames  that have come so far; `values` belong to the last of them
    void polled(std::uint64_t good_frames, camera_values const& values) {
        if (awaited_ && good_frames > frames_when_taken_) {
            confirm(values);
        }
    }

    // ---- For any other
    outcome wait_for(std::uint64_t number, std::chrono::duration<double> longest);
    /// Ends all waits, those to come as well.
    void cancel();

private:
    void confirm(camera_values const& values);

    std::atomic<bool> awaited_{false};
    std::uint64_t frames_when_taken_ = 0;  ///< used by the plug-in's thread alone

    std::mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t taken_ = 0;
    std::uint64_t confirmed_ = 0;
    camera_values values_;
    bool cancelled_ = false;
};

}  // namespace mediagrabber
