// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>
#include <optional>

namespace Vorn::Support::MediaGrabber::Jai {

/// Inputs of the synchronisation that may change from frame to frame.
struct timestamp_settings {
    uint32_t latencyAdjustment = 0;  ///< microseconds, added to the host's arrival times
    uint32_t secondAdjustment = 0;   ///< microseconds, added to the latency measured with the camera's counter
    int32_t clockCorrection = 0;     ///< camera clock correction in ns/s; 0 stamps with host time
    uint32_t tickFrequency = 0;      ///< of the camera's counter, ticks per second; 0: the counter is not usable
    uint32_t framePeriod = 0;        ///< microseconds; 0: unknown, measured from the camera's timestamps
    float frameRate = 0.0F;          ///< frames per second

    /// \return whether timestamps follow the camera's clock; otherwise they follow the host's time of day
    bool followsCamera() const { return clockCorrection != 0 && tickFrequency != 0; }
};

/// Keeps frame timestamps synchronised with the host's clock. All times are in microseconds.
///
/// The first good frame calibrates the latency from the camera's timestamp of a frame to its arrival. Each later frame
/// gets the timestamp that was predicted while the previous frame was handled. Call `calibrate` for the first good
/// frame of a run, then for each frame `stamp`, `evaluatePace` and `announce`, in this order.
///
/// A value type that works on numbers only: it reads no clock, does no I/O, does not log and does not throw. Each call
/// returns what happened, and the caller logs it. One object per loop run, used by one thread. Unsigned times wrap.
class timestamp_sync {
public:
    /// A good frame that has arrived.
    struct arrival {
        uint64_t hostTime;        ///< host time at which the fetch returned
        uint64_t blockTimestamp;  ///< the camera's timestamp of the frame
    };

    struct calibration {
        int32_t latency;            ///< from the exposure to the arrival
        uint64_t difference;        ///< host time minus camera time
        uint64_t expectedDelay;     ///< from a frame's timestamp to its arrival
        uint64_t blockTimeAtFetch;  ///< time of the camera's counter when the fetch returned
    };

    struct stamped {
        /// The camera's timestamps went backwards.
        struct wrap {
            uint64_t oldTimestamp, newTimestamp;
        };
        /// There was no usable prediction for the frame.
        struct initialisation {
            uint64_t oldDifference, newDifference, oldTimestamp, newTimestamp;
        };
        uint64_t timestamp;  ///< of this frame
        std::optional<wrap> wrapped;
        std::optional<initialisation> initialised;
    };

    struct readjustment {
        uint64_t delay;  ///< from the frame's timestamp to its arrival
        uint64_t bound;  ///< limit that the delay has crossed for too long
    };
    /// Adjustments of this frame.
    struct pace {
        std::optional<readjustment> fast, slow, extraSlow;
    };

    struct announcement {
        uint64_t timestamp;               ///< expected for the next frame
        std::optional<int32_t> overflow;  ///< correction that became too large and caused a resynchronisation
    };

    /// \param framePeriod first estimate of the frame interval, in microseconds
    explicit timestamp_sync(uint32_t framePeriod) : frameInterval_(framePeriod) {}

    /// Calibrates with the first good frame.
    /// \param settings of this frame
    /// \param frame the first good frame
    /// \param startTime host time at which grabbing started, the low 32 bits
    /// \param fetchesBefore fetches before that of this frame
    /// \param ticks the camera's counter after the fetch
    /// \return results of the calibration
    calibration calibrate(timestamp_settings const& settings, arrival const& frame, uint32_t startTime,
                          uint32_t fetchesBefore, uint64_t ticks);

    /// Stamps a later frame.
    /// \param settings of this frame
    /// \param frame any good frame after the first
    /// \return the frame's timestamp, and whether the camera's timestamps wrapped or the prediction was not usable
    stamped stamp(timestamp_settings const& settings, arrival const& frame);

    /// Checks whether frames arrive earlier or later than expected for too long, and resynchronises if they do.
    /// \param settings of the frame that was stamped last
    /// \return the adjustments made
    pace evaluatePace(timestamp_settings const& settings);

    /// Predicts the timestamp of the next frame.
    /// \param settings of the frame that was stamped or calibrated last
    /// \return the prediction
    announcement announce(timestamp_settings const& settings);

private:
    uint64_t cameraSideNow(timestamp_settings const& settings) const;
    uint64_t expectedInterval(timestamp_settings const& settings) const;
    void resynchronise(timestamp_settings const& settings, uint64_t base);
    void resynchroniseToPace(timestamp_settings const& settings);

    arrival frame_{};  ///< the current frame
    uint64_t previousBlockTimestamp_ = 0;
    uint64_t frameInterval_;  ///< estimate, from block timestamps
    int32_t latency_ = 0;
    uint64_t difference_ = 0;      ///< host time minus camera time
    uint64_t base_ = 0;            ///< host time of the last resynchronisation, from which the correction counts
    uint64_t expectedDelay_ = 0;   ///< from a frame's timestamp to its arrival
    uint64_t frameTimestamp_ = 0;  ///< of this frame; after `announce`, of the next
    bool stamping_ = false;        ///< whether a frame has been stamped since the calibration
    uint32_t fastCount_ = 0;       ///< early frames since the last one in time
    uint32_t slowCount_ = 0;       ///< late frames since the last one in time, also after an adjustment
    uint32_t extraSlowCount_ = 0;  ///< frames that were late by several times the expected delay
};

}  // namespace Vorn::Support::MediaGrabber::Jai
